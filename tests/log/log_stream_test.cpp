// A log stream: its threshold, its sink's lifetime, and what reaches the sink.
#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

namespace norvane {
namespace {

using test::lines_of;
using test::read_file;

constexpr log_level all_levels[] = {log_level::trace,   log_level::debug, log_level::info,
                                    log_level::warning, log_level::error, log_level::critical};

TEST(LogStream, WritesExactlyAtOrAboveItsThresholdAndIsSilentUntilOneIsSet) {
  test::temp_dir dir;
  log_stream stream("a name", std::make_shared<log_sink_file>(dir / "log.txt", true));
  EXPECT_EQ(stream.name(), "a name");
  EXPECT_EQ(stream.level(), log_level::off);
  stream.log(log_level::critical, "dropped");
  // A disabled level never formats, so a bad format passes silently.
  EXPECT_NO_THROW(stream.log(log_level::error, fmt::runtime("{} and {}"), 1));
  for (auto threshold : all_levels) {
    stream.set_level(threshold);
    for (auto level : all_levels) {
      EXPECT_EQ(stream.should_log(level), level >= threshold) << int(threshold) << " vs " << int(level);
      stream.log(level, "{} at {}", int(level), int(threshold));
    }
  }
  stream.set_level(log_level::trace);
  EXPECT_THROW(stream.log(log_level::error, fmt::runtime("{:d}"), "text"), fmt::format_error);
  stream.log(log_level::info, "{}", std::string_view("a\0b", 3));
  // sink_it bypasses the threshold.
  stream.set_level(log_level::off);
  stream.sink_it(log_level::trace, log_msg(stream.name(), log_level::warning, "made by hand"));
  stream.flush();
  const auto lines = lines_of(read_file(dir / "log.txt"));
  ASSERT_EQ(lines.size(), 21u + 2u);
  EXPECT_TRUE(test::is_default_layout(lines[0], "a name", "trace", "0 at 0")) << lines[0];
  EXPECT_TRUE(test::is_default_layout(lines[6], "a name", "debug", "1 at 1")) << lines[6];
  EXPECT_TRUE(test::is_default_layout(lines[20], "a name", "critical", "5 at 5")) << lines[20];
  EXPECT_TRUE(test::is_default_layout(lines[21], "a name", "info", std::string("a\0b", 3)));
  EXPECT_TRUE(test::is_default_layout(lines[22], "a name", "warning", "made by hand")) << lines[22];
}

TEST(LogStream, ABorrowedSinkIsNeverDeletedAndASharedOneLivesWithTheStream) {
  test::temp_dir dir;
  auto* borrowed = new log_sink_file(dir / "borrowed.txt", true);
  { log_stream first("first", borrowed); }
  log_stream second("second", borrowed);
  second.set_level(log_level::info);
  delete borrowed;
  // The stream kept the backend's sink, so it still writes.
  second.log(log_level::info, "two");
  second.flush();
  EXPECT_TRUE(test::is_default_layout(read_file(dir / "borrowed.txt"), "second", "info", "two\n"));

  auto sink = std::make_shared<log_sink_file>(dir / "shared.txt", true);
  std::weak_ptr<log_sink> watch = sink;
  auto stream = std::make_unique<log_stream>("shared", std::move(sink));
  EXPECT_FALSE(watch.expired());
  stream.reset();
  EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace norvane
