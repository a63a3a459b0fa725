// The byte-string helpers and UTF-8 validation, each as a table of inputs and what they give.
#include <norvane/strings.hpp>

#include "util/utf8.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace std::string_view_literals;

TEST(Strings, AffixesTrimAndSplitWorkOnBytes) {
  for (const auto& [text, affix, starts, ends] : {std::tuple{""sv, ""sv, true, true},
                                                  {"abc", "bc", false, true},
                                                  {"abc", "abc", true, true},
                                                  {"Abc", "ab", false, false}}) {
    EXPECT_EQ(std::pair(norvane::starts_with(text, affix), norvane::ends_with(text, affix)),
              std::pair(starts, ends))
        << text << " / " << affix;
  }
  // 0xA0 (no-break space) and 0x85 (NEL) are not whitespace: only ASCII is.
  for (const auto& [text, leading, trailing, rest] :
       {std::tuple{" \t\n\v\f\rvalue \r\n"sv, 6u, 3u, "value"sv},
        {"  \t ", 4u, 0u, ""},
        {"\xA0 a \x85", 0u, 0u, "\xA0 a \x85"}}) {
    std::string_view view = text;
    EXPECT_TRUE(norvane::remove_leading_whitespace(view) == leading &&
                norvane::remove_trailing_whitespace(view) == trailing && view == rest)
        << text;
  }
  // Empty pieces are dropped; every delimiter character splits; NUL is ordinary.
  using pieces = std::vector<std::string_view>;
  for (const auto& [text, delimiters, expected] : {std::tuple{"a,,b,"sv, ","sv, pieces{"a", "b"}},
                                                   {",", ",", {}},
                                                   {"a b", "", {"a b"}},
                                                   {"k=v; x = y", "=; ", {"k", "v", "x", "y"}},
                                                   {"a\0b"sv, "\0"sv, {"a", "b"}}}) {
    const auto result = norvane::split(text, delimiters);
    EXPECT_EQ(result, expected) << text;
    EXPECT_TRUE(result.empty() || result.back().end() <= text.end());
  }
  EXPECT_EQ(utf8_to_locale("caf\xC3\xA9") + locale_to_utf8("!"), "caf\xC3\xA9!");
}

TEST(Strings, ParseNumericReadsALeadingNumber) {
  // The integer form writes only when it read something; the real one always.
  for (const auto& [text, ok, integer, real] : {std::tuple{"  -42abc"sv, true, -42LL, -42.0},
                                                {"abc", false, -7LL, 0.0},
                                                {std::string_view{}, false, -7LL, 0.0}}) {
    long long i = -7;
    double d = -7.0;
    EXPECT_TRUE(norvane::parse_numeric(&i, text) == ok && norvane::parse_numeric(&d, text) == ok) << text;
    EXPECT_TRUE(i == integer && d == real) << text << ": " << i << " " << d;
  }
  // The view's size is ignored: the number runs on to the first non-digit.
  long long value = 0;
  EXPECT_TRUE(norvane::parse_numeric(&value, "12345"sv.substr(0, 2)) && value == 12345);
}

TEST(Strings, UnescapeDecodesOrNamesTheFault) {
  // Input, success, and what it decodes to or the error message.
  const std::tuple<std::string_view, bool, std::string> rows[] = {
      {R"(\"\'\?\\\a\b\f\n\r\t\v)", true, "\"'?\\\a\b\f\n\r\t\v"},
      {R"(\0|\12|\128|\1011|x\7)", true, std::string("\0|\n|\n8|A1|x\a", 12)},
      {R"(\X4g|\x100000041|\xFf|\xa)", true, "\x04g|A|\xff|\n"},  // 32 bits: digits past the eighth push out
      {R"(\400)", false, R"(Value of \400 exceeds 0xff)"},
      {R"(\x10000041)", false, R"(Value of \x10000041 exceeds 0xff)"},
      {"abc\\", false, R"(String cannot end with \)"},
      {R"(ab\X)", false, R"(String cannot end with \x)"},
      {R"(\xg1)", false, R"(\x cannot be followed by a non-hex digit)"},
      {R"(ok\8)", false, R"(Unknown escape sequence: \8)"}};
  for (const auto& [in, ok, expected] : rows) {
    std::string out = "previous content, longer than most inputs", error;
    EXPECT_EQ(norvane::unescape(&out, in, &error), ok) << in;
    EXPECT_EQ(ok ? out : error, expected) << in;
    // In place, with plain text before the first escape.
    std::string text = "pre" + std::string(in);
    EXPECT_EQ(norvane::unescape(&text, text, nullptr), ok) << in;
    EXPECT_EQ(text, ok ? "pre" + expected : "pre" + std::string(in));
  }
  // The length is reported only on success, and the buffer past it is left alone.
  std::string out(8, '#');
  std::size_t length = 99;
  EXPECT_FALSE(norvane::details::unescape_impl(&out, &length, R"(\z)", nullptr) || length != 99);
  ASSERT_TRUE(norvane::details::unescape_impl(&out, &length, R"(x\ny)", nullptr));
  EXPECT_EQ(out.substr(0, length + 1), "x\ny#");
}

