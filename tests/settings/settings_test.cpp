// The settings store of one process, then of several sharing one file.
#include "settings/settings_fixture.hpp"
#include "support/fault_support.hpp"

#include <norvane/io.hpp>
#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <random>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;
using namespace std::chrono_literals;

using Settings = test::settings_fixture;
using SettingsProcesses = test::settings_fixture;

TEST_F(Settings, OnlyAModifiedStoreIsWrittenAsCompactJson) {
  test::log_capture log;
  settings("s.json").dictionary()["x"] = 1;  // not marked modified
  EXPECT_FALSE(fs::exists(config_dir()));
  {
    settings s("s.json");
    s.dictionary()["list"] = {1, 2.5, nullptr};
    s.dictionary()["name"] = "A b";
    s.set_modified();
    s.sync();
    EXPECT_FALSE(s.modified());
    s.dictionary()["name"] = "after the sync, and not marked";
  }
  EXPECT_EQ(test::read_file(file()), R"({"list":[1,2.5,null],"name":"A b"})");
  // An absolute name ignores the configuration directory; a removal alone marks the store.
  const auto elsewhere = (home_ / "abs.json").string();
  settings(elsewhere).set("k", "\"v\"");
  settings absolute(elsewhere);
  EXPECT_EQ(absolute.get("k"), "\"v\"");
  EXPECT_TRUE(absolute.remove("k") && absolute.modified());
  EXPECT_EQ(log.text(), "");
  write_settings("[1,2]");  // a document that is not an object lets the type error through sync
  settings from_array("s.json");
  EXPECT_TRUE(from_array.keys().empty() && from_array.get("0").empty() && !from_array.remove("0"));
  EXPECT_FALSE(from_array.set("a", "1") || from_array.modified());
  EXPECT_EQ(log.text(), "[error] The settings document is not a JSON object.");
  EXPECT_THROW(from_array.sync(), json::type_error);
}

TEST_F(Settings, SyncMergesTopLevelKeysOverTheFileAndKeepsRemovals) {
  write_settings(R"({"a":1,"b":2,"gone":0,"n":{"x":1,"y":2}})");
  settings s("s.json");
  EXPECT_EQ(s.keys(), (std::vector<std::string>{"a", "b", "gone", "n"}));
  EXPECT_TRUE(s.set("b", "3") && s.set("n", R"({"y": [3, "\"q\""]})") && !s.remove("absent") &&
              s.remove("gone"));
  // Someone else adds a key, and writes the removed one again, after we read.
  write_settings(R"({"a":1,"b":2,"c":4,"gone":0,"n":{"x":1,"y":2}})");
  s.sync();
  EXPECT_FALSE(s.modified());
  EXPECT_EQ(test::read_file(file()), R"({"a":1,"b":3,"c":4,"n":{"y":[3,"\"q\""]}})");
  EXPECT_EQ(test::directory_listing(config_dir()), "s.json s.json.lock");  // nothing left beside it
  // Once written, a removal is forgotten; erasing from the dictionary directly is undone by the merge.
  write_settings(R"({"a":1,"gone":5})");
  s.dictionary().erase("a");
  s.sync();
  EXPECT_EQ(std::pair(s.get("gone"), s.get("a")), std::pair(std::string("5"), std::string("1")));
  test::log_capture log;
  EXPECT_FALSE(s.set("b", "six hundred"));
  EXPECT_EQ(std::pair(s.get("b"), s.modified()), std::pair(std::string("3"), false));
  EXPECT_EQ(log.text(), "[error] Invalid JSON value for the settings key \"b\".");
}

// A file that does not parse gives an empty document (not the half-read
// array); the sync that replaces it first keeps its bytes beside it.
TEST_F(Settings, UnparsableFilesAreKeptAsideByTheNextSync) {
  const std::string text = "[1, x";
  write_settings(text);
  test::log_capture log;
  settings s("s.json");
  EXPECT_EQ(s.dictionary(), json::object());
  const auto read_error = log.text();  // the parser's own words follow the prefix
  EXPECT_TRUE(read_error.starts_with("[error] Exception thrown during settings reading: \"[json.exception."));
  s.set("b", "2");
  s.sync();
  EXPECT_EQ(test::read_file(file()), R"({"b":2})");
  const auto listing = test::directory_listing(config_dir());  // s.json.corrupt-YYYYMMDDTHHMMSS.mmmZ
  const auto kept = config_dir() / listing.substr(7, listing.rfind(' ') - 7);
  EXPECT_EQ(kept.filename().string().size(), 6 + 29) << listing;
  EXPECT_EQ(test::read_file(kept), text);
  EXPECT_EQ(log.text(), read_error + " | " + read_error +
                            " | [error] The settings file could not be parsed; its content was kept in \"" +
                            kept.string() + "\".");
}

