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
  norvane::string_to_hex("\x12\x34\x56\x78\x9a\xbc\xde\xf0", out, false);
  EXPECT_EQ(out, "123456789abcdef0");
}

}  // namespace
