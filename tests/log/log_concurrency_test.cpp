// Many threads on one thread-safe sink: afterwards every line must be in
// the files exactly once, whole.
#include "log/log_test_util.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace norvane {
namespace {

constexpr int writers = 4, lines_per_writer = 2000;

// Writer w's line i is "<w> <i> <i % 50 copies of letter w>".
void write_line(log_stream& stream, int w, int i) {
  stream.log(log_level::info, "{} {} {}", w, i, std::string(i % 50, static_cast<char>('a' + w)));
}

// Expects every writer's line once, whole, over all files in `dir`.
void expect_each_line_once(const std::filesystem::path& dir) {
  static const std::regex layout(R"(^\[[-\d: .]{23}\] \[w(\d)\] \[info\] (\d) (\d+) ([a-z]*)$)");
  std::vector<int> seen(writers * lines_per_writer);
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    for (const auto& line : test::lines_of(test::read_file(entry.path()))) {
      std::smatch m;
      ASSERT_TRUE(std::regex_match(line, m, layout)) << "torn line in " << entry.path() << ": " << line;
      const int w = std::stoi(m[1]), i = std::stoi(m[3]);
      EXPECT_TRUE(w == std::stoi(m[2]) && m[4].str() == std::string(i % 50, static_cast<char>('a' + w)));
      ++seen.at(static_cast<std::size_t>(w * lines_per_writer + i));
    }
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), writers * lines_per_writer);
}

// The writers fetch their stream by name for every line while other threads churn the registry.
TEST(LogConcurrency, ThreadedFileSinkLosesAndTearsNothingWhileTheRegistryChurns) {
  test::temp_dir dir;
  auto sink = std::make_shared<log_sink_file_threaded>(dir / "threads.log", true);
  for (int w = 0; w < writers; ++w) {
    register_logger(std::make_shared<log_stream>("w" + std::to_string(w), sink))->set_level(log_level::info);
  }
  std::atomic<bool> done{false};
  std::vector<std::jthread> churners;
  for (int c = 0; c < 3; ++c) {
    churners.emplace_back([&, c] {
      for (int round = 0; !done.load(); ++round) {
        const std::string name = "churn" + std::to_string(c) + "." + std::to_string(round % 16);
        register_logger(std::make_shared<log_stream>(name, std::make_shared<log_sink_null_threaded>()));
        get_logger(name)->log(log_level::critical, "dropped");
        unregister_logger(name);
      }
    });
  }
  {
    std::vector<std::jthread> threads;
    for (int w = 0; w < writers; ++w) {
      threads.emplace_back([w] {
        for (int i = 0; i < lines_per_writer; ++i) write_line(*get_logger("w" + std::to_string(w)), w, i);
      });
    }
  }
  done = true;
  churners.clear();
  for (int w = 0; w < writers; ++w) unregister_logger("w" + std::to_string(w));
  sink.reset();  // the last owner closes the file
  expect_each_line_once(dir.path());
}

// A rotating sink with a small limit while another thread moves the file
// away and reopens, as logrotate would.
TEST(LogConcurrency, RotationLosesSplitsAndRepeatsNoLine) {
  test::temp_dir dir;
  auto sink = std::make_shared<log_sink_rotating_file_threaded>(dir / "app.log", 4096, 100000);
  std::vector<std::unique_ptr<log_stream>> streams;
  std::atomic<int> finished{0};
  {
    std::vector<std::jthread> threads;
    for (int w = 0; w < writers; ++w) {
      streams.push_back(std::make_unique<log_stream>("w" + std::to_string(w), sink));
      streams.back()->set_level(log_level::info);
      threads.emplace_back([&, w, stream = streams.back().get()] {
        for (int i = 0; i < lines_per_writer; ++i) write_line(*stream, w, i);
        ++finished;
      });
    }
    for (int moved = 0; finished.load() < writers; ++moved) {
      std::error_code ignored;
      std::filesystem::rename(dir / "app.log", dir / ("outside." + std::to_string(moved)), ignored);
      EXPECT_TRUE(sink->reopen());
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  streams.clear();
  sink.reset();
  expect_each_line_once(dir.path());
}

}  // namespace
}  // namespace norvane
