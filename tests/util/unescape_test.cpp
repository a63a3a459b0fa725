#include <norvane/strings.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

// Unescapes into a fresh string; the error text when it fails.
struct outcome {
  bool ok;
  std::string text;
};

outcome decode(std::string_view in) {
  std::string out = "previous content that is longer than most inputs";
  std::string error;
  const bool ok = norvane::unescape(&out, in, &error);
  return ok ? outcome{true, out} : outcome{false, error};
}

TEST(unescape, simple_escapes) {
  EXPECT_EQ(decode(R"(\"\'\?\\\a\b\f\n\r\t\v)").text, "\"'?\\\a\b\f\n\r\t\v");
  EXPECT_TRUE(decode(R"(\"\'\?\\\a\b\f\n\r\t\v)").ok);
  EXPECT_EQ(decode("plain text").text, "plain text");
  EXPECT_EQ(decode("").text, "");
  EXPECT_TRUE(decode("").ok);
  EXPECT_EQ(decode(R"(a\tb\nc)").text, "a\tb\nc");
}

TEST(unescape, octal_takes_up_to_three_digits) {
  EXPECT_EQ(decode(R"(\101)").text, "A");
  EXPECT_EQ(decode(R"(\0)").text, std::string(1, '\0'));
  EXPECT_EQ(decode(R"(\12)").text, "\n");
  EXPECT_EQ(decode(R"(\128)").text, "\n8");  // 8 is not octal
  EXPECT_EQ(decode(R"(\1011)").text, "A1");  // a fourth digit is a character
  EXPECT_EQ(decode(R"(\377)").text, "\xff");
  EXPECT_EQ(decode(R"(x\7)").text, "x\a");  // ends inside the input
  EXPECT_EQ(decode(R"(\400)").text, R"(Value of \400 exceeds 0xff)");
  EXPECT_FALSE(decode(R"(\777)").ok);
  EXPECT_EQ(decode(R"(\777)").text, R"(Value of \777 exceeds 0xff)");
}

TEST(unescape, hex_takes_every_digit_into_32_bits) {
  EXPECT_EQ(decode(R"(\x41)").text, "A");
  EXPECT_EQ(decode(R"(\X41)").text, "A");
  EXPECT_EQ(decode(R"(\x0041)").text, "A");
  EXPECT_EQ(decode(R"(\xfF)").text, "\xff");
  EXPECT_EQ(decode(R"(\x4g)").text, "\x04g");
  // Digits past the eighth push the first ones out of the 32-bit value.
  EXPECT_EQ(decode(R"(\x100000041)").text, "A");
  EXPECT_TRUE(decode(R"(\x100000041)").ok);
  EXPECT_EQ(decode(R"(\x100)").text, R"(Value of \x100 exceeds 0xff)");
  EXPECT_EQ(decode(R"(\X1FF)").text, R"(Value of \X1FF exceeds 0xff)");
  EXPECT_EQ(decode(R"(\x10000041)").text, R"(Value of \x10000041 exceeds 0xff)");
}

TEST(unescape, malformed_input_fails_with_its_message) {
  EXPECT_EQ(decode("abc\\").text, R"(String cannot end with \)");
  EXPECT_FALSE(decode("\\").ok);
  EXPECT_EQ(decode(R"(ab\x)").text, R"(String cannot end with \x)");
  EXPECT_EQ(decode(R"(\X)").text, R"(String cannot end with \x)");
  EXPECT_EQ(decode(R"(\xg1)").text, R"(\x cannot be followed by a non-hex digit)");
  EXPECT_EQ(decode(R"(\x 1)").text, R"(\x cannot be followed by a non-hex digit)");
  EXPECT_EQ(decode(R"(\8)").text, R"(Unknown escape sequence: \8)");
  EXPECT_EQ(decode(R"(ok\q)").text, R"(Unknown escape sequence: \q)");
  EXPECT_FALSE(decode(R"(\8)").ok);

  // No message wanted: still fails, and does not touch anything else.
  std::string out;
  EXPECT_FALSE(norvane::unescape(&out, R"(\q)", nullptr));
  EXPECT_TRUE(norvane::unescape(&out, R"(\q\\)" + 2, nullptr));
  EXPECT_EQ(out, "\\");
}

TEST(unescape, every_byte_round_trips_through_octal_and_hex) {
  std::string expected;
  std::string octal;
  std::string hex;
  for (int byte = 0; byte < 256; ++byte) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "\\%03o", byte);
    octal += buffer;
    std::snprintf(buffer, sizeof buffer, byte % 2 ? "\\x%02X" : "\\x%02x", byte);
    hex += buffer;
    hex += 'z';  // ends each hex escape
    expected += static_cast<char>(byte);
  }
  EXPECT_EQ(decode(octal).text, expected);
  std::string expected_hex;
  for (char c : expected) {
    expected_hex += c;
    expected_hex += 'z';
  }
  EXPECT_EQ(decode(hex).text, expected_hex);
}

TEST(unescape, in_place) {
  std::string text = R"(line\tone\nline two\\end)";
  const char* buffer = text.data();
  ASSERT_TRUE(norvane::unescape(&text, text, nullptr));
  EXPECT_EQ(text, "line\tone\nline two\\end");
  EXPECT_EQ(text.data(), buffer);  // no reallocation

  std::string unchanged = "nothing to decode here";
  ASSERT_TRUE(norvane::unescape(&unchanged, unchanged, nullptr));
  EXPECT_EQ(unchanged, "nothing to decode here");

  std::string leading = R"(\101\102\103tail)";
  ASSERT_TRUE(norvane::unescape(&leading, leading, nullptr));
  EXPECT_EQ(leading, "ABCtail");

  // A prefix view of the string decodes in place and drops the rest.
  std::string prefix = R"(a\tc|ignored)";
  ASSERT_TRUE(norvane::unescape(&prefix, std::string_view(prefix).substr(0, 4), nullptr));
  EXPECT_EQ(prefix, "a\tc");

  std::string bad = R"(abc\)";
  std::string error;
  EXPECT_FALSE(norvane::unescape(&bad, bad, &error));
  EXPECT_EQ(error, R"(String cannot end with \)");
}

TEST(unescape, impl_reports_length_only_on_success) {
  std::string out(16, '#');
  std::size_t length = 999;
  std::string error = "stale";
  ASSERT_TRUE(norvane::details::unescape_impl(&out, &length, R"(x\ny)", &error));
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(out.substr(0, 3), "x\ny");
  EXPECT_EQ(out.substr(3), std::string(13, '#'));  // the rest of the buffer is untouched
  EXPECT_EQ(error, "stale");

  length = 999;
  EXPECT_FALSE(norvane::details::unescape_impl(&out, &length, R"(\z)", &error));
  EXPECT_EQ(length, 999u);
  EXPECT_EQ(error, R"(Unknown escape sequence: \z)");
}

}  // namespace
