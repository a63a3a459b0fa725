#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace norvane {
namespace {

using test::lines_of;
using test::read_file;

std::shared_ptr<log_stream> stream_on(std::shared_ptr<log_sink> sink, const std::string& name = "s") {
  auto stream = std::make_shared<log_stream>(name, std::move(sink));
  stream->set_level(log_level::trace);
  return stream;
}

TEST(LogSink, NullSinksSwallowEverything) {
  test::stdout_capture out;
  for (std::shared_ptr<log_sink> sink :
       {std::shared_ptr<log_sink>(std::make_shared<log_sink_null>()),
        std::shared_ptr<log_sink>(std::make_shared<log_sink_null_threaded>())}) {
    auto stream = stream_on(sink);
    stream->log(log_level::critical, "into the void");
    stream->flush();
  }
  EXPECT_EQ(out.text(), "");
}

TEST(LogSink, FileSinkAppendsOrTruncates) {
  test::temp_dir dir;
  const auto path = dir / "app.log";
  test::write_file(path, "earlier line\n");
  {
    auto stream = stream_on(std::make_shared<log_sink_file>(path, false));
    stream->log(log_level::info, "appended");
  }
  auto lines = lines_of(read_file(path));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "earlier line");
  EXPECT_TRUE(test::is_default_layout(lines[1], "s", "info", "appended"));
  {
    auto stream = stream_on(std::make_shared<log_sink_file_threaded>(path, true));
    stream->log(log_level::error, "fresh");
  }
  lines = lines_of(read_file(path));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(test::is_default_layout(lines[0], "s", "error", "fresh"));
}

TEST(LogSink, UnopenableFileThrowsFromTheConstructor) {
  test::temp_dir dir;
  // A directory where the file should be cannot be opened for writing, even by root.
  std::filesystem::create_directory(dir / "taken");
  EXPECT_THROW(log_sink_file(dir / "taken", false), std::exception);
  EXPECT_THROW(log_sink_file_threaded(dir / "taken", true), std::exception);
  // A parent that is a regular file.
  test::write_file(dir / "plain", "x");
  EXPECT_THROW(log_sink_file(dir / "plain" / "child.log", false), std::exception);
}

TEST(LogSink, DistributionWithoutTargetsWritesNothing) {
  test::stdout_capture out;
  auto stream = stream_on(std::make_shared<log_sink_distribution>());
  stream->log(log_level::critical, "nowhere");
  stream->flush();
  EXPECT_EQ(out.text(), "");
}

TEST(LogSink, DistributionWritesToEachTargetInOrderAndKeepsThemAlive) {
  test::temp_dir dir;
  for (bool threaded : {false, true}) {
    const auto a = dir / (threaded ? "ta.log" : "a.log");
    const auto b = dir / (threaded ? "tb.log" : "b.log");
    std::shared_ptr<log_sink> fan;
    {
      auto file_a = std::make_shared<log_sink_file>(a, true);
      auto file_b = std::make_shared<log_sink_file>(b, true);
      if (threaded) {
        auto d = std::make_shared<log_sink_distribution_threaded>();
        d->set_sinks({file_a, file_b, file_a});
        fan = d;
      } else {
        auto d = std::make_shared<log_sink_distribution>();
        d->set_sinks({file_a, file_b, file_a});
        fan = d;
      }
      // The wrappers go now; the fan-out keeps their spdlog sinks.
    }
    auto stream = stream_on(fan, "fan");
    stream->log(log_level::warning, "twice here, once there");
    stream->flush();
    const auto lines_a = lines_of(read_file(a));
    ASSERT_EQ(lines_a.size(), 2u) << threaded;
    EXPECT_TRUE(test::is_default_layout(lines_a[1], "fan", "warning", "twice here, once there"));
    EXPECT_EQ(lines_of(read_file(b)).size(), 1u);

    // An empty list clears the targets.
    if (threaded) {
      std::static_pointer_cast<log_sink_distribution_threaded>(fan)->set_sinks({});
    } else {
      std::static_pointer_cast<log_sink_distribution>(fan)->set_sinks({});
    }
    stream->log(log_level::warning, "gone");
    stream->flush();
    EXPECT_EQ(lines_of(read_file(a)).size(), 2u);
  }
}

TEST(LogSink, StdoutSinksWriteDefaultLinesAndColourOnlyOnATerminal) {
  test::stdout_capture out;
  {
    auto plain = stream_on(std::make_shared<log_sink_stdout>(), "plain");
    auto plain_mt = stream_on(std::make_shared<log_sink_stdout_threaded>(), "plain_mt");
    auto colour = stream_on(std::make_shared<log_sink_stdout_colour>(), "colour");
    auto colour_mt = stream_on(std::make_shared<log_sink_stdout_colour_threaded>(), "colour_mt");
    for (auto* s : {plain.get(), plain_mt.get(), colour.get(), colour_mt.get()}) {
      s->log(log_level::error, "to stdout");
      s->flush();
    }
  }
  const auto lines = lines_of(out.text());
  ASSERT_EQ(lines.size(), 4u);
  // Standard output is a file here, so the colour sinks write no escape codes.
  EXPECT_TRUE(test::is_default_layout(lines[0], "plain", "error", "to stdout")) << lines[0];
  EXPECT_TRUE(test::is_default_layout(lines[1], "plain_mt", "error", "to stdout")) << lines[1];
  EXPECT_TRUE(test::is_default_layout(lines[2], "colour", "error", "to stdout")) << lines[2];
  EXPECT_TRUE(test::is_default_layout(lines[3], "colour_mt", "error", "to stdout")) << lines[3];
}

TEST(LogSink, DestroyingTheWrapperKeepsTheStreamWriting) {
  test::temp_dir dir;
  auto sink = std::make_shared<log_sink_file>(dir / "kept.log", true);
  log_stream stream("kept", sink.get());
  stream.set_level(log_level::info);
  sink.reset();
  stream.log(log_level::info, "still here");
  stream.flush();
  EXPECT_EQ(lines_of(read_file(dir / "kept.log")).size(), 1u);
}

TEST(LogSink, StreamsOnOneSinkShareItsFile) {
  test::temp_dir dir;
  auto sink = std::make_shared<log_sink_file>(dir / "one.log", true);
  auto a = stream_on(sink, "a");
  auto b = stream_on(sink, "b");
  a->log(log_level::info, "from a");
  b->log(log_level::info, "from b");
  b->flush();
  const auto lines = lines_of(read_file(dir / "one.log"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(test::is_default_layout(lines[0], "a", "info", "from a"));
  EXPECT_TRUE(test::is_default_layout(lines[1], "b", "info", "from b"));
}

}  // namespace
}  // namespace norvane
