// The sinks: null, file, standard output and fan-out.
#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

namespace norvane {
namespace {

using test::lines_of;
using test::read_file;

void log_one(std::shared_ptr<log_sink> sink, const std::string& name, const std::string& text) {
  log_stream stream(name, std::move(sink));
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
    log_one(sink, "s", "to stdout");
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
  log_one(std::make_shared<log_sink_file>(path, false), "s", "appended");
  EXPECT_EQ(lines_of(read_file(path)).size(), 2u);
  log_one(std::make_shared<log_sink_file_threaded>(path, true), "s", "fresh");
  EXPECT_TRUE(test::is_default_layout(read_file(path), "s", "error", "fresh\n"));
  // A directory in the file's place cannot be opened, even by root; nor a
  // file under a regular file.
  std::filesystem::create_directory(dir / "taken");
  EXPECT_THROW(log_sink_file(dir / "taken", false), std::exception);
  EXPECT_THROW(log_sink_file_threaded(dir / "taken", true), std::exception);
  EXPECT_THROW(log_sink_file(path / "child.log", false), std::exception);

  // Streams on one sink share its file, and outlive the wrapper.
  auto shared = std::make_shared<log_sink_file>(dir / "one.log", true);
  log_stream kept("kept", shared.get());
  kept.set_level(log_level::info);
  log_one(shared, "a", "from a");
  shared.reset();
  kept.log(log_level::info, "still here");
  kept.flush();
  EXPECT_EQ(lines_of(read_file(dir / "one.log")).size(), 2u);
}

template <typename Distribution>
void check_distribution(const test::temp_dir& dir) {
  auto fan = std::make_shared<Distribution>();
  {
    auto a = std::make_shared<log_sink_file>(dir / "a.log", true);
    fan->set_sinks({a, std::make_shared<log_sink_file>(dir / "b.log", true), a});
    // The wrappers go now; the fan-out keeps their backend sinks.
  }
  log_one(fan, "fan", "twice here, once there");
  fan->set_sinks({});  // an empty list clears the targets
  log_one(fan, "fan", "gone");
  const auto lines = lines_of(read_file(dir / "a.log"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(test::is_default_layout(lines[1], "fan", "error", "twice here, once there"));
  EXPECT_EQ(lines_of(read_file(dir / "b.log")).size(), 1u);
}

TEST(LogSink, DistributionWritesToEachTargetInOrderAndKeepsThemAlive) {
  check_distribution<log_sink_distribution>(test::temp_dir());
  check_distribution<log_sink_distribution_threaded>(test::temp_dir());
}

}  // namespace
}  // namespace norvane
