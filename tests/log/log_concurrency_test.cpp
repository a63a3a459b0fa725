// Many threads on one rotating thread-safe sink, fetching their stream by
// name for every line, while other threads churn the registry and the main
// thread moves the file away and reopens as logrotate would: afterwards
// every line must be in the files exactly once, whole.
#include "log/log_test_util.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace norvane {
namespace {

TEST(LogConcurrency, RotationAndRegistryChurnLoseSplitAndRepeatNoLine) {
  constexpr int writers = 4, lines_per_writer = 2000;
  const auto filler = [](int w, int i) { return std::string(i % 50, static_cast<char>('a' + w)); };
  test::temp_dir dir;
  auto sink = std::make_shared<log_sink_rotating_file_threaded>(dir / "app.log", 4096, 100000);
  for (int w = 0; w < writers; ++w) {
    register_logger(std::make_shared<log_stream>("w" + std::to_string(w), sink))->set_level(log_level::info);
  }
  std::atomic<int> finished{0};
  {
    std::vector<std::jthread> threads;
    for (int c = 0; c < 3; ++c) {
      threads.emplace_back([&, c] {
        for (int round = 0; finished.load() < writers; ++round) {
          const std::string name = "churn" + std::to_string(c) + "." + std::to_string(round % 16);
          register_logger(std::make_shared<log_stream>(name, std::make_shared<log_sink_null_threaded>()));
          get_logger(name)->log(log_level::critical, "dropped");
          unregister_logger(name);
        }
      });
    }
    for (int w = 0; w < writers; ++w) {
      threads.emplace_back([&, w] {
        for (int i = 0; i < lines_per_writer; ++i) {
          get_logger("w" + std::to_string(w))->log(log_level::info, "{} {} {}", w, i, filler(w, i));
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
  }
  for (int w = 0; w < writers; ++w) unregister_logger("w" + std::to_string(w));
  sink.reset();  // the last owner closes the file
  static const std::regex layout(R"(^\[w(\d)\] \[info\] (\d) (\d+) ([a-z]*)$)");
  std::vector<int> seen(writers * lines_per_writer);
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    for (const auto& line : test::lines_of(test::unstamped(test::read_file(entry.path())))) {
      std::smatch m;
      ASSERT_TRUE(std::regex_match(line, m, layout)) << "torn line in " << entry.path() << ": " << line;
      const int w = std::stoi(m[1]), i = std::stoi(m[3]);
      EXPECT_TRUE(w == std::stoi(m[2]) && m[4].str() == filler(w, i)) << line;
      ++seen.at(static_cast<std::size_t>(w * lines_per_writer + i));
    }
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), writers * lines_per_writer);
}

}  // namespace
}  // namespace norvane