TEST_F(Settings, WriteFailuresAreLoggedAndKeepTheModifiedMark) {
  test::log_capture log;
  {
    settings s("missing/sub/s.json");  // its own directory is not created; the destructor tries again
    s.set("a", "1");
    s.sync();
    EXPECT_TRUE(s.modified());
  }
  EXPECT_FALSE(details::settings_write_config("/proc/version", std::make_unique<json>(json{{"a", 1}}).get()));
  write_settings(R"({"a":1})");  // a document that cannot be serialised leaves the file alone
  {
    settings s("s.json");
    s.dictionary()["bad"] = std::string("\xff");
    s.set_modified();
    s.sync();
    EXPECT_TRUE(s.modified());
    s.dictionary().erase("bad");
  }
  EXPECT_EQ(test::read_file(file()), R"({"a":1})");
  // No directory below a configuration home that is a file; once there is, the mark gets it written.
  fs::remove_all(config_home());
  test::write_file(config_home(), "");
  settings s("s.json");
  s.set("a", "2");
  s.sync();
  EXPECT_TRUE(s.modified());
  const auto logged = log.text();
  EXPECT_EQ(
      logged.substr(0, logged.find("[json.exception")),
      "[error] Impossible to create the settings file. | [error] Impossible to create the settings file. | "
      "[error] Impossible to write in the settings file. | [error] Exception thrown during settings "
      "writing: \"");
  EXPECT_TRUE(logged.ends_with("\". | [error] Impossible to create the directory used for the settings.\n"));
  fs::remove(config_home());
  s.sync();
  EXPECT_FALSE(s.modified());
  EXPECT_EQ(test::read_file(file()), R"({"a":2})");
}

TEST_F(SettingsProcesses, FourProcessesOfAHundredSyncsKeepEveryKey) {
  std::vector<std::future<test::child_outcome>> children;
  for (int p = 0; p < 4; ++p) {
    children.push_back(std::async(std::launch::async, [p] {
      return test::run_in_child([p] {
        for (int i = 0; i < 100; ++i) {  // a store of its own for each sync, as separate runs make
          settings store("shared.json");
          store.set("p" + std::to_string(p) + "_" + std::to_string(i), std::to_string(i));
          store.sync();
          if (store.modified()) return "sync " + std::to_string(i) + " failed";
        }
        return std::string();
      });
    }));
  }
  for (auto& child : children) {
    const auto outcome = child.get();
    EXPECT_TRUE(outcome.exited_cleanly() && outcome.report.empty()) << outcome.describe();
  }
  const settings result("shared.json");
  EXPECT_EQ(result.keys().size(), 400u);
  for (int i = 0; i < 400; ++i)
    EXPECT_EQ(result.get("p" + std::to_string(i % 4) + "_" + std::to_string(i / 4)), std::to_string(i / 4));
}

TEST_F(SettingsProcesses, SyncsKilledAtRandomLeaveAWholeFileAndNoLockBehind) {
  settings("s.json").set("start", "0");
  std::mt19937 random(14);
  for (int round = 0; round < 200; ++round) {
    const auto delay = std::uniform_int_distribution<suseconds_t>(1, 4000)(random);
    const auto outcome = test::run_in_child([delay] {
      settings store("s.json");
      const itimerval timer{{0, 0}, {0, delay}};  // its signal ends the process wherever the sync is
      ::setitimer(ITIMER_REAL, &timer, nullptr);
      for (int i = 0;; ++i) {
        store.dictionary()["k" + std::to_string(i % 40)] = std::string(std::size_t(i * 97 % 5000), 'v');
        store.set_modified();
        store.sync();
      }
      return std::string();
    });
    ASSERT_EQ(outcome.signal, SIGALRM) << outcome.describe();
    const auto on_disk = json::parse(test::read_file(file()), nullptr, false);
    ASSERT_TRUE(on_disk.is_object() && on_disk.value("start", -1) == 0) << "round " << round;
  }
  test::log_capture log;  // the last child may have died holding the lock: it went with it
  settings store("s.json");
  store.set("after", "1");
  store.sync();
  EXPECT_FALSE(store.modified());
  EXPECT_EQ(log.text(), "");
}

TEST_F(SettingsProcesses, ALockHeldPastTheBoundFailsTheSyncAndNamesTheHolder) {
  const auto lock_path = file().string() + ".lock";
  char host[256] = {}, pid[32] = {};
  ::gethostname(host, sizeof host - 1);
  fs::create_directories(config_dir());
  settings store("s.json");
  store.set("a", "1");
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  auto holder = std::async(std::launch::async, [&] {
    return test::run_in_child([&] {
      lock_file lock(lock_path);
      const auto mine = lock.try_lock() ? std::to_string(::getpid()) : "none";
      static_cast<void>(::write(ready[1], mine.c_str(), mine.size()));
      std::this_thread::sleep_for(11s);
      return std::string();
    });
  });
  ASSERT_GT(::read(ready[0], pid, sizeof pid - 1), 0);
  test::log_capture log;
  store.sync();
  EXPECT_TRUE(holder.get().exited_cleanly());
  EXPECT_TRUE(store.modified() && !fs::exists(file()));
  EXPECT_EQ(log.text(), "[error] Impossible to lock the settings file: \"" + lock_path +
                            "\" is held by process " + pid + " (tool on " + host + ").");
  store.sync();  // the holder is gone
  EXPECT_FALSE(store.modified());
}

}  // namespace
}  // namespace norvane
