// The signal dispatcher: typed events, then the functions postponed to the
// end of an update.
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

// Records whether the dispatcher is updating, now and in what it postpones.
struct observer {
  signal_dispatcher* d;
  std::vector<std::string>* trace;
  bool fail = false;
  std::string state() const { return d->is_updating() ? " updating" : " idle"; }
  void on_tick(tick& t) {
    if (fail) throw std::runtime_error("listener failed");
    trace->push_back("tick " + std::to_string(t.n) + state());
    d->delay_event([this, n = t.n] { trace->push_back("after " + std::to_string(n) + state()); });
  }
};

TEST(SignalDispatcher, TypedEventsFirstThenPostponedFunctionsOnceInCallOrder) {
  auto token = std::make_shared<int>(0);
  std::vector<std::string> trace;
  {
    signal_dispatcher d;
    observer o{&d, &trace};
    d.handle().sink<tick>().connect<&observer::on_tick>(o);
    d.delay_event([&] { trace.push_back("queued before"); });
    for (int n : {1, 2}) d.handle().enqueue<tick>(n);
    // Functions postponed by postponed functions are dropped, however many.
    for (int i = 0; i < 100; ++i) d.delay_event([&] { d.delay_event([&] { trace.push_back("dropped"); }); });
    d.update(), d.update();
    EXPECT_FALSE(d.is_updating() || d.handle().size() != 0);
    d.delay_event([token, &trace] { trace.push_back("never"); });  // dropped unrun by destruction
  }
  EXPECT_EQ(trace, (std::vector<std::string>{"tick 1 updating", "tick 2 updating", "queued before",
                                             "after 1 idle", "after 2 idle"}));
  EXPECT_EQ(token.use_count(), 1);
}

TEST(SignalDispatcher, WhatAThrowingUpdateLeavesQueued) {
  signal_dispatcher d;
  std::vector<std::string> trace;
  observer o{&d, &trace, true};
  d.handle().sink<tick>().connect<&observer::on_tick>(o);
  d.delay_event([&] { trace.push_back("delayed"); });
  d.handle().enqueue<tick>(1);
  // A throwing listener leaves the flag set and the functions queued.
  EXPECT_THROW(d.update(), std::runtime_error);
  EXPECT_TRUE(d.is_updating());
  o.fail = false;
  d.update();
  EXPECT_FALSE(d.is_updating());
  // A throwing function keeps every function, the ones before it included,
  // and what it postponed before throwing, for the next update.
  bool fail = true;
  d.delay_event([&] { trace.push_back("first"); });
  d.delay_event([&] {
    d.delay_event([&] { trace.push_back("late"); });
    if (fail) throw std::runtime_error("function failed");
    trace.push_back("second");
  });
  EXPECT_THROW(d.update(), std::runtime_error);
  EXPECT_FALSE(d.is_updating());
  fail = false;
  d.update(), d.update();
  EXPECT_EQ(trace, (std::vector<std::string>{"tick 1 updating", "delayed", "after 1 idle", "first", "first",
                                             "second", "late"}));
  d.delay_event(std::function<void()>());
  EXPECT_THROW(d.update(), std::bad_function_call);
}

}  // namespace
}  // namespace norvane
