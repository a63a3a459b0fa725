// Eight threads run a fixed mix of the library's thread-safe operations at
// once: logging through shared threaded sinks and a fan-out, registry churn,
// the console, the first use of the library logger, and YAML handles on a
// shared tree. Under ThreadSanitizer this is where a missing lock or a
// non-atomic share count shows; in every build the results must come out whole.
#include "support/test_support.hpp"

#include <norvane/log.hpp>
#include <norvane/yaml.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <latch>
#include <mutex>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace norvane {
namespace {

constexpr int thread_count = 8;
// Keeps the run at a few seconds under ThreadSanitizer on two loaded cores
// while every operation still runs a couple of hundred times per thread.
constexpr int steps = 1500;
constexpr int yaml_items = 16;

// Lengths and letters differ per thread and step, so a line cut short or
// spliced with another thread's no longer matches its key.
std::string payload(int t, int i) {
  return std::string(static_cast<std::size_t>(8 + (i * 31 + t * 7) % 90), static_cast<char>('a' + t));
}

// The sorted keys ("stream thread step") of a log's lines; a line of any
// other shape stays whole in the list, so that it shows in the comparison.
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

TEST(Stress, EightThreadsMixingLoggingRegistryAndYamlLoseNothing) {
  test::temp_dir dir;
  std::optional<test::stdout_capture> console(std::in_place);
  // The two console sinks share one console mutex.
  const std::array<std::shared_ptr<log_sink>, 2> consoles{
      std::make_shared<log_sink_stdout_threaded>(), std::make_shared<log_sink_stdout_colour_threaded>()};
  std::array<std::shared_ptr<log_sink_file_threaded>, 3> files;
  for (std::size_t f = 0; f < files.size(); ++f) {
    files[f] = std::make_shared<log_sink_file_threaded>(dir / (std::to_string(f) + ".log"), true);
  }
  auto fan = std::make_shared<log_sink_distribution_threaded>();
  std::vector<std::shared_ptr<log_sink>> fan_targets{files[1], files[2]};
  fan->set_sinks(fan_targets);
  auto shared_stream = info_stream("shared", files[0]);
  std::string text = "items:\n";
  for (int k = 0; k < yaml_items; ++k) {
    text += "  - {name: item" + std::to_string(k) + ", weight: " + std::to_string(k * 3) + "}\n";
  }
  std::vector<std::string> errors;
  const yaml::ryml_wrapper doc = yaml::read_yaml(text, errors);
  ASSERT_TRUE(doc.is_valid());
  const long doc_shares = doc.use_count();
  std::array<std::vector<std::string>, 4> expected;  // per file, then the console
  std::vector<std::string> problems;
  std::mutex results;
  std::latch start(thread_count + 1);

  const auto worker = [&](int t) {
    const std::string prefix = "t" + std::to_string(t);
    auto own = register_logger(info_stream(prefix + ".own", files[0]));
    auto fanned = info_stream(prefix + ".fan", fan);
    auto out = info_stream(prefix + ".out", consoles[static_cast<std::size_t>(t % 2)]);
    std::array<std::vector<std::string>, 4> lines;
    std::vector<std::string> seen_wrong;
    const auto log_to = [&](const std::shared_ptr<log_stream>& stream, std::initializer_list<int> into,
                            int i) {
      stream->log(log_level::info, "t{} s{} {}", t, i, payload(t, i));
      stream->log(log_level::debug, "t{} s{} below the threshold", t, i);
      for (const int f : into) {
        lines[static_cast<std::size_t>(f)].push_back(stream->name() + " " + std::to_string(t) + " " +
                                                     std::to_string(i));
      }
    };
    start.arrive_and_wait();
    const auto library = get_norvane_logger();  // its first use, raced by every thread
    for (int i = 0; i < steps; ++i) {
      const auto step = (i + t * 3) % 5;
      if (step == 0) {
        log_to(i % 2 == 0 ? own : shared_stream, {0}, i);
      } else if (step == 1) {
        if (i % 64 == 1) fan->set_sinks(fan_targets);  // the fan-out's list replaced under logging
        log_to(fanned, {1, 2}, i);
      } else if (step == 2) {
        // A name only this thread uses: lookups find exactly what it
        // registered, and a fresh default once it is gone.
        const std::string name = prefix + ".reg" + std::to_string(i % 5);
        auto stream = info_stream(name, files[0]);
        if (register_logger(stream) != stream || get_logger(name) != stream) {
          seen_wrong.push_back("lookup of " + name + " missed the stream just registered");
        }
        log_to(get_logger(name), {0}, i);
        unregister_logger(name);
        if (const auto made = get_logger(name); made == stream || made->level() != log_level::off) {
          seen_wrong.push_back("after unregistering " + name + " no fresh default logger");
        }
        unregister_logger(name);
        if (get_logger("norvane") != library) seen_wrong.push_back("the registry lost the library logger");
      } else if (step == 3) {
        const int k = (i / 6 + t) % yaml_items;
        const yaml::ryml_wrapper item = doc["items"][static_cast<std::size_t>(k)];  // a share
        const yaml::ryml_wrapper copy(item);                                        // a deep copy
        for (const auto* read : {&item, &copy}) {
          if ((*read)["name"].as<std::string>() != "item" + std::to_string(k) ||
              (*read)["weight"].as<long long>() != k * 3) {
            seen_wrong.push_back("yaml item " + std::to_string(k) + " read wrong");
          }
        }
      } else {
        log_to(out, {3}, i);
      }
    }
    std::lock_guard guard(results);
    for (std::size_t f = 0; f < lines.size(); ++f) {
      expected[f].insert(expected[f].end(), lines[f].begin(), lines[f].end());
    }
    problems.insert(problems.end(), seen_wrong.begin(), seen_wrong.end());
  };

  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t) threads.emplace_back(worker, t);
  start.arrive_and_wait();
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(doc.use_count(), doc_shares);
  EXPECT_TRUE(problems.empty()) << problems.size() << " problems, the first: " << problems.front();

  // Let go of every stream and sink so that the files are flushed and closed.
  for (int t = 0; t < thread_count; ++t) unregister_logger("t" + std::to_string(t) + ".own");
  shared_stream.reset();
  fan.reset();
  fan_targets.clear();
  files = {};
  const auto printed = console->text();
  console.reset();
  for (std::size_t f = 0; f < expected.size(); ++f) {
    std::sort(expected[f].begin(), expected[f].end());
    const auto log = f == 3 ? printed : test::read_file(dir / (std::to_string(f) + ".log"));
    EXPECT_EQ(keys_in(log), expected[f]) << "file " << f << " (3: standard output)";
  }
}

}  // namespace
}  // namespace norvane
