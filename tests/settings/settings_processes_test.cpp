// Processes sharing one settings file: concurrent syncs, syncs killed at
// random, and a lock held by someone else.
#include "settings/scoped_env.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/application.hpp>
#include <norvane/io.hpp>
#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class SettingsProcesses : public ::testing::Test {
protected:
  SettingsProcesses() : config_env_("XDG_CONFIG_HOME", (home_ / "config").c_str()) {
    char* argv[] = {program_.data(), nullptr};
    app_ = std::make_unique<application_core>(1, argv);
    app_->set_organization_name("studio");
    app_->set_application_name("tool");
    fs::create_directories(config_dir());
  }

  fs::path config_dir() const { return home_ / "config" / "studio.tool"; }

  // A child that takes the lock at `path`, says so, and holds it for `hold`.
  static pid_t hold_lock(const fs::path& path, std::chrono::milliseconds hold) {
    int ready[2];
    if (::pipe(ready) != 0) {
      return -1;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
      lock_file lock(path);
      const char c = lock.try_lock() ? 'y' : 'n';
      static_cast<void>(::write(ready[1], &c, 1));
      ::usleep(static_cast<useconds_t>(hold.count() * 1000));
      ::_exit(0);
    }
    char c = 0;
    const bool held = pid > 0 && ::read(ready[0], &c, 1) == 1 && c == 'y';
    ::close(ready[0]);
    ::close(ready[1]);
    return held ? pid : -1;
  }

  test::temp_dir home_;
  test::scoped_env config_env_;
  std::string program_ = "/proc/self/exe";
  std::unique_ptr<application_core> app_;
};

TEST_F(SettingsProcesses, FourProcessesOfAHundredSyncsKeepEveryKey) {
  constexpr int processes = 4;
  constexpr int syncs = 100;
  std::vector<pid_t> children;
  for (int p = 0; p < processes; ++p) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      // A store of its own for each sync, as separate runs of a tool make:
      // a key lost by an overlap is then lost for good.
      bool failed = false;
      for (int i = 0; i < syncs; ++i) {
        settings store("shared.json");
        store.set("p" + std::to_string(p) + "_" + std::to_string(i), std::to_string(i));
        store.sync();
        failed = failed || store.modified();
      }
      ::_exit(failed ? 1 : 0);
    }
    children.push_back(pid);
  }
  for (const pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  const settings result("shared.json");
  EXPECT_EQ(result.keys().size(), static_cast<std::size_t>(processes * syncs));
  for (int p = 0; p < processes; ++p) {
    for (int i = 0; i < syncs; ++i) {
      EXPECT_EQ(result.get("p" + std::to_string(p) + "_" + std::to_string(i)), std::to_string(i));
    }
  }
}

TEST_F(SettingsProcesses, SyncsKilledAtRandomLeaveAWholeFileAndNoLockBehind) {
  const auto file = config_dir() / "killed.json";
  {
    settings store("killed.json");
    store.set("start", "0");
    store.sync();
  }
  std::mt19937 random(14);
  for (int round = 0; round < 300; ++round) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      settings store("killed.json");
      for (int i = 0;; ++i) {
        store.dictionary()["k" + std::to_string(i % 40)] =
            std::string(static_cast<std::size_t>(i * 97 % 5000), 'v');
        store.set_modified();
        store.sync();
      }
    }
    ::usleep(std::uniform_int_distribution<useconds_t>(0, 4000)(random));
    ::kill(pid, SIGKILL);
    ASSERT_EQ(::waitpid(pid, nullptr, 0), pid);
    const auto on_disk = nlohmann::json::parse(test::read_file(file), nullptr, false);
    ASSERT_TRUE(on_disk.is_object()) << "round " << round << ": " << test::read_file(file).size() << " bytes";
    ASSERT_EQ(on_disk.value("start", -1), 0) << "round " << round;
  }
  // The last child may have died holding the lock: it went with it.
  test::log_capture log;
  settings store("killed.json");
  store.set("after", "1");
  const auto start = std::chrono::steady_clock::now();
  store.sync();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  EXPECT_FALSE(store.modified());
  EXPECT_TRUE(log.entries().empty());
}

TEST_F(SettingsProcesses, ALockHeldElsewhereDelaysSyncAndPastTheBoundFailsIt) {
  const auto lock_path = config_dir() / "held.json.lock";
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  struct hold_case {
    std::chrono::milliseconds hold;
    bool written;
  };
  for (const auto& c : {hold_case{300ms, true}, hold_case{12s, false}}) {
    SCOPED_TRACE(c.hold.count());
    settings store("held.json");
    store.set("a", "1");
    const pid_t holder = hold_lock(lock_path, c.hold);
    ASSERT_GT(holder, 0);
    test::log_capture log;
    const auto start = std::chrono::steady_clock::now();
    store.sync();
    const auto waited = std::chrono::steady_clock::now() - start;
    ::kill(holder, SIGKILL);
    ASSERT_EQ(::waitpid(holder, nullptr, 0), holder);
    EXPECT_EQ(store.modified(), !c.written);
    EXPECT_EQ(fs::exists(config_dir() / "held.json"), c.written);
    if (c.written) {
      EXPECT_GE(waited, 250ms);
      EXPECT_TRUE(log.entries().empty());
    } else {
      EXPECT_GE(waited, 10s);
      EXPECT_EQ(
          log.entries(),
          (std::vector<test::log_entry>{{"error", "Impossible to lock the settings file: \"" +
                                                      lock_path.string() + "\" is held by process " +
                                                      std::to_string(holder) + " (tool on " + host + ")."}}));
    }
    fs::remove(config_dir() / "held.json");
    store.sync();
    EXPECT_FALSE(store.modified());
    fs::remove(config_dir() / "held.json");
  }
}

}  // namespace
}  // namespace norvane
