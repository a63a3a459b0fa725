// lock_file between real processes: exclusion, the holder's record, a lock that dies with its holder.
#include "support/fault_support.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace norvane {
namespace {

using namespace std::chrono_literals;

TEST(LockFile, TwoProcessesRacingNeverBothHoldIt) {
  test::temp_dir dir;  // `holders`, shared by both processes: how many hold the lock right now
  auto* holders = static_cast<std::atomic<int>*>(
      ::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(holders, MAP_FAILED);
  new (holders) std::atomic<int>(0);
  const auto race = [&] {
    int taken = 0, overlaps = 0;
    lock_file lock(dir / "race.lock");
    for (int i = 0; i < 1000; ++i, ::usleep(20)) {  // pausing, or one process could miss every free moment
      if (lock.try_lock()) {
        ++taken;
        overlaps += holders->fetch_add(1) != 0;
        ::usleep(20);
        holders->fetch_sub(1);
        lock.unlock();
      }
    }
    return std::to_string(taken > 0) + " " + std::to_string(overlaps);
  };
  test::child_outcome child;
  std::thread other([&] { child = test::run_in_child(race); });
  EXPECT_EQ(race(), "1 0");
  other.join();
  EXPECT_EQ(child.report, "1 0") << child.describe();
  ::munmap(holders, sizeof(std::atomic<int>));
}

TEST(LockFile, AHolderKilledReleasesItAtOnceAndRefusedCallersSeeWhoHeldIt) {
  test::temp_dir dir;
  const auto path = dir / "app.lock";
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  test::child_outcome held;
  std::thread holder([&] {
    held = test::run_in_child([&]() -> std::string {
      lock_file lock(path);
      const pid_t pid = lock.try_lock() ? ::getpid() : 0;
      static_cast<void>(::write(ready[1], &pid, sizeof pid));
      ::pause();
      return "woke";
    });
  });
  pid_t child = 0;
  static_cast<void>(::read(ready[0], &child, sizeof child));
  test::log_capture log;
  lock_file lock(path);
  EXPECT_FALSE(lock.try_lock());
  EXPECT_EQ(log.text(), "");
  const auto who = lock.holder();  // a refused attempt leaves the record alone
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  EXPECT_EQ(std::pair(who.pid, who.host_name), std::pair(static_cast<long long>(child), std::string(host)));
  EXPECT_FALSE(who.application_name.empty());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock.lock(200ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
  if (child > 0) ::kill(child, SIGKILL);
  holder.join();
  ASSERT_EQ(held.signal, SIGKILL) << held.describe();
  EXPECT_TRUE(lock.try_lock());
  EXPECT_EQ(lock.holder().pid, ::getpid());
  lock.unlock();
  EXPECT_EQ(lock.holder().pid, 0);
  EXPECT_FALSE(lock_file(dir / "none" / "x.lock").try_lock());  // an error, not a refusal
  EXPECT_EQ(log.text(), "[error] Cannot lock \"" + path.string() + "\" within 200 ms: held by process " +
                            std::to_string(child) + " (" + who.application_name + " on " + host +
                            "). | [error] Cannot lock \"" + (dir / "none" / "x.lock").string() +
                            "\": No such file or directory.");
}

}  // namespace
}  // namespace norvane
