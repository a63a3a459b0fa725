#include <norvane/strings.hpp>

#include <gtest/gtest.h>

namespace {

TEST(affixes, starts_with) {
  EXPECT_TRUE(norvane::starts_with("", ""));
  EXPECT_TRUE(norvane::starts_with("abc", "ab"));
  EXPECT_TRUE(norvane::starts_with("abc", "abc"));
  EXPECT_FALSE(norvane::starts_with("abc", "abcd"));
  EXPECT_FALSE(norvane::starts_with("Abc", "ab"));  // bytes, not case-folded
}

TEST(affixes, ends_with) {
  EXPECT_TRUE(norvane::ends_with("", ""));
  EXPECT_TRUE(norvane::ends_with("abc", "bc"));
  EXPECT_FALSE(norvane::ends_with("a", "ab"));
  EXPECT_FALSE(norvane::ends_with("abc", "ab"));
}

}  // namespace