TEST(Strings, ScannerTakesOneValueItem) {
  // Kind ('b' a bool, 's' a quoted string), text, failed before, result, value ("-" untouched,
  // "?" unchecked), failed after, how far the cursor moved, token begin and end.
  using z = std::size_t;
  const std::tuple<char, std::string_view, bool, bool, std::string, bool, z, z, z> rows[] = {
      {'b', "True,x", false, true, "1", false, 4, 0, 0},
      {'b', "False", false, true, "0", false, 5, 0, 0},
      {'b', "TRUE x", false, false, "-", false, 4, 0, 0},
      {'b', " true", false, false, "-", true, 0, 0, 0},
      {'b', "1", true, false, "-", true, 1, 0, 0},
      {'s', R"("a\tb",x)", false, true, "a\tb", false, 6, 1, 5},
      {'s', "''", false, true, "", false, 2, 1, 1},
      {'s', "abc", false, false, "-", false, 0, 0, 0},
      {'s', "'", false, false, "-", true, 1, 1, 1},
      {'s', "\"abc", false, false, "-", true, 1, 1, 4},
      {'s', R"('a\'b')", false, false, "?", false, 4, 1, 3},
      {'s', "'ok'", true, false, "-", true, 4, 1, 3}};
  for (const auto& [kind, text, failed_before, ok, expected, failed, used, token_begin, token_end] : rows) {
    norvane::string_scanner s{text.data(), text.size()};
    s.failed = failed_before;
    std::string value = "-";
    bool flag = false;
    EXPECT_EQ(kind == 'b' ? norvane::parse_value_item(&flag, &s) : norvane::parse_value_item(&value, &s), ok)
        << text;
    EXPECT_TRUE(expected == "?" || (kind == 'b' && ok ? (flag ? "1" : "0") : value) == expected) << text;
    EXPECT_TRUE(s.failed == failed && s.cursor == text.data() + used && s.remaining == text.size() - used)
        << text;
    EXPECT_TRUE((kind != 'b' && token_end == 0) ||
                (s.token_begin == text.data() + token_begin &&
                 s.token_end == (token_end > 0 ? text.data() + token_end : nullptr)))
        << text;
  }
}

// Through both the eight-byte ASCII path and the byte-by-byte one.
TEST(Strings, Utf8FaultAndItsOffset) {
  using enum norvane::details::utf8_fault_kind;
  const auto nul = nul_byte, bad = invalid_sequence;
  const std::tuple<std::string, norvane::details::utf8_fault_kind, std::size_t> rows[] = {
      {"", none, 0},
      {"plain ASCII, longer than one word", none, 0},
      {"\xc3\xa9\xe2\x82\xac\xf0\x9d\x84\x9e\xf4\x8f\xbf\xbf", none, 0},  // é € 𝄞 U+10FFFF
      {std::string("abcdefghij\0", 11), nul, 10},                         // after a full ASCII word
      {"a\x80", bad, 1},                                                  // a lone continuation byte
      {"\xe0\x9f\xbf", bad, 0},                                           // overlong three-byte form
      {"\xf0\x8f\xbf\xbf", bad, 0},                                       // overlong four-byte form
      {"ok \xed\xa0\x80", bad, 3},                                        // a UTF-16 surrogate
      {"\xf4\x90\x80\x80", bad, 0},                                       // above U+10FFFF
      {"abcdefgh\xe2\x82", bad, 8},                                       // cut short by the end
      {"\xe2\x28\xa1", bad, 0},                                           // a continuation byte missing
      {"12345678\xc3\xa9\xff", bad, 10},                                  // the fault after a valid sequence
  };
  // Shifting the text against the eight-byte words moves the fault with it.
  for (const auto& [text, kind, offset] : rows) {
    for (std::size_t shift = 0; shift < 8; ++shift) {
      const auto fault = norvane::details::find_utf8_fault(std::string(shift, 'x') + text);
      EXPECT_EQ(fault.kind, kind) << shift << ": " << text;
      EXPECT_EQ(fault.offset, kind == none ? 0 : offset + shift) << shift << ": " << text;
    }
  }
}

}  // namespace
