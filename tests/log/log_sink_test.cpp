// A log stream (its threshold, its sink's lifetime) and the sinks: null, file,
// standard output and fan-out.
#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

namespace norvane {
namespace {

using test::lines_of;
using test::read_file;

TEST(LogStream, WritesExactlyAtOrAboveItsThresholdAndIsSilentUntilOneIsSet) {
  test::temp_dir dir;
  log_stream stream("a name", std::make_shared<log_sink_file>(dir / "log.txt", true));
  EXPECT_EQ(stream.level(), log_level::off);
  stream.log(log_level::critical, "dropped");
  // A disabled level never formats, so a bad format passes silently.
  EXPECT_NO_THROW(stream.log(log_level::error, fmt::runtime("{} and {}"), 1));
  for (int threshold = 0; threshold < 6; ++threshold) {
    stream.set_level(log_level(threshold));
    for (int level = 0; level < 6; ++level) {
      EXPECT_EQ(stream.should_log(log_level(level)), level >= threshold) << threshold << " vs " << level;
      stream.log(log_level(level), "{} at {}", level, threshold);
    }
  }
  stream.set_level(log_level::trace);
  EXPECT_THROW(stream.log(log_level::error, fmt::runtime("{:d}"), "text"), fmt::format_error);
  stream.log(log_level::info, "{}", std::string_view("a\0b", 3));
  // sink_it bypasses the threshold.
  stream.set_level(log_level::off);
  stream.sink_it(log_level::trace, log_msg(stream.name(), log_level::warning, "made by hand"));
  stream.flush();
  const auto lines = test::lines_of(test::read_file(dir / "log.txt"));
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
  EXPECT_TRUE(test::is_default_layout(test::read_file(dir / "borrowed.txt"), "second", "info", "two\n"));
  auto sink = std::make_shared<log_sink_file>(dir / "shared.txt", true);
  std::weak_ptr<log_sink> watch = sink;
  auto stream = std::make_unique<log_stream>("shared", std::move(sink));
  EXPECT_FALSE(watch.expired());
  stream.reset();
  EXPECT_TRUE(watch.expired());
}

void log_one(std::shared_ptr<log_sink> sink, const std::string& text) {
  log_stream stream("s", std::move(sink));
  stream.set_level(log_level::trace);
  stream.log(log_level::error, "{}", text);
  stream.flush();
}

TEST(LogSink, StandardOutputSinksWriteDefaultLinesAndTheOthersNothing) {
  test::stdout_capture out;
  for (auto sink : std::initializer_list<std::shared_ptr<log_sink>>{
           std::make_shared<log_sink_null>(), std::make_shared<log_sink_null_threaded>(),
           std::make_shared<log_sink_distribution>(), std::make_shared<log_sink_stdout>(),
           std::make_shared<log_sink_stdout_threaded>(), std::make_shared<log_sink_stdout_colour>(),
           std::make_shared<log_sink_stdout_colour_threaded>()}) {
    log_one(sink, "to stdout");
  }
  // Standard output is a file here, so the colour sinks write no escape codes.
  const auto lines = lines_of(out.text());
  ASSERT_EQ(lines.size(), 4u) << out.text();
  for (const auto& line : lines) {
    EXPECT_TRUE(test::is_default_layout(line, "s", "error", "to stdout")) << line;
  }
}

TEST(LogSink, FileSinksAppendTruncateOrThrowFromTheConstructor) {
  test::temp_dir dir;
  const auto path = dir / "app.log";
  test::write_file(path, "earlier line\n");
  log_one(std::make_shared<log_sink_file>(path, false), "appended");
  EXPECT_EQ(lines_of(read_file(path)).size(), 2u);
  log_one(std::make_shared<log_sink_file_threaded>(path, true), "fresh");
  EXPECT_TRUE(test::is_default_layout(read_file(path), "s", "error", "fresh\n"));
  // A directory in the file's place cannot be opened, even by root; nor a file under a regular file.
  std::filesystem::create_directory(dir / "taken");
  EXPECT_THROW(log_sink_file_threaded(dir / "taken", true), std::exception);
  EXPECT_THROW(log_sink_file(path / "child.log", false), std::exception);
}

template <typename Distribution>
void check_distribution(const test::temp_dir& dir) {
  auto fan = std::make_shared<Distribution>();
  {
    auto a = std::make_shared<log_sink_file>(dir / "a.log", true);
    // The wrappers go at the end of this block; the fan-out keeps their backend sinks.
    fan->set_sinks({a, std::make_shared<log_sink_file>(dir / "b.log", true), a});
  }
  log_one(fan, "twice here, once there");
  fan->set_sinks({});
  log_one(fan, "gone");
  const auto lines = lines_of(read_file(dir / "a.log"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(test::is_default_layout(lines[1], "s", "error", "twice here, once there"));
  EXPECT_EQ(lines_of(read_file(dir / "b.log")).size(), 1u);
}

TEST(LogSink, DistributionWritesToEachTargetInOrderAndKeepsThemAlive) {
  check_distribution<log_sink_distribution>(test::temp_dir());
  check_distribution<log_sink_distribution_threaded>(test::temp_dir());
}

}  // namespace
}  // namespace norvane
