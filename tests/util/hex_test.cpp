#include <norvane/hash.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(string_to_hex, two_digits_per_byte_high_nibble_first) {
  std::string out = "stale";
  norvane::string_to_hex(std::string("\x0f\xa0", 2), out, false);
  EXPECT_EQ(out, "0fa0");
  norvane::string_to_hex(std::string("\x0f\xa0", 2), out, true);
  EXPECT_EQ(out, "0FA0");
  norvane::string_to_hex("", out, true);
  EXPECT_EQ(out, "");

  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  norvane::string_to_hex(all, out, false);
  ASSERT_EQ(out.size(), 512u);
  EXPECT_EQ(out.substr(0, 8), "00010203");
  EXPECT_EQ(out.substr(2 * 0x7e, 8), "7e7f8081");
  EXPECT_EQ(out.substr(504), "fcfdfeff");
  EXPECT_EQ(out.find_first_not_of("0123456789abcdef"), std::string::npos);
}

}  // namespace
