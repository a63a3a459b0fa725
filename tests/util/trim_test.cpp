#include <norvane/strings.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(trim, leading_and_trailing_ascii_whitespace) {
  std::string_view text = " \t\n\v\f\rvalue \r\n";
  EXPECT_EQ(norvane::remove_leading_whitespace(text), 6u);
  EXPECT_EQ(text, "value \r\n");
  EXPECT_EQ(norvane::remove_trailing_whitespace(text), 3u);
  EXPECT_EQ(text, "value");
  EXPECT_EQ(norvane::remove_leading_whitespace(text), 0u);
  EXPECT_EQ(norvane::remove_trailing_whitespace(text), 0u);
  EXPECT_EQ(text, "value");
}

TEST(trim, all_whitespace_becomes_empty) {
  std::string_view leading = "  \t ";
  EXPECT_EQ(norvane::remove_leading_whitespace(leading), 4u);
  EXPECT_TRUE(leading.empty());
  std::string_view trailing = "\n\n";
  EXPECT_EQ(norvane::remove_trailing_whitespace(trailing), 2u);
  EXPECT_TRUE(trailing.empty());
  std::string_view empty;
  EXPECT_EQ(norvane::remove_leading_whitespace(empty), 0u);
  EXPECT_EQ(norvane::remove_trailing_whitespace(empty), 0u);
}

TEST(trim, high_bytes_and_inner_spaces_stay) {
  // 0xA0 (no-break space in Latin-1) and 0x85 (NEL) are not whitespace here.
  std::string_view text = "\xA0 a b \x85";
  EXPECT_EQ(norvane::remove_leading_whitespace(text), 0u);
  EXPECT_EQ(norvane::remove_trailing_whitespace(text), 0u);
  std::string_view inner = " a b ";
  norvane::remove_leading_whitespace(inner);
  norvane::remove_trailing_whitespace(inner);
  EXPECT_EQ(inner, "a b");
}

}  // namespace
