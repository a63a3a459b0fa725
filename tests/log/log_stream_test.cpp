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

TEST(LogStream, LevelNumbersMatchTheBackend) {
  EXPECT_EQ(static_cast<int>(log_level::trace), 0);
  EXPECT_EQ(static_cast<int>(log_level::warning), 3);
  EXPECT_EQ(static_cast<int>(log_level::off), 6);
}

TEST(LogStream, IsSilentUntilALevelIsSet) {
  test::temp_dir dir;
  auto sink = std::make_shared<log_sink_file>(dir / "log.txt", true);
  log_stream stream("quiet", sink);
  EXPECT_EQ(stream.level(), log_level::off);
  for (auto level : all_levels) {
    EXPECT_FALSE(stream.should_log(level));
    stream.log(level, "dropped {}", 1);
  }
  stream.flush();
  EXPECT_EQ(read_file(dir / "log.txt"), "");

  stream.set_level(log_level::trace);
  for (auto level : all_levels) {
    stream.log(level, "kept {}", static_cast<int>(level));
  }
  stream.flush();
  const auto lines = lines_of(read_file(dir / "log.txt"));
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_TRUE(test::is_default_layout(lines[0], "quiet", "trace", "kept 0")) << lines[0];
  EXPECT_TRUE(test::is_default_layout(lines[3], "quiet", "warning", "kept 3")) << lines[3];
  EXPECT_TRUE(test::is_default_layout(lines[5], "quiet", "critical", "kept 5")) << lines[5];

  stream.set_level(log_level::off);
  stream.log(log_level::critical, "not even critical");
  stream.flush();
  EXPECT_EQ(lines_of(read_file(dir / "log.txt")).size(), 6u);
}

TEST(LogStream, ShouldLogIsTrueExactlyAtOrAboveTheThreshold) {
  log_stream stream("threshold", std::make_shared<log_sink_null>());
  for (auto threshold : all_levels) {
    stream.set_level(threshold);
    EXPECT_EQ(stream.level(), threshold);
    for (auto level : all_levels) {
      EXPECT_EQ(stream.should_log(level), level >= threshold)
          << static_cast<int>(threshold) << " vs " << static_cast<int>(level);
    }
  }
}

TEST(LogStream, NameIsKept) {
  log_stream stream("a name with spaces", std::make_shared<log_sink_null>());
  EXPECT_EQ(stream.name(), "a name with spaces");
}

TEST(LogStream, BorrowedSinkIsNeverDeletedAndOutputSurvivesIt) {
  test::temp_dir dir;
  auto* sink = new log_sink_file(dir / "borrowed.txt", true);
  {
    log_stream first("first", sink);
    first.set_level(log_level::info);
    first.log(log_level::info, "one");
  }
  // The sink is still alive after the stream that borrowed it is gone.
  log_stream second("second", sink);
  second.set_level(log_level::info);
  delete sink;
  // The stream kept the spdlog sink, so it still writes.
  second.log(log_level::info, "two");
  second.flush();
  const auto lines = lines_of(read_file(dir / "borrowed.txt"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(test::is_default_layout(lines[1], "second", "info", "two")) << lines[1];
}

TEST(LogStream, SharedSinkStaysAliveWithTheStream) {
  test::temp_dir dir;
  auto sink = std::make_shared<log_sink_file>(dir / "shared.txt", true);
  std::weak_ptr<log_sink> watch = sink;
  auto stream = std::make_unique<log_stream>("shared", std::move(sink));
  EXPECT_FALSE(watch.expired());
  stream->set_level(log_level::debug);
  stream->log(log_level::debug, "{} + {} = {}", 1, 2, 3);
  stream->flush();
  EXPECT_TRUE(
      test::is_default_layout(lines_of(read_file(dir / "shared.txt")).at(0), "shared", "debug", "1 + 2 = 3"));
  stream.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(LogStream, FormatMismatchThrowsAndWritesNothing) {
  test::temp_dir dir;
  log_stream stream("fmt", std::make_shared<log_sink_file>(dir / "fmt.txt", true));
  stream.set_level(log_level::trace);
  EXPECT_THROW(stream.log(log_level::error, fmt::runtime("{} and {}"), 1), fmt::format_error);
  EXPECT_THROW(stream.log(log_level::error, fmt::runtime("{:d}"), "text"), fmt::format_error);
  EXPECT_THROW(stream.log(log_level::error, fmt::runtime("{"), 1), fmt::format_error);
  // A disabled level never formats, so a bad format passes silently.
  stream.set_level(log_level::off);
  EXPECT_NO_THROW(stream.log(log_level::error, fmt::runtime("{} and {}"), 1));
  stream.flush();
  EXPECT_EQ(read_file(dir / "fmt.txt"), "");
}

TEST(LogStream, MessagesKeepEmbeddedBytesAndLongText) {
  test::temp_dir dir;
  log_stream stream("bytes", std::make_shared<log_sink_file>(dir / "bytes.txt", true));
  stream.set_level(log_level::info);
  const std::string long_text(100000, 'x');
  stream.log(log_level::info, "{}", long_text);
  stream.log(log_level::info, "{}", std::string_view("a\0b", 3));
  stream.flush();
  const auto lines = lines_of(read_file(dir / "bytes.txt"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(test::is_default_layout(lines[0], "bytes", "info", long_text));
  EXPECT_TRUE(test::is_default_layout(lines[1], "bytes", "info", std::string("a\0b", 3)));
}

TEST(LogStream, SinkItPassesARecordAsIs) {
  test::temp_dir dir;
  log_stream stream("direct", std::make_shared<log_sink_file>(dir / "direct.txt", true));
  // sink_it bypasses the stream's threshold: the stream is still `off`.
  const std::string text = "made by hand";
  const log_msg msg(stream.name(), log_level::warning, text);
  stream.sink_it(log_level::trace, msg);
  stream.flush();
  EXPECT_TRUE(
      test::is_default_layout(lines_of(read_file(dir / "direct.txt")).at(0), "direct", "warning", text));
}

}  // namespace
}  // namespace norvane
