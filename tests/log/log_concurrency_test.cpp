// Many threads on one thread-safe sink: afterwards every line must be in
// the files exactly once, whole.
#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <regex>
#include <thread>
#include <vector>

namespace norvane {
namespace {

constexpr int writers = 4, lines_per_writer = 2000;

// Line "<w> <i> <w*40 filler>" of each writer, counted over every file in `dir`.
std::vector<int> count_lines(const std::filesystem::path& dir) {
  static const std::regex layout(R"(^\[[-\d: .]{23}\] \[w(\d)\] \[info\] (\d) (\d+) ([a-z]*)$)");
  std::vector<int> seen(writers * lines_per_writer);
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    for (const auto& line : test::lines_of(test::read_file(entry.path()))) {
      std::smatch m;
      if (!std::regex_match(line, m, layout)) {
        ADD_FAILURE() << "torn line in " << entry.path() << ": " << line;
        continue;
      }
      const int w = std::stoi(m[1]), i = std::stoi(m[3]);
      EXPECT_TRUE(w == std::stoi(m[2]) && m[4].str() == std::string(i % 50, static_cast<char>('a' + w)));
      ++seen.at(static_cast<std::size_t>(w * lines_per_writer + i));
    }
  }
  return seen;
}

void write_lines(log_stream& stream, int w) {
  for (int i = 0; i < lines_per_writer; ++i) {
    stream.log(log_level::info, "{} {} {}", w, i, std::string(i % 50, static_cast<char>('a' + w)));
  }
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
        for (int i = 0; i < lines_per_writer; ++i) {
          get_logger("w" + std::to_string(w))
              ->log(log_level::info, "{} {} {}", w, i, std::string(i % 50, static_cast<char>('a' + w)));
        }
      });
    }
  }
  done = true;
  churners.clear();
  for (int w = 0; w < writers; ++w) {
    unregister_logger("w" + std::to_string(w));
  }
  sink.reset();  // the last owner closes the file
  const auto seen = count_lines(dir.path());
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), writers * lines_per_writer);
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
      threads.emplace_back([&, w, stream = streams.back().get()] { write_lines(*stream, w), ++finished; });
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
  const auto seen = count_lines(dir.path());
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), writers * lines_per_writer);
}

}  // namespace
}  // namespace norvane
