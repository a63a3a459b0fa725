// Handles on one tree taken and dropped from several threads: the share
// counter stays exact and the tree outlives every handle.
#include <norvane/yaml.hpp>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace norvane::yaml;

TEST(YamlHandleConcurrency, ShareCounterStaysExactAcrossThreads) {
  std::vector<std::string> errors;
  ryml_wrapper doc = read_yaml("items: [1, 2, 3, 4]\nname: shared\n", errors);
  ASSERT_TRUE(errors.empty());
  const ryml_wrapper& cdoc = doc;

  constexpr int threads = 4;
  constexpr int rounds = 20000;
  std::vector<std::thread> pool;
  std::vector<long long> sums(threads, 0);
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&cdoc, &sums, t] {
      for (int i = 0; i < rounds; ++i) {
        const ryml_wrapper items = cdoc["items"];
        const ryml_wrapper item = items[static_cast<std::size_t>(i % 4)];
        sums[static_cast<std::size_t>(t)] += item.as<long long>();
        if (cdoc["name"].as<std::string>() != "shared") {
          sums[static_cast<std::size_t>(t)] = -1;
        }
      }
    });
  }
  for (auto& th : pool) {
    th.join();
  }
  EXPECT_EQ(doc.use_count(), 1);
  for (long long s : sums) {
    EXPECT_EQ(s, rounds / 4 * (1 + 2 + 3 + 4));
  }

  // The last handle may be dropped on another thread than the first.
  ryml_wrapper item = doc["items"][0];
  doc.clear();
  std::thread([moved = std::move(item)]() mutable {
    EXPECT_EQ(moved.use_count(), 1);
    EXPECT_EQ(moved.as<int>(), 1);
  }).join();
}
