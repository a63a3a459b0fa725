#include <norvane/strings.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(parse_numeric, integer_writes_only_when_something_was_read) {
  long long value = -7;
  EXPECT_TRUE(norvane::parse_numeric(&value, "12abc"));
  EXPECT_EQ(value, 12);
  EXPECT_TRUE(norvane::parse_numeric(&value, "  -42"));
  EXPECT_EQ(value, -42);

  value = -7;
  EXPECT_FALSE(norvane::parse_numeric(&value, "abc"));
  EXPECT_EQ(value, -7);
  EXPECT_FALSE(norvane::parse_numeric(&value, "  "));
  EXPECT_FALSE(norvane::parse_numeric(&value, std::string_view{}));
  EXPECT_EQ(value, -7);
}

TEST(parse_numeric, double_always_writes) {
  double value = -7.0;
  EXPECT_TRUE(norvane::parse_numeric(&value, "2.5e3xyz"));
  EXPECT_EQ(value, 2500.0);
  EXPECT_TRUE(norvane::parse_numeric(&value, " -0.125"));
  EXPECT_EQ(value, -0.125);

  value = -7.0;
  EXPECT_FALSE(norvane::parse_numeric(&value, "abc"));
  EXPECT_EQ(value, 0.0);
  value = -7.0;
  EXPECT_FALSE(norvane::parse_numeric(&value, std::string_view{}));
  EXPECT_EQ(value, 0.0);
}

TEST(parse_numeric, reads_past_the_view_up_to_a_nul) {
  // The view's size is ignored: the caller must end it where the number ends.
  const std::string text = "12345";
  long long value = 0;
  EXPECT_TRUE(norvane::parse_numeric(&value, std::string_view(text).substr(0, 2)));
  EXPECT_EQ(value, 12345);
}

}  // namespace
