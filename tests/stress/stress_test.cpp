// Eight threads at once log through shared threaded sinks, a fan-out and the
// console, churn the registry and race the library logger's first use: under
// TSan a missing lock shows; in every build nothing is lost.
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <latch>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace norvane {
namespace {

constexpr int thread_count = 8, steps = 1500;  // a few seconds under TSan on two cores

// Differs per thread and step: a line cut short or spliced no longer matches.
std::string payload(int t, int i) {
  return std::string(static_cast<std::size_t>(8 + (i * 31 + t * 7) % 90), static_cast<char>('a' + t));
}

// The sorted keys ("stream thread step") of a log's lines; other lines stay whole.
std::vector<std::string> keys_in(const std::string& text) {
  static const std::regex shape(R"(.*\] \[([^\]]+)\] \[info\] t(\d) s(\d+) ([a-z]+))");
  std::vector<std::string> keys;
  std::istringstream in(text);
  std::smatch m;
  for (std::string line; std::getline(in, line);) {
    const bool whole = std::regex_match(line, m, shape) && m[4] == payload(std::stoi(m[2]), std::stoi(m[3]));
    keys.push_back(whole ? m[1].str() + " " + m[2].str() + " " + m[3].str() : "malformed: " + line);
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

std::shared_ptr<log_stream> info_stream(const std::string& name, std::shared_ptr<log_sink> sink) {
  auto stream = std::make_shared<log_stream>(name, std::move(sink));
  stream->set_level(log_level::info);
  return stream;
}

TEST(Stress, EightThreadsLoggingAndChurningTheRegistryLoseNothing) {
  test::temp_dir dir;
  auto console = std::make_unique<test::stdout_capture>();
  const std::array<std::shared_ptr<log_sink>, 2> consoles{
      std::make_shared<log_sink_stdout_threaded>(), std::make_shared<log_sink_stdout_colour_threaded>()};
  std::array<std::shared_ptr<log_sink_file_threaded>, 3> files;
  for (std::size_t f = 0; f < files.size(); ++f)
    files[f] = std::make_shared<log_sink_file_threaded>(dir / (std::to_string(f) + ".log"), true);
  auto fan = std::make_shared<log_sink_distribution_threaded>();
  std::vector<std::shared_ptr<log_sink>> fan_targets{files[1], files[2]};
  fan->set_sinks(fan_targets);
  auto shared_stream = info_stream("shared", files[0]);
  // Per thread: the keys logged to each file, then to the console, and what it saw wrong.
  std::array<std::array<std::vector<std::string>, 5>, thread_count> seen;
  std::latch start(thread_count + 1);
  const auto worker = [&](int t) {
    const std::string prefix = "t" + std::to_string(t);
    auto own = register_logger(info_stream(prefix + ".own", files[0]));
    auto fanned = info_stream(prefix + ".fan", fan);
    auto out = info_stream(prefix + ".out", consoles[t % 2]);
    auto& lines = seen[t];
    const auto log_to = [&](const std::shared_ptr<log_stream>& stream, std::initializer_list<int> into,
                            int i) {
      stream->log(log_level::info, "t{} s{} {}", t, i, payload(t, i));
      stream->log(log_level::debug, "t{} s{} below the threshold", t, i);
      for (const int f : into)
        lines[f].push_back(stream->name() + " " + std::to_string(t) + " " + std::to_string(i));
    };
    start.arrive_and_wait();
    const auto library = get_norvane_logger();  // its first use, raced by every thread
    for (int i = 0; i < steps; ++i) {
      const auto step = (i + t * 3) % 4;
      if (step == 0) log_to(i % 2 == 0 ? own : shared_stream, {0}, i);
      if (step == 1 && i % 64 == 1) fan->set_sinks(fan_targets);  // the fan-out's list replaced under logging
      if (step == 1) log_to(fanned, {1, 2}, i);
      if (step == 3) log_to(out, {3}, i);
      if (step == 2) {
        // A name of this thread's own: found as registered, then a fresh default.
        const std::string name = prefix + ".reg" + std::to_string(i % 5);
        auto stream = info_stream(name, files[0]);
        if (register_logger(stream) != stream || get_logger(name) != stream) lines[4].push_back(name);
        log_to(get_logger(name), {0}, i);
        unregister_logger(name);
        const auto made = get_logger(name);
        if (made == stream || made->level() != log_level::off) lines[4].push_back("no default " + name);
        unregister_logger(name);
        if (get_logger("norvane") != library) lines[4].push_back("the registry lost the library logger");
      }
    }
  };

  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t) threads.emplace_back(worker, t);
  start.arrive_and_wait();
  for (auto& thread : threads) thread.join();
  // Let go of every stream and sink so that the files are flushed and closed.
  for (int t = 0; t < thread_count; ++t) unregister_logger("t" + std::to_string(t) + ".own");
  shared_stream.reset(), fan.reset(), fan_targets.clear(), files = {};
  const auto printed = console->text();
  console.reset();
  for (std::size_t f = 0; f < 5; ++f) {
    std::vector<std::string> expected;
    for (const auto& lines : seen) expected.insert(expected.end(), lines[f].begin(), lines[f].end());
    std::sort(expected.begin(), expected.end());
    const auto log = f == 4 ? "" : f == 3 ? printed : test::read_file(dir / (std::to_string(f) + ".log"));
    EXPECT_EQ(keys_in(log), expected) << "file " << f << " (3: standard output, 4: wrong)";
  }
}

}  // namespace
}  // namespace norvane
