#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <ctime>
#include <regex>

namespace norvane {
namespace {

using namespace std::string_literals;

// Each line must be one object that a strict parser accepts.
std::vector<nlohmann::json> records_in(const std::string& text) {
  std::vector<nlohmann::json> records;
  for (const auto& line : test::lines_of(text)) {
    records.push_back(nlohmann::json::parse(line));
  }
  return records;
}

TEST(JsonLinesSink, EveryMessageGivesOneStrictJsonLine) {
  const std::string replacement = "\xef\xbf\xbd";
  const std::pair<std::string, std::string> cases[] = {
      {"plain text", "plain text"},
      {R"(quote " backslash \ slash /)", R"(quote " backslash \ slash /)"},
      {"new\nline\ttab\rreturn\bback\fform", "new\nline\ttab\rreturn\bback\fform"},
      {"nul\0one\x01unit\x1f"
       "del\x7f"s,
       "nul\0one\x01unit\x1f"
       "del\x7f"s},
      {"\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"a\xff"
       "b",
       "a" + replacement + "b"},
      {"lone \x80 continuation", "lone " + replacement + " continuation"},
      {"cut \xe2\x82", "cut " + replacement},
      {"cut \xc3"
       "before ascii",
       "cut " + replacement + "before ascii"},
      {"overlong \xc0\xaf", "overlong " + replacement + replacement},
      {"surrogate \xed\xa0\x80", "surrogate " + replacement + replacement + replacement},
      {"past U+10FFFF \xf4\x90\x80\x80",
       "past U+10FFFF " + replacement + replacement + replacement + replacement},
  };
  test::temp_dir dir;
  {
    log_stream stream("odd \"name\"\n", std::make_shared<log_sink_json_file>(dir / "app.jsonl", true));
    stream.set_level(log_level::info);
    for (const auto& [message, expected] : cases) {
      stream.log(log_level::warning, "{}", message);
    }
  }
  const auto records = records_in(test::read_file(dir / "app.jsonl"));
  ASSERT_EQ(records.size(), std::size(cases));
  static const std::regex rfc3339(R"(^(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.\d{3}Z$)");
  for (std::size_t i = 0; i < records.size(); ++i) {
    const auto& record = records[i];
    EXPECT_EQ(record["msg"], cases[i].second) << i;
    EXPECT_EQ(record["level"], "warning");
    EXPECT_EQ(record["logger"], "odd \"name\"\n");
    EXPECT_EQ(record["pid"], ::getpid());
    EXPECT_EQ(record["thread"], ::gettid());
    std::smatch m;
    const std::string time = record["time"];
    ASSERT_TRUE(std::regex_match(time, m, rfc3339)) << time;
    std::tm utc{};
    ::strptime(m[1].str().c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    EXPECT_LE(std::abs(::timegm(&utc) - std::time(nullptr)), 5) << "not UTC: " << time;
  }
}

TEST(JsonLinesSink, HugeMessagesAndStandardOutput) {
  std::string every_byte(1 << 20, '\0');
  for (std::size_t i = 0; i < every_byte.size(); ++i) {
    every_byte[i] = static_cast<char>(i * 7 % 256);
  }
  test::stdout_capture out;
  for (auto sink : {std::shared_ptr<log_sink>(std::make_shared<log_sink_json_stdout>()),
                    std::shared_ptr<log_sink>(std::make_shared<log_sink_json_stdout_threaded>())}) {
    log_stream stream("out", sink);
    stream.set_level(log_level::info);
    stream.log(log_level::info, "{}", every_byte);
    stream.log(log_level::error, "after");
  }
  const auto records = records_in(out.text());
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[3]["msg"], "after");
  EXPECT_EQ(records[3]["level"], "error");
  EXPECT_EQ(records[0]["msg"], records[2]["msg"]);
  // Every byte below 0x80 comes through as itself.
  const std::string msg = records[0]["msg"];
  EXPECT_EQ(std::count(msg.begin(), msg.end(), '\0'), std::count(every_byte.begin(), every_byte.end(), '\0'));
  EXPECT_EQ(std::count(msg.begin(), msg.end(), '"'), std::count(every_byte.begin(), every_byte.end(), '"'));
}

}  // namespace
}  // namespace norvane
