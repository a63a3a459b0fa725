// Handles on one tree taken and dropped from several threads: the share
// counter stays exact and the tree outlives every handle.
#include <norvane/yaml.hpp>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace norvane::yaml;

TEST(YamlHandleConcurrency, ShareCounterStaysExactAcrossThreads) {
  std::vector<std::string> errors;
  ryml_wrapper doc = read_yaml("items: [1, 2, 3, 4]\nname: shared\n", errors);
  const ryml_wrapper& cdoc = doc;
  constexpr int rounds = 20000;
  std::vector<long long> sums(4, 0);
  {
    std::vector<std::jthread> pool;
    for (std::size_t t = 0; t < sums.size(); ++t) {
      pool.emplace_back([&cdoc, &sums, t] {
        for (int i = 0; i < rounds; ++i) {
          sums[t] += cdoc["items"][static_cast<std::size_t>(i % 4)].as<long long>();
          sums[t] = cdoc["name"].as<std::string>() == "shared" ? sums[t] : -1'000'000'000;
        }
      });
    }
  }
  EXPECT_EQ(doc.use_count(), 1);
  EXPECT_EQ(sums, std::vector<long long>(4, rounds / 4 * (1 + 2 + 3 + 4)));
  // The last handle may be dropped on another thread than the first.
  ryml_wrapper item = doc["items"][0];
  doc.clear();
  std::thread([moved = std::move(item)]() mutable {
    EXPECT_EQ(moved.use_count(), 1);
    EXPECT_EQ(moved.as<int>(), 1);
  }).join();
}
