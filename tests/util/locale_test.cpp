#include <norvane/strings.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(locale, conversions_are_identity_copies) {
  const std::string text = "caf\xC3\xA9 \xE2\x82\xAC";
  EXPECT_EQ(utf8_to_locale(text), text);
  EXPECT_EQ(locale_to_utf8(text), text);
  EXPECT_EQ(utf8_to_locale(""), "");
}

}  // namespace
