// Generation on many threads at once: random identifiers come from one
// engine per thread, time-ordered ones share one sequence for the process.
#include <norvane/hash.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

std::uint64_t unix_ms() {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::system_clock::now().time_since_epoch())
                                        .count());
}

std::uint64_t timestamp_ms(const norvane::uuid& id) {
  std::uint64_t ms = 0;
  for (std::size_t k = 0; k < 6; ++k) {
    ms = ms << 8 | id.bytes()[k];
  }
  return ms;
}

TEST(uuid_threaded, identifiers_from_concurrent_threads_are_distinct_and_well_formed) {
  constexpr int thread_count = 8;
  constexpr int per_thread = 5000;
  std::vector<std::vector<std::string>> results(thread_count);
  std::barrier start(thread_count);
  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      results[t].reserve(per_thread);
      for (int i = 0; i < per_thread; ++i) {
        const norvane::uuid id;
        results[t].push_back(norvane::to_string(id));
        // Parsing also draws from this thread's engine.
        const norvane::uuid parsed(results[t].back());
        if (!(parsed == id)) {
          results[t].back() = "mismatch";
        }
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  std::set<std::string> all;
  for (const auto& list : results) {
    for (const auto& text : list) {
      ASSERT_TRUE(norvane::validate_uuid_str(text)) << text;
      ASSERT_EQ(text[14], '4');
      all.insert(text);
    }
  }
  EXPECT_EQ(all.size(), static_cast<std::size_t>(thread_count * per_thread));
}

TEST(uuid_threaded, a_million_v7_identifiers_from_four_threads) {
  constexpr int thread_count = 4;
  constexpr int per_thread = 250000;
  std::vector<std::vector<norvane::uuid>> results(thread_count);
  std::barrier start(thread_count);
  std::vector<std::thread> threads;
  const auto before = unix_ms();
  for (int t = 0; t < thread_count; ++t) {
    threads.emplace_back([&, t] {
      results[t].reserve(per_thread);
      start.arrive_and_wait();
      for (int i = 0; i < per_thread; ++i) {
        results[t].push_back(norvane::uuid::v7());
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  const auto after = unix_ms();

  std::vector<norvane::uuid> all;
  all.reserve(thread_count * per_thread);
  for (const auto& list : results) {
    std::string previous;
    for (const auto& id : list) {
      std::string text = norvane::to_string(id);
      // Version 7, variant 10, and the text parses back to the same bytes.
      ASSERT_EQ(text[14], '7') << text;
      ASSERT_EQ(id.bytes()[8] & 0xc0, 0x80) << text;
      ASSERT_TRUE(norvane::uuid(text) == id) << text;
      ASSERT_LT(previous, text);
      ASSERT_GE(timestamp_ms(id), before) << text;
      ASSERT_LE(timestamp_ms(id), after) << text;
      previous = std::move(text);
      all.push_back(id);
    }
  }
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

// Two threads take turns: an identifier drawn after the other thread's last
// one, which this thread has seen, must sort after it even in the same
// millisecond.
TEST(uuid_threaded, v7_draw_order_holds_across_threads) {
  constexpr int rounds = 2000;
  std::atomic<int> turn{0};
  std::vector<norvane::uuid> drawn(2 * rounds, norvane::uuid_null);
  auto player = [&](int me) {
    for (int i = me; i < 2 * rounds; i += 2) {
      while (turn.load(std::memory_order_acquire) != i) {
        std::this_thread::yield();
      }
      drawn[i] = norvane::uuid::v7();
      turn.store(i + 1, std::memory_order_release);
    }
  };
  std::thread first(player, 0);
  std::thread second(player, 1);
  first.join();
  second.join();
  EXPECT_TRUE(std::is_sorted(drawn.begin(), drawn.end()));
  EXPECT_EQ(std::adjacent_find(drawn.begin(), drawn.end()), drawn.end());
}

}  // namespace
