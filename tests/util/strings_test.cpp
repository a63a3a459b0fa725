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
    EXPECT_EQ(norvane::starts_with(text, affix), starts) << text << " / " << affix;
    EXPECT_EQ(norvane::ends_with(text, affix), ends) << text << " / " << affix;
  }
  // 0xA0 (no-break space) and 0x85 (NEL) are not whitespace: only ASCII is.
  for (const auto& [text, leading, trailing, rest] :
       {std::tuple{" \t\n\v\f\rvalue \r\n"sv, 6u, 3u, "value"sv},
        {"  \t ", 4u, 0u, ""},
        {"\xA0 a \x85", 0u, 0u, "\xA0 a \x85"}}) {
    std::string_view view = text;
    EXPECT_EQ(norvane::remove_leading_whitespace(view), leading) << text;
    EXPECT_EQ(norvane::remove_trailing_whitespace(view), trailing) << text;
    EXPECT_EQ(view, rest);
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
    EXPECT_EQ(norvane::parse_numeric(&i, text), ok) << text;
    EXPECT_EQ(norvane::parse_numeric(&d, text), ok) << text;
    EXPECT_EQ(i, integer) << text;
    EXPECT_EQ(d, real) << text;
  }
  // The view's size is ignored: the number runs on to the first non-digit.
  long long value = 0;
  EXPECT_TRUE(norvane::parse_numeric(&value, "12345"sv.substr(0, 2)));
  EXPECT_EQ(value, 12345);
}

TEST(Strings, UnescapeDecodesOrNamesTheFault) {
  struct row {
    std::string_view in;
    bool ok;
    std::string out;  // the error message when not ok
  };
  const row rows[] = {
      {R"(\"\'\?\\\a\b\f\n\r\t\v)", true, "\"'?\\\a\b\f\n\r\t\v"},
      {R"(\0|\12|\128|\1011|x\7)", true, std::string("\0|\n|\n8|A1|x\a", 12)},
      {R"(\X4g|\x100000041|\xFf|\xa)", true, "\x04g|A|\xff|\n"},  // 32 bits: digits past the eighth push out
      {R"(\400)", false, R"(Value of \400 exceeds 0xff)"},
      {R"(\x10000041)", false, R"(Value of \x10000041 exceeds 0xff)"},
      {"abc\\", false, R"(String cannot end with \)"},
      {R"(ab\X)", false, R"(String cannot end with \x)"},
      {R"(\xg1)", false, R"(\x cannot be followed by a non-hex digit)"},
      {R"(ok\8)", false, R"(Unknown escape sequence: \8)"}};
  for (const row& r : rows) {
    std::string out = "previous content, longer than most inputs";
    std::string error;
    EXPECT_EQ(norvane::unescape(&out, r.in, &error), r.ok) << r.in;
    EXPECT_EQ(r.ok ? out : error, r.out) << r.in;
    // In place, with plain text before the first escape.
    std::string text = "pre" + std::string(r.in);
    EXPECT_EQ(norvane::unescape(&text, text, nullptr), r.ok) << r.in;
    EXPECT_EQ(text, r.ok ? "pre" + r.out : "pre" + std::string(r.in));
  }
  // The length is reported only on success, and the buffer past it is left alone.
  std::string out(8, '#');
  std::size_t length = 99;
  EXPECT_FALSE(norvane::details::unescape_impl(&out, &length, R"(\z)", nullptr));
  EXPECT_EQ(length, 99u);
  ASSERT_TRUE(norvane::details::unescape_impl(&out, &length, R"(x\ny)", nullptr));
  EXPECT_EQ(out.substr(0, length + 1), "x\ny#");
}

TEST(Strings, ScannerTakesOneValueItem) {
  // kind 'b' reads a bool, 's' a quoted string; value "-" is untouched, "?" unchecked;
  // `used` is how far the cursor moved.
  struct row {
    char kind;
    std::string_view text;
    bool failed_before, ok;
    std::string value;
    bool failed;
    std::size_t used, token_begin, token_end;
  };
  const row rows[] = {{'b', "True,x", false, true, "1", false, 4, 0, 0},
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
  for (const row& r : rows) {
    norvane::string_scanner s{r.text.data(), r.text.size()};
    s.failed = r.failed_before;
    std::string value = "-";
    bool flag = false;
    EXPECT_EQ(r.kind == 'b' ? norvane::parse_value_item(&flag, &s) : norvane::parse_value_item(&value, &s),
              r.ok)
        << r.text;
    if (r.value != "?") {
      EXPECT_EQ(r.kind == 'b' && r.ok ? (flag ? "1" : "0") : value, r.value) << r.text;
    }
    EXPECT_EQ(s.failed, r.failed) << r.text;
    EXPECT_EQ(s.cursor, r.text.data() + r.used) << r.text;
    EXPECT_EQ(s.remaining, r.text.size() - r.used) << r.text;
    if (r.kind == 'b' || r.token_end > 0) {
      EXPECT_EQ(s.token_begin, r.text.data() + r.token_begin) << r.text;
      EXPECT_EQ(s.token_end, r.token_end > 0 ? r.text.data() + r.token_end : nullptr) << r.text;
    }
  }
}

// Through both the eight-byte ASCII path and the byte-by-byte one.
TEST(Strings, Utf8FaultAndItsOffset) {
  struct row {
    std::string text;
    norvane::details::utf8_fault_kind kind;
    std::size_t offset;
  };
  using enum norvane::details::utf8_fault_kind;
  const auto nul = nul_byte, bad = invalid_sequence;
  const row rows[] = {
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
  for (const row& r : rows) {
    const auto fault = norvane::details::find_utf8_fault(r.text);
    EXPECT_EQ(fault.kind, r.kind) << r.text;
    if (r.kind != none) {
      EXPECT_EQ(fault.offset, r.offset) << r.text;
    }
    // Shifting the text against the eight-byte words moves the fault with it.
    for (std::size_t shift = 1; shift < 8; ++shift) {
      const auto shifted = norvane::details::find_utf8_fault(std::string(shift, 'x') + r.text);
      EXPECT_EQ(shifted.kind, r.kind) << shift << ": " << r.text;
      EXPECT_EQ(shifted.offset, r.kind == none ? 0 : r.offset + shift) << shift << ": " << r.text;
    }
  }
}

}  // namespace
