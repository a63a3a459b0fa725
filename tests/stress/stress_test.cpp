// Eight threads run a fixed, deterministic mix of the library's thread-safe
// operations at once: logging through the threaded sinks, registry churn,
// UUIDs, the first use of the host descriptions and of the library logger,
// and YAML handles on one shared tree. Under ThreadSanitizer this is where
// a missing lock or a non-atomic share count shows; in every build the
// results must come out whole afterwards.
#include "support/test_support.hpp"

#include <norvane/hash.hpp>
#include <norvane/log.hpp>
#include <norvane/system_info.hpp>
#include <norvane/yaml.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <latch>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace norvane {
namespace {

constexpr int thread_count = 8;
// About 1500 operations per thread keeps the run at a few seconds under
// ThreadSanitizer on two loaded cores while every operation kind still
// runs a couple of hundred times on every thread.
constexpr int steps_per_thread = 1500;
constexpr int yaml_items = 16;

// Payloads differ in length and letter per thread and step, so a line cut
// short or spliced with another thread's line no longer matches its key.
std::string payload(int thread, int step) {
  return std::string(static_cast<std::size_t>(8 + (step * 31 + thread * 7) % 90),
                     static_cast<char>('a' + thread));
}

std::string key_of(std::string_view stream, int thread, int step) {
  return std::string(stream) + " " + std::to_string(thread) + " " + std::to_string(step);
}

// One line in spdlog's default layout, "[YYYY-MM-DD hh:mm:ss.mmm] [name]
// [info] t<thread> s<step> <payload>", split into its key; nothing when the
// line is not exactly that shape.
std::optional<std::string> parse_line(const std::string& line) {
  static constexpr std::string_view stamp = "[dddd-dd-dd dd:dd:dd.ddd] [";
  if (line.size() < stamp.size()) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < stamp.size(); ++i) {
    const bool digit = std::isdigit(static_cast<unsigned char>(line[i])) != 0;
    if (stamp[i] == 'd' ? !digit : line[i] != stamp[i]) {
      return std::nullopt;
    }
  }
  const std::size_t name_end = line.find("] [info] t", stamp.size());
  if (name_end == std::string::npos) {
    return std::nullopt;
  }
  const std::string name = line.substr(stamp.size(), name_end - stamp.size());
  std::istringstream rest(line.substr(name_end + 10));
  int thread = -1;
  int step = -1;
  char s = 0;
  std::string text;
  if (!(rest >> thread >> s >> step) || s != 's' || rest.get() != ' ' || !std::getline(rest, text) ||
      thread < 0 || thread >= thread_count || text != payload(thread, step)) {
    return std::nullopt;
  }
  return key_of(name, thread, step);
}

// Every expected line exactly once and whole, nothing else.
void expect_lines(const std::string& where, const std::string& text,
                  const std::vector<std::string>& expected) {
  std::unordered_map<std::string, int> pending;
  for (const auto& key : expected) {
    ++pending[key];
  }
  std::istringstream in(text);
  int bad = 0;
  for (std::string line; std::getline(in, line);) {
    const auto key = parse_line(line);
    auto it = key ? pending.find(*key) : pending.end();
    if (it == pending.end() || it->second == 0) {
      if (++bad <= 5) {
        ADD_FAILURE() << where << ": torn, duplicated or unexpected line: " << line;
      }
      continue;
    }
    --it->second;
  }
  EXPECT_EQ(bad, 0) << where;
  int lost = 0;
  for (const auto& [key, count] : pending) {
    if (count != 0 && ++lost <= 5) {
      ADD_FAILURE() << where << ": lost line " << key;
    }
  }
  EXPECT_EQ(lost, 0) << where;
}

enum destination { file_a, file_b, file_c, console, destination_count };

// What one thread did and saw, examined after the join.
struct thread_record {
  std::array<std::vector<std::string>, destination_count> lines;
  std::vector<uuid> uuids;
  std::vector<std::string> problems;
  const std::string* cpu_model = nullptr;
  std::size_t cpu_count = 0;
  std::string os_type;
  double ram_MiB = 0;
  std::shared_ptr<log_stream> library_logger;
};

