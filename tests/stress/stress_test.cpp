// Eight threads run a fixed mix of the library's thread-safe operations at
// once: logging through shared threaded sinks and a fan-out, registry churn,
// the console, UUIDs, the first use of the library logger, and YAML handles on shared
// trees. Under ThreadSanitizer this is where a missing lock or a non-atomic
// share count shows; in every build the results must come out whole.
#include "support/test_support.hpp"

#include <norvane/hash.hpp>
#include <norvane/log.hpp>
#include <norvane/yaml.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <latch>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
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
  std::vector<std::string> keys;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const auto name = line.find("] [") + 3;
    const auto at = line.find("] [info] t", name);
    std::istringstream rest(at == std::string::npos ? "" : line.substr(at + 10));
    int t = -1;
    int i = -1;
    char s = 0;
    std::string said;
    const bool whole = rest >> t >> s >> i && s == 's' && rest.get() == ' ' && std::getline(rest, said) &&
                       t >= 0 && t < thread_count && said == payload(t, i);
    keys.push_back(whole ? line.substr(name, at - name) + " " + std::to_string(t) + " " + std::to_string(i)
                         : "malformed: " + line);
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

// Reads one item through a handle that must address it, in whichever tree.
bool item_reads(const yaml::ryml_wrapper& item, int k) {
  return item.is_object() && item["name"].as<std::string>() == "item" + std::to_string(k) &&
         item["weight"].as<long long>() == k * 3 && item["on"].as<bool>() == (k % 2 == 0);
}

TEST(Stress, EightThreadsMixingLoggingRegistryUuidsAndYamlLoseNothing) {
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
  auto shared_stream = std::make_shared<log_stream>("shared", files[0]);
  shared_stream->set_level(log_level::info);

  std::string text = "items:\n";
  for (int k = 0; k < yaml_items; ++k) {
    text += "  - {name: item" + std::to_string(k) + ", weight: " + std::to_string(k * 3) +
            ", on: " + (k % 2 == 0 ? "true" : "false") + "}\n";
  }
  std::vector<std::string> errors;
  const yaml::ryml_wrapper doc = yaml::read_yaml(text, errors);
  ASSERT_TRUE(doc.is_valid());
  const long doc_shares = doc.use_count();
  // A second tree whose root goes while the threads still hold shares of
  // it: whichever thread gives up the last one frees it.
  std::optional<yaml::ryml_wrapper> doomed(yaml::read_yaml(text, errors));
  std::vector<std::vector<yaml::ryml_wrapper>> doomed_shares(thread_count);
  for (int k = 0; k < yaml_items; ++k) {
    doomed_shares[static_cast<std::size_t>(k % thread_count)].push_back(std::as_const(*doomed)["items"][k]);
  }

  std::array<std::vector<std::string>, 4> expected;  // per file, then the console
  std::vector<std::string> problems;
  std::vector<uuid> ids;
  std::mutex results;
  std::latch start(thread_count + 1);

  const auto worker = [&](int t) {
    const std::string prefix = "t" + std::to_string(t);
    auto own = register_logger(std::make_shared<log_stream>(prefix + ".own", files[0]));
    auto fanned = std::make_shared<log_stream>(prefix + ".fan", fan);
    own->set_level(log_level::info);
    fanned->set_level(log_level::info);
    auto doomed_mine = std::move(doomed_shares[static_cast<std::size_t>(t)]);
    auto out = std::make_shared<log_stream>(prefix + ".out", consoles[static_cast<std::size_t>(t % 2)]);
    out->set_level(log_level::info);
    std::array<std::vector<std::string>, 4> lines;
    std::vector<std::string> seen_wrong;
    std::vector<uuid> mine;
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
    // The library logger's first use, raced by every thread.
    const auto library = get_norvane_logger();
    for (int i = 0; i < steps; ++i) {
      switch ((i + t * 3) % 6) {
        case 0:
          log_to(i % 2 == 0 ? own : shared_stream, {0}, i);
          break;
        case 1:
          if (i % 64 == 1) {
            fan->set_sinks(fan_targets);  // the fan-out's list replaced under logging
          }
          log_to(fanned, {1, 2}, i);
          break;
        case 2: {
          // A name only this thread uses: lookups find exactly what it
          // registered, and a fresh default once it is gone.
          const std::string name = prefix + ".reg" + std::to_string(i % 5);
          auto stream = std::make_shared<log_stream>(name, files[0]);
          stream->set_level(log_level::info);
          if (register_logger(stream) != stream || get_logger(name) != stream) {
            seen_wrong.push_back("lookup of " + name + " missed the stream just registered");
          }
          log_to(get_logger(name), {0}, i);
          unregister_logger(name);
          if (const auto made = get_logger(name); made == stream || made->level() != log_level::off) {
            seen_wrong.push_back("after unregistering " + name + " no fresh default logger");
          }
          unregister_logger(name);
          if (get_logger("norvane") != library) {
            seen_wrong.push_back("the registry lost the library logger");
          }
          break;
        }
        case 3:
          // Each thread's engine walks the one 2^31-state cycle of
          // minstd_rand from its own seed; the identifiers here repeat only
          // when two walks overlap, about once in 10^4 runs.
          mine.emplace_back();
          mine.push_back(uuid::v7());
          break;
        case 4: {
          const int k = (i / 6 + t) % yaml_items;
          const yaml::ryml_wrapper item = doc["items"][static_cast<std::size_t>(k)];  // a share
          const yaml::ryml_wrapper copy(item);                                        // a deep copy
          if (!item_reads(item, k) || !item_reads(copy, k)) {
            seen_wrong.push_back("yaml item " + std::to_string(k) + " read wrong");
          }
          break;
        }
        default:
          log_to(out, {3}, i);
          if (i >= steps / 2 && !doomed_mine.empty()) {
            const int k = t + thread_count * static_cast<int>(doomed_mine.size() - 1);
            if (!item_reads(doomed_mine.back(), k)) {
              seen_wrong.push_back("a share of a tree whose root is gone read wrong");
            }
            doomed_mine.pop_back();
          }
          break;
      }
    }
    std::lock_guard guard(results);
    for (std::size_t f = 0; f < lines.size(); ++f) {
      expected[f].insert(expected[f].end(), lines[f].begin(), lines[f].end());
    }
    problems.insert(problems.end(), seen_wrong.begin(), seen_wrong.end());
    ids.insert(ids.end(), mine.begin(), mine.end());
  };

  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t) {
    threads.emplace_back(worker, t);
  }
  start.arrive_and_wait();
  doomed.reset();
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(doc.use_count(), doc_shares);
  EXPECT_TRUE(problems.empty()) << problems.size() << " problems, the first: " << problems.front();
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end()) << "a UUID repeated across threads";

  // Let go of every stream and sink so that the files are flushed and closed.
  for (int t = 0; t < thread_count; ++t) {
    unregister_logger("t" + std::to_string(t) + ".own");
  }
  shared_stream.reset();
  fan.reset();
  fan_targets.clear();
  files = {};
  const auto printed = console->text();
  console.reset();
  std::sort(expected[3].begin(), expected[3].end());
  EXPECT_EQ(keys_in(printed), expected[3]) << "standard output";
  for (std::size_t f = 0; f < files.size(); ++f) {
    std::sort(expected[f].begin(), expected[f].end());
    EXPECT_EQ(keys_in(test::read_file(dir / (std::to_string(f) + ".log"))), expected[f]) << "file " << f;
  }
}

}  // namespace
}  // namespace norvane
