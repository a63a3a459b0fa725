#include <norvane/strings.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using norvane::split;
using pieces = std::vector<std::string_view>;

TEST(split, drops_empty_pieces) {
  EXPECT_EQ(split("a,,b,", ","), (pieces{"a", "b"}));
  EXPECT_EQ(split(",", ","), pieces{});
  EXPECT_EQ(split("", ","), pieces{});
  EXPECT_EQ(split(",,,", ","), pieces{});
  EXPECT_EQ(split(",a", ","), pieces{"a"});
  EXPECT_EQ(split("a", ","), pieces{"a"});
}

TEST(split, any_delimiter_character_splits) {
  EXPECT_EQ(split("k=v; x = y", "=; "), (pieces{"k", "v", "x", "y"}));
  EXPECT_EQ(split("abc", ""), pieces{"abc"});
  EXPECT_EQ(split("a b", ","), pieces{"a b"});
  // NUL is an ordinary character of a view.
  const std::string with_nul("a\0b", 3);
  EXPECT_EQ(split(with_nul, std::string_view("\0", 1)), (pieces{"a", "b"}));
}

TEST(split, pieces_view_the_original_text) {
  const std::string text = "one two";
  const auto result = split(text, " ");
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(result[0].data(), text.data());
  EXPECT_EQ(result[1].data(), text.data() + 4);
}

}  // namespace
