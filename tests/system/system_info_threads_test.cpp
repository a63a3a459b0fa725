#include <norvane/system_info.hpp>

#include <gtest/gtest.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace norvane {
namespace {

// Every thread makes the first call at once: each description must be built
// exactly once and every thread must see the finished one.
TEST(SystemInfoThreads, FirstUseFromManyThreadsBuildsOneDescription) {
  constexpr int threads = 8;
  struct seen {
    const std::string* model = nullptr;
    std::size_t packages = 0;
    std::string os_type;
    double total_MiB = 0;
  };
  std::vector<seen> results(threads);
  std::latch start(threads);
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      start.arrive_and_wait();
      // Half the threads ask in the other order, so the statics race too.
      if (t % 2 == 0) {
        const auto cpus = system_info::all_cpus();
        results[t].model = &cpus.front().model_name();
        results[t].packages = cpus.size();
        results[t].os_type = system_info::os().type();
        results[t].total_MiB = system_info::ram().total_MiB();
      } else {
        results[t].total_MiB = system_info::ram().total_MiB();
        results[t].os_type = system_info::os().type();
        const auto cpus = system_info::all_cpus();
        results[t].model = &cpus.front().model_name();
        results[t].packages = cpus.size();
      }
    });
  }
  for (auto& worker : workers) {
    worker.join();
  }
  for (const auto& r : results) {
    EXPECT_EQ(r.model, results[0].model);
    EXPECT_EQ(r.packages, results[0].packages);
    EXPECT_EQ(r.os_type, results[0].os_type);
    EXPECT_EQ(r.total_MiB, results[0].total_MiB);
  }
  EXPECT_FALSE(results[0].os_type.empty());
  EXPECT_GT(results[0].total_MiB, 0.0);
  EXPECT_EQ(&system_info::all_cpus().front().model_name(), results[0].model);
}

}  // namespace
}  // namespace norvane
