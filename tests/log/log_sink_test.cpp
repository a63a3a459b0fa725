// A log stream (its threshold, its sink's lifetime) and the sinks: null, file,
// standard output and fan-out.
#include "log/log_test_util.hpp"

#include <gtest/gtest.h>

namespace norvane {
namespace {

using test::is_default_layout;
using test::lines_of;
using test::log_one;
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
  stream.set_level(log_level::off);  // sink_it bypasses the threshold
  stream.sink_it(log_level::trace, log_msg(stream.name(), log_level::warning, "made by hand"));
  stream.flush();
  const auto lines = lines_of(read_file(dir / "log.txt"));
  ASSERT_EQ(lines.size(), 21u + 2u);
  EXPECT_TRUE(is_default_layout(lines[0], "a name", "trace", "0 at 0")) << lines[0];
  EXPECT_TRUE(is_default_layout(lines[6], "a name", "debug", "1 at 1")) << lines[6];
  EXPECT_TRUE(is_default_layout(lines[20], "a name", "critical", "5 at 5")) << lines[20];
  EXPECT_TRUE(is_default_layout(lines[21], "a name", "info", std::string("a\0b", 3)));
  EXPECT_TRUE(is_default_layout(lines[22], "a name", "warning", "made by hand")) << lines[22];
}

TEST(LogStream, ABorrowedSinkIsNeverDeletedAndASharedOneLivesWithTheStream) {
  test::temp_dir dir;
  auto* borrowed = new log_sink_file(dir / "borrowed.txt", true);
  { log_stream first("first", borrowed); }
  log_stream second("second", borrowed);
  delete borrowed;  // the stream kept the backend's sink, so it still writes
  second.set_level(log_level::info);
  second.log(log_level::info, "two");
  second.flush();
  EXPECT_TRUE(is_default_layout(read_file(dir / "borrowed.txt"), "second", "info", "two\n"));
  auto sink = std::make_shared<log_sink_file>(dir / "shared.txt", true);
  std::weak_ptr<log_sink> watch = sink;
  auto stream = std::make_unique<log_stream>("shared", std::move(sink));
  EXPECT_FALSE(watch.expired());
  stream.reset();
  EXPECT_TRUE(watch.expired());
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
  const auto line = "[s] [error] to stdout";
  EXPECT_EQ(std::regex_replace(out.text(), std::regex(R"(^\[[-\d: .]{23}\] )", std::regex::multiline), ""),
            fmt::format("{0}\n{0}\n{0}\n{0}\n", line));
}

TEST(LogSink, FileSinksAppendTruncateOrThrowFromTheConstructor) {
  test::temp_dir dir;
  const auto path = dir / "app.log";
  test::write_file(path, "earlier line\n");
  log_one(std::make_shared<log_sink_file>(path, false), "appended");
  EXPECT_EQ(lines_of(read_file(path)).size(), 2u);
  log_one(std::make_shared<log_sink_file_threaded>(path, true), "fresh");
  EXPECT_TRUE(is_default_layout(read_file(path), "s", "error", "fresh\n"));
  // A directory in the file's place cannot be opened, even by root; nor a file under a regular file.
  std::filesystem::create_directory(dir / "taken");
  EXPECT_THROW(log_sink_file_threaded(dir / "taken", true), std::exception);
  EXPECT_THROW(log_sink_file(path / "child.log", false), std::exception);
}

// The fan-out writes to each target in order and keeps their backend sinks
// alive after the wrappers are gone.
TEST(LogSink, DistributionWritesToEachTargetInOrderAndKeepsThemAlive) {
  const auto check = [](auto fan) {
    test::temp_dir dir;
    {
      auto a = std::make_shared<log_sink_file>(dir / "a.log", true);
      fan->set_sinks({a, std::make_shared<log_sink_file>(dir / "b.log", true), a});
    }
    log_one(fan, "twice here, once there");
    fan->set_sinks({});
    log_one(fan, "gone");
    const auto lines = lines_of(read_file(dir / "a.log"));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(is_default_layout(lines[1], "s", "error", "twice here, once there"));
    EXPECT_EQ(lines_of(read_file(dir / "b.log")).size(), 1u);
  };
  check(std::make_shared<log_sink_distribution>());
  check(std::make_shared<log_sink_distribution_threaded>());
}

}  // namespace
}  // namespace norvane
