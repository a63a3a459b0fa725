// Generation on many threads at once: random identifiers come from one
// engine per thread, time-ordered ones share one sequence for the process.
#include <norvane/hash.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

namespace {

// Runs `body(t)` on `count` threads at once.
void on_threads(int count, const std::function<void(int)>& body) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < count; ++t) threads.emplace_back(body, t);
}

bool all_distinct(std::vector<norvane::uuid> all) {
  std::sort(all.begin(), all.end());
  return std::adjacent_find(all.begin(), all.end()) == all.end();
}

std::uint64_t unix_ms() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(
      duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

TEST(UuidThreaded, RandomAndV7IdentifiersFromConcurrentThreadsAreDistinct) {
  std::vector<norvane::uuid> random(8 * 5000, norvane::uuid_null);
  on_threads(8, [&](int t) {
    for (std::size_t i = t * 5000u; i < (t + 1) * 5000u; ++i) {
      const norvane::uuid id;
      // Parsing also draws from this thread's engine.
      random[i] = norvane::uuid(norvane::to_string(id)) == id ? id : norvane::uuid_null;
    }
  });
  EXPECT_TRUE(all_distinct(random) && std::count(random.begin(), random.end(), norvane::uuid_null) == 0);
  std::vector<norvane::uuid> v7(1000000, norvane::uuid_null);
  const auto before = unix_ms();
  on_threads(4, [&](int t) {
    std::generate(v7.begin() + t * 250000, v7.begin() + (t + 1) * 250000, norvane::uuid::v7);
  });
  const auto after = unix_ms();
  for (std::size_t t = 0; t < 4; ++t)
    ASSERT_TRUE(std::is_sorted(v7.begin() + t * 250000, v7.begin() + (t + 1) * 250000));
  int ones = 0, zeros = 0;  // every bit of the last byte takes both values: it is drawn
  for (const auto& id : v7) {
    ones |= id.bytes()[15], zeros |= ~id.bytes()[15] & 0xff;
    std::uint64_t ms = 0;
    for (std::size_t k = 0; k < 6; ++k) ms = ms << 8 | id.bytes()[k];
    const std::string text = norvane::to_string(id);
    ASSERT_TRUE(ms >= before && ms <= after && text[14] == '7' && (id.bytes()[8] & 0xc0) == 0x80) << text;
    ASSERT_TRUE(norvane::uuid(text) == id) << text;
  }
  EXPECT_TRUE(ones == 0xff && zeros == 0xff && all_distinct(v7)) << ones << " " << zeros;
}

}  // namespace
