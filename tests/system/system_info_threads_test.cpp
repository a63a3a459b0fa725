#include <norvane/system_info.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace norvane {
namespace {

// Every thread makes the first call at once, half of them in the other
// order: each description must be built once and seen finished by all.
TEST(SystemInfoThreads, FirstUseFromManyThreadsBuildsOneDescription) {
  const auto where_model = [] {
    const auto cpus = system_info::all_cpus();
    return std::to_string(cpus.size()) + "@" +
           std::to_string(reinterpret_cast<std::uintptr_t>(&cpus.front().model_name()));
  };
  std::vector<std::string> seen(8);
  std::latch start(8);
  std::vector<std::thread> workers;
  for (std::size_t t = 0; t < seen.size(); ++t) {
    workers.emplace_back([&, t] {
      start.arrive_and_wait();
      std::string model = t % 2 == 0 ? where_model() : "";
      const std::string ram = std::to_string(system_info::ram().total_MiB()), os = system_info::os().type();
      seen[t] = (t % 2 == 0 ? model : where_model()) + " " + os + " " + ram;
    });
  }
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(seen, std::vector<std::string>(8, seen[0]));
  EXPECT_EQ(seen[0].substr(0, seen[0].find(' ')), where_model());
  EXPECT_FALSE(system_info::os().type().empty());
  // Whatever container this runs in, its figures stay within the machine's.
  const auto ram = system_info::ram();
  EXPECT_TRUE(ram.limit_MiB() > 0 && ram.limit_MiB() <= ram.total_MiB()) << ram.limit_MiB();
  EXPECT_TRUE(ram.available_MiB() > 0 && ram.available_MiB() <= ram.total_MiB()) << ram.available_MiB();
}

}  // namespace
}  // namespace norvane
