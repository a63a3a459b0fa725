#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <regex>
#include <thread>
#include <vector>

namespace norvane {
namespace {

// Writers log through one thread-safe file sink while other threads churn
// the registry; afterwards every line must be in the file, whole.
TEST(LogConcurrency, ThreadedFileSinkLosesAndTearsNothingWhileTheRegistryChurns) {
  test::temp_dir dir;
  const auto path = dir / "threads.log";
  constexpr int writers = 4;
  constexpr int churners = 3;
  constexpr int lines_per_writer = 2000;

  auto sink = std::make_shared<log_sink_file_threaded>(path, true);
  std::vector<std::shared_ptr<log_stream>> streams;
  for (int w = 0; w < writers; ++w) {
    auto stream = std::make_shared<log_stream>("writer" + std::to_string(w), sink);
    stream->set_level(log_level::info);
    streams.push_back(register_logger(stream));
  }

  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int w = 0; w < writers; ++w) {
    threads.emplace_back([&, w] {
      // Half the writers fetch their stream by name on every line.
      for (int i = 0; i < lines_per_writer; ++i) {
        auto stream = (w % 2 == 0) ? streams[w] : get_logger("writer" + std::to_string(w));
        stream->log(log_level::info, "line {} of writer {} {}", i, w, std::string(40, 'a' + w));
      }
    });
  }
  for (int c = 0; c < churners; ++c) {
    threads.emplace_back([&, c] {
      int round = 0;
      while (!done.load()) {
        const std::string name = "churn" + std::to_string(c) + "." + std::to_string(round++ % 16);
        register_logger(std::make_shared<log_stream>(name, std::make_shared<log_sink_null_threaded>()));
        get_logger(name)->log(log_level::critical, "dropped");
        unregister_logger(name);
        get_logger("writer1");
      }
    });
  }
  for (int w = 0; w < writers; ++w) {
    threads[static_cast<std::size_t>(w)].join();
  }
  done = true;
  for (std::size_t t = writers; t < threads.size(); ++t) {
    threads[t].join();
  }
  sink.reset();
  for (auto& s : streams) {
    unregister_logger(s->name());
  }
  streams.clear();  // the last owner closes the file

  const auto lines = test::lines_of(test::read_file(path));
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(writers * lines_per_writer));
  static const std::regex layout(
      R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] \[writer(\d)\] \[info\] line (\d+) of writer (\d) ([a-z]{40})$)");
  std::map<int, std::vector<bool>> seen;
  for (const auto& line : lines) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, layout)) << "torn line: " << line;
    const int w = std::stoi(m[1]);
    ASSERT_EQ(w, std::stoi(m[3]));
    ASSERT_EQ(m[4].str(), std::string(40, static_cast<char>('a' + w)));
    auto& marks = seen[w];
    marks.resize(lines_per_writer);
    const int i = std::stoi(m[2]);
    ASSERT_FALSE(marks[static_cast<std::size_t>(i)]) << "duplicate: " << line;
    marks[static_cast<std::size_t>(i)] = true;
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(writers));
}

// Eight writers on a rotating sink with a small limit while another thread
// moves the file away and reopens, as logrotate would: every line must end
// up in exactly one file, whole.
TEST(LogConcurrency, RotationLosesSplitsAndRepeatsNoLine) {
  test::temp_dir dir;
  constexpr int writers = 8;
  constexpr int lines_per_writer = 400;
  auto sink = std::make_shared<log_sink_rotating_file_threaded>(dir / "app.log", 4096, 100000);
  auto stream = std::make_shared<log_stream>("w", sink);
  stream->set_level(log_level::info);
  std::atomic<int> finished{0};
  std::vector<std::thread> threads;
  for (int w = 0; w < writers; ++w) {
    threads.emplace_back([&, w] {
      for (int i = 0; i < lines_per_writer; ++i) {
        stream->log(log_level::info, "{} {} {}", w, i, std::string(static_cast<std::size_t>(i % 50), 'x'));
      }
      ++finished;
    });
  }
  for (int moved = 0; finished.load() < writers; ++moved) {
    std::error_code ignored;
    std::filesystem::rename(dir / "app.log", dir / ("outside." + std::to_string(moved)), ignored);
    EXPECT_TRUE(sink->reopen());
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  for (auto& t : threads) {
    t.join();
  }
  stream.reset();
  sink.reset();

  static const std::regex layout(R"(^\[[-\d: .]{23}\] \[w\] \[info\] (\d) (\d+) (x*)$)");
  std::vector<int> seen(writers * lines_per_writer);
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    for (const auto& line : test::lines_of(test::read_file(entry.path()))) {
      std::smatch m;
      ASSERT_TRUE(std::regex_match(line, m, layout)) << "torn line in " << entry.path() << ": " << line;
      const int i = std::stoi(m[2]);
      ASSERT_EQ(m[3].length(), i % 50) << line;
      ++seen[static_cast<std::size_t>(std::stoi(m[1]) * lines_per_writer + i)];
    }
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), writers * lines_per_writer);
}

}  // namespace
}  // namespace norvane
