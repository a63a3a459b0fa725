// Generation on many threads at once: each thread has its own engine, so
// there is no lock, and no two threads may produce the same sequence.
#include <norvane/hash.hpp>

#include <gtest/gtest.h>

#include <barrier>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

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

}  // namespace
