#include <norvane/strings.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

norvane::string_scanner scanner_over(std::string_view text) {
  norvane::string_scanner s;
  s.cursor = text.data();
  s.remaining = text.size();
  return s;
}

TEST(string_scanner, bool_words) {
  for (const auto& [word, expected] : {std::pair{"1", true},
                                       {"true", true},
                                       {"True", true},
                                       {"0", false},
                                       {"false", false},
                                       {"False", false}}) {
    const std::string text = word;
    auto s = scanner_over(text);
    bool value = !expected;
    EXPECT_TRUE(norvane::parse_value_item(&value, &s)) << word;
    EXPECT_EQ(value, expected) << word;
    EXPECT_EQ(s.remaining, 0u);
    EXPECT_FALSE(s.failed);
  }
}

TEST(string_scanner, bool_consumes_only_the_word) {
  const std::string text = "True,x";
  auto s = scanner_over(text);
  bool value = false;
  ASSERT_TRUE(norvane::parse_value_item(&value, &s));
  EXPECT_TRUE(value);
  EXPECT_EQ(s.token_begin, text.data());
  EXPECT_EQ(s.token_end, nullptr);
  EXPECT_EQ(s.cursor, text.data() + 4);
  EXPECT_EQ(s.remaining, 2u);

  // The comma is not a word: that sets `failed` and nothing is consumed.
  EXPECT_FALSE(norvane::parse_value_item(&value, &s));
  EXPECT_TRUE(s.failed);
  EXPECT_EQ(s.cursor, text.data() + 4);
  EXPECT_TRUE(value);
}

TEST(string_scanner, bool_unknown_word_is_consumed_without_failing) {
  for (const char* word : {"TRUE", "yes", "10", "truex", "False0"}) {
    const std::string text = std::string(word) + " rest";
    auto s = scanner_over(text);
    bool value = true;
    EXPECT_FALSE(norvane::parse_value_item(&value, &s)) << word;
    EXPECT_FALSE(s.failed) << word;
    EXPECT_TRUE(value) << word;
    EXPECT_EQ(s.remaining, 5u) << word;
  }
}

TEST(string_scanner, bool_needs_a_word_at_the_cursor) {
  for (const char* text : {"", " true", ",x", "\xC3\xA9"}) {
    auto s = scanner_over(text);
    bool value = false;
    EXPECT_FALSE(norvane::parse_value_item(&value, &s)) << text;
    EXPECT_TRUE(s.failed) << text;
  }
  // Once failed, a good word is still consumed but refused.
  const std::string text = "1";
  auto s = scanner_over(text);
  s.failed = true;
  bool value = false;
  EXPECT_FALSE(norvane::parse_value_item(&value, &s));
  EXPECT_FALSE(value);
  EXPECT_EQ(s.remaining, 0u);
}

TEST(string_scanner, quoted_strings) {
  const std::string text = R"("a\tb",'say "hi"')";
  auto s = scanner_over(text);
  std::string value;
  ASSERT_TRUE(norvane::parse_value_item(&value, &s));
  EXPECT_EQ(value, "a\tb");
  EXPECT_EQ(s.token_begin, text.data() + 1);
  EXPECT_EQ(s.token_end, text.data() + 5);
  EXPECT_EQ(*s.cursor, ',');
  ++s.cursor;
  --s.remaining;
  ASSERT_TRUE(norvane::parse_value_item(&value, &s));
  EXPECT_EQ(value, "say \"hi\"");
  EXPECT_EQ(s.remaining, 0u);
  EXPECT_FALSE(s.failed);

  const std::string empty = "''";
  auto e = scanner_over(empty);
  value = "x";
  ASSERT_TRUE(norvane::parse_value_item(&value, &e));
  EXPECT_EQ(value, "");
}

TEST(string_scanner, quoted_string_errors) {
  // No quote at the cursor: nothing consumed, not a failure.
  const std::string bare = "abc";
  auto s = scanner_over(bare);
  std::string value = "kept";
  EXPECT_FALSE(norvane::parse_value_item(&value, &s));
  EXPECT_FALSE(s.failed);
  EXPECT_EQ(s.remaining, 3u);
  auto none = scanner_over("");
  EXPECT_FALSE(norvane::parse_value_item(&value, &none));
  EXPECT_FALSE(none.failed);

  // A lone quote: the token is empty and the scanner fails.
  const std::string lone = "'";
  auto l = scanner_over(lone);
  EXPECT_FALSE(norvane::parse_value_item(&value, &l));
  EXPECT_TRUE(l.failed);
  EXPECT_EQ(l.token_begin, lone.data() + 1);
  EXPECT_EQ(l.token_end, l.token_begin);

  // Unterminated: the token runs to the end.
  const std::string open = "\"abc";
  auto o = scanner_over(open);
  EXPECT_FALSE(norvane::parse_value_item(&value, &o));
  EXPECT_TRUE(o.failed);
  EXPECT_EQ(o.token_end, open.data() + open.size());

  // A backslash does not protect the quote, so the token is `a\`, which
  // cannot be unescaped; the scanner has still moved past the second quote.
  const std::string escaped = R"('a\'b')";
  auto e = scanner_over(escaped);
  EXPECT_FALSE(norvane::parse_value_item(&value, &e));
  EXPECT_FALSE(e.failed);
  EXPECT_EQ(e.token_end, escaped.data() + 3);
  EXPECT_EQ(std::string_view(e.cursor, e.remaining), "b'");

  // A quote of the other kind does not close the token.
  const std::string mixed = R"("it's")";
  auto m = scanner_over(mixed);
  ASSERT_TRUE(norvane::parse_value_item(&value, &m));
  EXPECT_EQ(value, "it's");

  // An earlier failure makes every later call refuse, after consuming.
  const std::string good = "'ok'";
  auto g = scanner_over(good);
  g.failed = true;
  EXPECT_FALSE(norvane::parse_value_item(&value, &g));
  EXPECT_EQ(g.remaining, 0u);
}

TEST(string_scanner, a_sequence_of_items) {
  const std::string text = "true 'name' 0";
  auto s = scanner_over(text);
  bool flag = false;
  std::string name;
  bool zero = true;
  auto skip_space = [&s] {
    ++s.cursor;
    --s.remaining;
  };
  EXPECT_TRUE(norvane::parse_value_item(&flag, &s));
  skip_space();
  EXPECT_TRUE(norvane::parse_value_item(&name, &s));
  skip_space();
  EXPECT_TRUE(norvane::parse_value_item(&zero, &s));
  EXPECT_TRUE(flag);
  EXPECT_EQ(name, "name");
  EXPECT_FALSE(zero);
  EXPECT_EQ(s.remaining, 0u);
}

}  // namespace
