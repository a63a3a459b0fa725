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
  const std::string bad = "\xef\xbf\xbd";  // each ill-formed piece becomes U+FFFD
  const std::pair<std::string, std::string> cases[] = {
      {R"(quote " backslash \ slash /)", R"(quote " backslash \ slash /)"},
      {"new\nline\ttab\rreturn\bback\fform nul\0one\x01unit\x1f"
       "del\x7f"s,
       "new\nline\ttab\rreturn\bback\fform nul\0one\x01unit\x1f"
       "del\x7f"s},
      {"\xc3\xa9 \xe0\xa0\x80 \xf4\x8f\xbf\xbf", "\xc3\xa9 \xe0\xa0\x80 \xf4\x8f\xbf\xbf"},
      {"lone \x80\x80\x80\x80, \xff", "lone " + bad + bad + bad + bad + ", " + bad},
      {"cut \xe2\x82", "cut " + bad},
      {"cut \xc3"
       "before ascii",
       "cut " + bad + "before ascii"},
      {"overlong \xc0\xaf \xe0\x9f\xbf", "overlong " + bad + bad + " " + bad + bad + bad},
      {"surrogate \xed\xa0\x80", "surrogate " + bad + bad + bad},
      {"past U+10FFFF \xf4\x90\x80\x80", "past U+10FFFF " + bad + bad + bad + bad},
      {"", ""},
  };
  test::temp_dir dir;
  test::stdout_capture out;
  for (auto sink : {std::shared_ptr<log_sink>(std::make_shared<log_sink_json_file>(dir / "app.jsonl", true)),
                    std::shared_ptr<log_sink>(std::make_shared<log_sink_json_stdout_threaded>())}) {
    log_stream stream("odd \"name\"\n", sink);
    stream.set_level(log_level::info);
    for (const auto& [message, expected] : cases) {
      stream.log(log_level::warning, "{}", message);
    }
  }
  static const std::regex rfc3339(R"(^(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.\d{3}Z$)");
  for (const auto& text : {test::read_file(dir / "app.jsonl"), out.text()}) {
    const auto records = records_in(text);
    ASSERT_EQ(records.size(), std::size(cases));
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
}

}  // namespace
}  // namespace norvane
