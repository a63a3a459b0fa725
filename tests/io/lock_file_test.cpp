// lock_file between real processes: exclusion, the holder's record, and a
// lock that dies with its holder.
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>

namespace norvane {
namespace {

using namespace std::chrono_literals;

TEST(LockFile, TwoProcessesRacingNeverBothHoldIt) {
  test::temp_dir dir;
  // Shared between the two processes: how many hold the lock right now.
  auto* holders = static_cast<std::atomic<int>*>(
      ::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(holders, MAP_FAILED);
  new (holders) std::atomic<int>(0);
  const auto race = [&] {
    int taken = 0;
    int overlaps = 0;
    lock_file lock(dir / "race.lock");
    for (int i = 0; i < 1000; ++i) {
      if (lock.try_lock()) {
        ++taken;
        overlaps += holders->fetch_add(1) != 0;
        ::usleep(20);
        holders->fetch_sub(1);
        lock.unlock();
      }
      // A refused attempt takes far less time than a hold: without a pause
      // one process could miss every moment the lock is free.
      ::usleep(20);
    }
    return std::pair(taken, overlaps);
  };
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const auto [taken, overlaps] = race();
    ::_exit(overlaps != 0 ? 1 : taken == 0 ? 2 : 0);
  }
  const auto [taken, overlaps] = race();
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(overlaps, 0);
  EXPECT_GT(taken, 0);
  ::munmap(holders, sizeof(std::atomic<int>));
}

TEST(LockFile, AHolderKilledReleasesItAtOnceAndRefusedCallersSeeWhoHeldIt) {
  test::temp_dir dir;
  const auto path = dir / "app.lock";
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    lock_file lock(path);
    const char c = lock.try_lock() ? 'y' : 'n';
    static_cast<void>(::write(ready[1], &c, 1));
    ::pause();
    ::_exit(0);
  }
  char c = 0;
  ASSERT_EQ(::read(ready[0], &c, 1), 1);
  ASSERT_EQ(c, 'y');
  ::close(ready[0]);
  ::close(ready[1]);

  test::log_capture log;
  lock_file lock(path);
  EXPECT_FALSE(lock.try_lock());
  EXPECT_TRUE(log.entries().empty());
  // A refused attempt leaves the holder's record alone.
  const auto who = lock.holder();
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  EXPECT_EQ(who.pid, child);
  EXPECT_EQ(who.host_name, host);
  EXPECT_FALSE(who.application_name.empty());

  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock.lock(200ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
  ASSERT_EQ(log.entries().size(), 1u);
  EXPECT_EQ(log.entries()[0].message, "Cannot lock \"" + path.string() +
                                          "\" within 200 ms: held by process " + std::to_string(child) +
                                          " (" + who.application_name + " on " + host + ").");

  ::kill(child, SIGKILL);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_TRUE(lock.try_lock());
  EXPECT_TRUE(lock.is_locked());
  EXPECT_EQ(lock.holder().pid, ::getpid());
  lock.unlock();
  EXPECT_EQ(lock.holder().pid, 0);
  // A lock in a directory that does not exist is an error, not a refusal.
  lock_file nowhere(dir / "none" / "x.lock");
  EXPECT_FALSE(nowhere.try_lock());
  ASSERT_EQ(log.entries().size(), 2u);
  EXPECT_EQ(log.entries()[1].message,
            "Cannot lock \"" + (dir / "none" / "x.lock").string() + "\": No such file or directory.");
}

}  // namespace
}  // namespace norvane