// Handles on one tree handed from thread to thread, so that shares are
// taken on one thread and given up on another.
struct mailbox {
  std::mutex lock;
  std::vector<yaml::ryml_wrapper> handles;
};

std::string yaml_document() {
  std::string text = "name: stress\nitems:\n";
  for (int k = 0; k < yaml_items; ++k) {
    text += "  - {name: item" + std::to_string(k) + ", weight: " + std::to_string(k * 3) +
            ", ratio: " + std::to_string(k) + ".5, on: " + (k % 2 == 0 ? "true" : "false") + "}\n";
  }
  return text;
}

// Reads one item through a handle that must address it, in whichever tree.
void check_item(const yaml::ryml_wrapper& item, int k, const char* how, std::vector<std::string>& problems) {
  const bool ok = item.is_object() && item["name"].as<std::string>() == "item" + std::to_string(k) &&
                  item["weight"].as<long long>() == k * 3 && item["ratio"].as<double>() == k + 0.5 &&
                  item["on"].as<bool>() == (k % 2 == 0);
  if (!ok) {
    problems.push_back(std::string("yaml item ") + std::to_string(k) + " read wrong through " + how);
  }
}

TEST(Stress, EightThreadsMixingLoggingRegistryUuidsHostInfoAndYamlLoseNothing) {
  test::temp_dir dir;
  std::optional<test::stdout_capture> captured(std::in_place);

  // Sinks shared by every thread: a file for the threads' own streams and
  // one stream that all threads share, a fan-out into two more files, and
  // the two console sinks, which share the console mutex.
  auto sink_a = std::make_shared<log_sink_file_threaded>(dir / "a.log", true);
  auto sink_b = std::make_shared<log_sink_file_threaded>(dir / "b.log", true);
  auto sink_c = std::make_shared<log_sink_file_threaded>(dir / "c.log", true);
  auto fan = std::make_shared<log_sink_distribution_threaded>();
  std::vector<std::shared_ptr<log_sink>> fan_targets{sink_b, sink_c};
  fan->set_sinks(fan_targets);
  auto console_plain = std::make_shared<log_sink_stdout_threaded>();
  auto console_colour = std::make_shared<log_sink_stdout_colour_threaded>();
  auto quiet = std::make_shared<log_sink_null_threaded>();

  auto everyone = std::make_shared<log_stream>("shared", sink_a);
  everyone->set_level(log_level::info);

  std::vector<std::string> yaml_errors;
  const yaml::ryml_wrapper doc = yaml::read_yaml(yaml_document(), yaml_errors);
  ASSERT_TRUE(doc.is_valid()) << (yaml_errors.empty() ? "" : yaml_errors.back());
  const long doc_shares = doc.use_count();
  // A second tree whose root is dropped while the threads still hold
  // shares: whichever thread gives up the last one frees it.
  std::optional<yaml::ryml_wrapper> doomed(yaml::read_yaml(yaml_document(), yaml_errors));
  std::vector<std::vector<yaml::ryml_wrapper>> doomed_shares(thread_count);
  for (int t = 0; t < thread_count; ++t) {
    for (int k = t; k < yaml_items; k += thread_count) {
      doomed_shares[static_cast<std::size_t>(t)].push_back(std::as_const(*doomed)["items"][k]);
    }
  }

  std::array<mailbox, thread_count> mailboxes;
  std::vector<thread_record> records(thread_count);
  std::latch start(thread_count + 1);

  auto worker = [&](int t) {
    thread_record& me = records[static_cast<std::size_t>(t)];
    const std::string prefix = "t" + std::to_string(t);
    auto own = register_logger(std::make_shared<log_stream>(prefix + ".file", sink_a));
    auto fanned = std::make_shared<log_stream>(prefix + ".fan", fan);
    auto out =
        std::make_shared<log_stream>(prefix + ".out", t % 2 == 0 ? std::shared_ptr<log_sink>(console_plain)
                                                                 : std::shared_ptr<log_sink>(console_colour));
    for (auto* s : {&own, &fanned, &out}) {
      (*s)->set_level(log_level::info);
    }
    std::vector<yaml::ryml_wrapper> doomed_mine = std::move(doomed_shares[static_cast<std::size_t>(t)]);

    start.arrive_and_wait();
    // First use of the host descriptions and of the library logger, raced
    // by all threads at once; half ask in the other order.
    if (t % 2 == 0) {
      me.library_logger = get_norvane_logger();
      const auto cpus = system_info::all_cpus();
      me.cpu_model = &cpus.front().model_name();
      me.cpu_count = cpus.size();
      me.os_type = system_info::os().type();
      me.ram_MiB = system_info::ram().total_MiB();
    } else {
      me.ram_MiB = system_info::ram().total_MiB();
      me.os_type = system_info::os().type();
      const auto cpus = system_info::all_cpus();
      me.cpu_model = &cpus.front().model_name();
      me.cpu_count = cpus.size();
      me.library_logger = get_norvane_logger();
    }

    auto log_to = [&](const std::shared_ptr<log_stream>& stream, std::initializer_list<destination> where,
                      int i) {
      stream->log(log_level::info, "t{} s{} {}", t, i, payload(t, i));
      stream->log(log_level::debug, "t{} s{} below the threshold", t, i);
      for (destination d : where) {
        me.lines[d].push_back(key_of(stream->name(), t, i));
      }
    };

    for (int i = 0; i < steps_per_thread; ++i) {
      switch ((i + t * 3) % 8) {
        case 0:
          log_to(own, {file_a}, i);
          break;
        case 1:
          log_to(everyone, {file_a}, i);
          break;
        case 2:
          if (i % 64 == 2) {
            // Replacing the fan-out's list with the same one, under logging.
            fan->set_sinks(fan_targets);
          }
          log_to(fanned, {file_b, file_c}, i);
          break;
        case 3:
          log_to(out, {console}, i);
          break;
        case 4: {
          // A name only this thread uses: lookups must find exactly what
          // it registered, and nothing once it is gone.
          const std::string name = prefix + ".reg" + std::to_string(i % 5);
          auto mine = std::make_shared<log_stream>(name, sink_a);
          mine->set_level(log_level::info);
          if (register_logger(mine) != mine || get_logger(name) != mine) {
            me.problems.push_back("lookup of " + name + " did not find the stream just registered");
          }
          log_to(get_logger(name), {file_a}, i);
          unregister_logger(name);
          auto made = get_logger(name);
          if (made == mine || made->name() != name || made->level() != log_level::off) {
            me.problems.push_back("after unregistering " + name +
                                  " a lookup did not make a fresh default logger");
          }
          unregister_logger(name);
          break;
        }
        case 5: {
          // Names every thread registers, looks up and removes at once.
          const std::string name = "common" + std::to_string(i % 3);
          auto mine = std::make_shared<log_stream>(name, quiet);
          mine->set_level(log_level::info);
          if (register_logger(mine) != mine) {
            me.problems.push_back("registering " + name + " returned another stream");
          }
          auto found = get_logger(name);
          if (!found || found->name() != name) {
            me.problems.push_back("lookup of " + name + " returned a stream of another name");
          } else {
            found->log(log_level::warning, "t{} s{} into the null sink", t, i);
          }
          if (i % 3 == t % 3) {
            unregister_logger(name);
          }
          if (get_logger("norvane") != me.library_logger) {
            me.problems.push_back("the registry lost the library logger");
          }
          break;
        }
        case 6:
          // Each thread's engine walks the one 2^31-state cycle of
          // minstd_rand from its own seed; the ~3000 identifiers here repeat
          // only when two walks overlap, about once in 10^4 runs.
          for (int n = 0; n < 2; ++n) {
            me.uuids.emplace_back();
          }
          break;
        case 7: {
          const int k = (i / 8 + t) % yaml_items;
          const yaml::ryml_wrapper items = doc["items"];  // a share of the tree
          const yaml::ryml_wrapper item = items[static_cast<std::size_t>(k)];
          check_item(item, k, "a share", me.problems);
          const yaml::ryml_wrapper copy(item);  // a deep copy, read concurrently
          check_item(copy, k, "a copy", me.problems);
          yaml::ryml_wrapper assigned;
          assigned = items;
          if (assigned.size() != static_cast<std::size_t>(yaml_items)) {
            me.problems.push_back("copy-assigned sequence has the wrong size");
          }
          check_item(assigned[k], k, "a copy-assigned handle", me.problems);
          {
            mailbox& next = mailboxes[static_cast<std::size_t>((t + 1) % thread_count)];
            std::lock_guard<std::mutex> guard(next.lock);
            next.handles.push_back(item);  // a share given up on another thread
            next.handles.push_back(doc["name"]);
          }
          std::vector<yaml::ryml_wrapper> received;
          {
            mailbox& mine = mailboxes[static_cast<std::size_t>(t)];
            std::lock_guard<std::mutex> guard(mine.lock);
            received.swap(mine.handles);
          }
          received.clear();
          if (i >= steps_per_thread / 2 && !doomed_mine.empty()) {
            const int d = t + thread_count * static_cast<int>(doomed_mine.size() - 1);
            check_item(doomed_mine.back(), d, "a share of a tree whose root is gone", me.problems);
            doomed_mine.pop_back();
          }
          break;
        }
        default:
          break;
      }
    }
  };

  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t) {
    threads.emplace_back(worker, t);
  }
  start.arrive_and_wait();
  doomed.reset();
  for (auto& th : threads) {
    th.join();
  }
  for (auto& box : mailboxes) {
    box.handles.clear();
  }

  // The tree's share count is back where it started.
  EXPECT_EQ(doc.use_count(), doc_shares);

  std::vector<std::string> problems;
  std::unordered_set<std::string> ids;
  std::size_t uuid_total = 0;
  for (const auto& r : records) {
    problems.insert(problems.end(), r.problems.begin(), r.problems.end());
    for (const auto& id : r.uuids) {
      ids.insert(to_string(id));
    }
    uuid_total += r.uuids.size();
    EXPECT_EQ(r.cpu_model, records[0].cpu_model);
    EXPECT_EQ(r.cpu_count, records[0].cpu_count);
    EXPECT_EQ(r.os_type, records[0].os_type);
    EXPECT_EQ(r.ram_MiB, records[0].ram_MiB);
    EXPECT_EQ(r.library_logger, records[0].library_logger);
  }
  EXPECT_TRUE(problems.empty()) << problems.size() << " problems, the first: " << problems.front();
  EXPECT_EQ(ids.size(), uuid_total) << "UUIDs repeated across threads";
  EXPECT_GE(uuid_total, static_cast<std::size_t>(thread_count * steps_per_thread / 8));
  ASSERT_NE(records[0].library_logger, nullptr);
  EXPECT_EQ(get_logger("norvane"), records[0].library_logger);
  EXPECT_EQ(&system_info::all_cpus().front().model_name(), records[0].cpu_model);
  EXPECT_GT(records[0].ram_MiB, 0.0);

  // Let go of every stream and sink so that the files are flushed and closed.
  for (int t = 0; t < thread_count; ++t) {
    unregister_logger("t" + std::to_string(t) + ".file");
  }
  for (int n = 0; n < 3; ++n) {
    unregister_logger("common" + std::to_string(n));
  }
  everyone.reset();
  sink_a.reset();
  sink_b.reset();
  sink_c.reset();
  fan.reset();
  fan_targets.clear();
  const std::string console_text = captured->text();
  captured.reset();
  console_plain.reset();
  console_colour.reset();

  std::array<std::vector<std::string>, destination_count> expected;
  for (const auto& r : records) {
    for (int d = 0; d < destination_count; ++d) {
      expected[d].insert(expected[d].end(), r.lines[d].begin(), r.lines[d].end());
    }
  }
  expect_lines("a.log", test::read_file(dir / "a.log"), expected[file_a]);
  expect_lines("b.log", test::read_file(dir / "b.log"), expected[file_b]);
  expect_lines("c.log", test::read_file(dir / "c.log"), expected[file_c]);
  expect_lines("standard output", console_text, expected[console]);
  EXPECT_EQ(expected[file_b], expected[file_c]);
}

}  // namespace
}  // namespace norvane
