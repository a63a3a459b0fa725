#include "log/log_test_util.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <ctime>

namespace norvane {
namespace {

using namespace std::string_literals;

// Every message gives one line that a strict parser accepts; ill-formed
// UTF-8 pieces become U+FFFD each.
TEST(JsonLinesSink, EveryMessageGivesOneStrictJsonLine) {
  const std::string bad = "\xef\xbf\xbd", controls = "new\nline\ttab\rret\bb\ff nul\0one\x01u\x1f\x7f"s;
  const std::pair<std::string, std::string> cases[] = {
      {R"(quote " backslash \ slash /)", R"(quote " backslash \ slash /)"},
      {controls, controls},
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
    for (const auto& c : cases) stream.log(log_level::warning, "{}", c.first);
  }
  static const std::regex rfc3339(R"(^(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.\d{3}Z$)");
  for (const auto& text : {test::read_file(dir / "app.jsonl"), out.text()}) {
    const auto lines = test::lines_of(text);
    ASSERT_EQ(lines.size(), std::size(cases));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const auto record = nlohmann::json::parse(lines[i]);
      const std::string time = record["time"];
      EXPECT_EQ(record, nlohmann::json({{"msg", cases[i].second},
                                        {"level", "warning"},
                                        {"time", time},
                                        {"logger", "odd \"name\"\n"},
                                        {"pid", ::getpid()},
                                        {"thread", ::gettid()}}))
          << i;
      std::smatch m;
      ASSERT_TRUE(std::regex_match(time, m, rfc3339)) << time;
      std::tm utc{};
      ::strptime(m[1].str().c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
      EXPECT_LE(std::abs(::timegm(&utc) - std::time(nullptr)), 5) << "not UTC: " << time;
    }
  }
}

}  // namespace
}  // namespace norvane
