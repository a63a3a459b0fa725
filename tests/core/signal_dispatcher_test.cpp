#include <norvane/dispatcher.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace norvane {
namespace {

struct tick {
  int n;
};

// A listener that looks at the dispatcher while it is being delivered to.
struct observer {
  observer(signal_dispatcher* dispatcher, std::vector<std::string>* lines, bool fail = false)
      : d(dispatcher), trace(lines), throw_now(fail) {}
  signal_dispatcher* d;
  std::vector<std::string>* trace;
  bool throw_now;
  void on_tick(tick& t) {
    if (throw_now) {
      throw std::runtime_error("listener failed");
    }
    trace->push_back("tick " + std::to_string(t.n) + (d->is_updating() ? " updating" : " idle"));
    d->delay_event([this, n = t.n] {
      trace->push_back("after tick " + std::to_string(n) + (d->is_updating() ? " updating" : " idle"));
    });
  }
};

TEST(SignalDispatcher, EmptyUpdateChangesNothing) {
  signal_dispatcher d;
  EXPECT_FALSE(d.is_updating());
  d.update();
  EXPECT_FALSE(d.is_updating());
  EXPECT_EQ(d.handle().size(), 0u);
}

TEST(SignalDispatcher, DelayedFunctionsRunOnceInCallOrder) {
  signal_dispatcher d;
  std::vector<int> ran;
  for (int i = 1; i <= 3; ++i) {
    d.delay_event([&ran, i] { ran.push_back(i); });
  }
  EXPECT_TRUE(ran.empty());
  d.update();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
  d.update();
  EXPECT_EQ(ran.size(), 3u);
}

TEST(SignalDispatcher, TypedEventsFirstThenFunctionsTheirListenersPostponed) {
  signal_dispatcher d;
  std::vector<std::string> trace;
  observer o(&d, &trace);
  d.handle().sink<tick>().connect<&observer::on_tick>(o);
  d.delay_event([&] { trace.push_back("queued before"); });
  d.handle().enqueue<tick>(1);
  d.handle().enqueue<tick>(2);
  d.update();
  EXPECT_EQ(trace, (std::vector<std::string>{"tick 1 updating", "tick 2 updating", "queued before",
                                             "after tick 1 idle", "after tick 2 idle"}));
  EXPECT_FALSE(d.is_updating());
}

TEST(SignalDispatcher, FunctionsPostponedByPostponedFunctionsAreDropped) {
  signal_dispatcher d;
  int inner_runs = 0;
  int outer_runs = 0;
  d.delay_event([&] {
    ++outer_runs;
    d.delay_event([&] { ++inner_runs; });
  });
  d.update();
  d.update();
  EXPECT_EQ(outer_runs, 1);
  EXPECT_EQ(inner_runs, 0);
  // Many of them at once, enough to outgrow any reserved space.
  for (int i = 0; i < 100; ++i) {
    d.delay_event([&] {
      ++outer_runs;
      for (int j = 0; j < 10; ++j) {
        d.delay_event([&] { ++inner_runs; });
      }
    });
  }
  d.update();
  d.update();
  EXPECT_EQ(outer_runs, 101);
  EXPECT_EQ(inner_runs, 0);
}

TEST(SignalDispatcher, DestructionDropsPendingFunctionsUnrun) {
  auto token = std::make_shared<int>(0);
  bool ran = false;
  {
    signal_dispatcher d;
    d.delay_event([token, &ran] { ran = true; });
    EXPECT_EQ(token.use_count(), 2);
  }
  EXPECT_FALSE(ran);
  EXPECT_EQ(token.use_count(), 1);
}

TEST(SignalDispatcher, AThrowingListenerLeavesTheFlagSetAndTheFunctionsQueued) {
  signal_dispatcher d;
  std::vector<std::string> trace;
  observer o(&d, &trace, true);
  d.handle().sink<tick>().connect<&observer::on_tick>(o);
  d.delay_event([&] { trace.push_back("delayed"); });
  d.handle().enqueue<tick>(1);
  EXPECT_THROW(d.update(), std::runtime_error);
  EXPECT_TRUE(d.is_updating());
  EXPECT_TRUE(trace.empty());
  o.throw_now = false;
  d.update();
  EXPECT_FALSE(d.is_updating());
  EXPECT_EQ(trace, (std::vector<std::string>{"tick 1 updating", "delayed", "after tick 1 idle"}));
}

TEST(SignalDispatcher, AThrowingFunctionKeepsEveryFunctionForTheNextUpdate) {
  signal_dispatcher d;
  std::vector<std::string> ran;
  bool fail = true;
  d.delay_event([&] { ran.push_back("first"); });
  d.delay_event([&] {
    d.delay_event([&] { ran.push_back("late"); });
    if (fail) {
      throw std::runtime_error("function failed");
    }
    ran.push_back("second");
  });
  d.delay_event([&] { ran.push_back("third"); });
  EXPECT_THROW(d.update(), std::runtime_error);
  EXPECT_FALSE(d.is_updating());
  EXPECT_EQ(ran, std::vector<std::string>{"first"});
  fail = false;
  d.update();
  // Nothing was cleaned up: the first runs again, and the function queued
  // before the throw is part of the kept list.
  EXPECT_EQ(ran, (std::vector<std::string>{"first", "first", "second", "third", "late"}));
  d.update();
  EXPECT_EQ(ran.size(), 5u);
}

TEST(SignalDispatcher, AnEmptyFunctionThrowsBadFunctionCall) {
  signal_dispatcher d;
  int ran = 0;
  d.delay_event(std::function<void()>());
  d.delay_event([&] { ++ran; });
  EXPECT_THROW(d.update(), std::bad_function_call);
  EXPECT_EQ(ran, 0);
}

}  // namespace
}  // namespace norvane
