#include <norvane/application.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace norvane {
namespace {

TEST(ApplicationExit, FlagSetFromAnotherThreadReachesThePollingLoop) {
  std::string name = "tool";
  char* argv[] = {name.data(), nullptr};
  application_core app(1, argv);
  for (int round = 0; round < 50; ++round) {
    app.reset_exit();
    std::atomic<bool> polling{false};
    std::thread worker([&] {
      while (!polling.load()) std::this_thread::yield();
      app.exit();
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    polling.store(true);
    while (!app.should_exit() && std::chrono::steady_clock::now() < deadline) {
    }
    worker.join();
    ASSERT_TRUE(app.should_exit()) << "round " << round;
  }
}

}  // namespace
}  // namespace norvane
