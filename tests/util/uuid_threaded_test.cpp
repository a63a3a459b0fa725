// Generation on many threads at once: random identifiers come from one
// engine per thread, time-ordered ones share one sequence for the process.
#include <norvane/hash.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {

// Runs `body(t)` on `count` threads that start together.
void on_threads(int count, const std::function<void(int)>& body) {
  std::barrier start(count);
  std::vector<std::jthread> threads;
  for (int t = 0; t < count; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      body(t);
    });
  }
}

std::uint64_t unix_ms() {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::system_clock::now().time_since_epoch())
                                        .count());
}

TEST(UuidThreaded, RandomIdentifiersFromConcurrentThreadsAreDistinct) {
  std::vector<std::vector<norvane::uuid>> results(8, std::vector<norvane::uuid>(5000, norvane::uuid_null));
  on_threads(8, [&](int t) {
    for (auto& id : results[t]) {
      id = norvane::uuid();
      // Parsing also draws from this thread's engine.
      if (!(norvane::uuid(norvane::to_string(id)) == id)) {
        id = norvane::uuid_null;
      }
    }
  });
  std::vector<norvane::uuid> all;
  for (const auto& list : results) {
    all.insert(all.end(), list.begin(), list.end());
  }
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
  EXPECT_FALSE(all.front() == norvane::uuid_null);
}

TEST(UuidThreaded, AMillionV7IdentifiersFromFourThreadsAreOrderedAndTimed) {
  std::vector<std::vector<norvane::uuid>> results(4, std::vector<norvane::uuid>(250000, norvane::uuid_null));
  const auto before = unix_ms();
  on_threads(4, [&](int t) { std::generate(results[t].begin(), results[t].end(), norvane::uuid::v7); });
  const auto after = unix_ms();
  std::vector<norvane::uuid> all;
  for (const auto& list : results) {
    ASSERT_TRUE(std::is_sorted(list.begin(), list.end()));
    for (const auto& id : {list.front(), list.back()}) {
      std::uint64_t ms = 0;
      for (std::size_t k = 0; k < 6; ++k) {
        ms = ms << 8 | id.bytes()[k];
      }
      EXPECT_TRUE(ms >= before && ms <= after) << norvane::to_string(id);
    }
    for (const auto& id : list) {
      const std::string text = norvane::to_string(id);
      ASSERT_TRUE(text[14] == '7' && (id.bytes()[8] & 0xc0) == 0x80 && norvane::uuid(text) == id) << text;
    }
    all.insert(all.end(), list.begin(), list.end());
  }
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

// Two threads take turns: an identifier drawn after the other thread's last
// one must sort after it, even in the same millisecond.
TEST(UuidThreaded, V7DrawOrderHoldsAcrossThreads) {
  std::atomic<int> turn{0};
  std::vector<norvane::uuid> drawn(4000, norvane::uuid_null);
  on_threads(2, [&](int me) {
    for (int i = me; i < 4000; i += 2) {
      while (turn.load(std::memory_order_acquire) != i) {
        std::this_thread::yield();
      }
      drawn[i] = norvane::uuid::v7();
      turn.store(i + 1, std::memory_order_release);
    }
  });
  EXPECT_TRUE(std::is_sorted(drawn.begin(), drawn.end()));
  EXPECT_EQ(std::adjacent_find(drawn.begin(), drawn.end()), drawn.end());
}

}  // namespace
