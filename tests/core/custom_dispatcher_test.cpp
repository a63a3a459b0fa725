#include <norvane/dispatcher.hpp>

#include "dispatcher_plugin.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace norvane {
namespace {

struct key_pressed {
  int code;
};

struct resized {
  int width;
  int height;
};

// A non-aggregate event, built through its constructor.
class message {
public:
  message(std::string text, int times) : text_(std::move(text)), times_(times) {}
  std::string text() const { return text_ + "*" + std::to_string(times_); }

private:
  std::string text_;
  int times_;
};

// Records what it hears, in order, across event types.
struct recorder {
  std::vector<std::string> heard;
  void on_key(const key_pressed& e) { heard.push_back("key " + std::to_string(e.code)); }
  void on_resize(resized& e) {
    heard.push_back("resize " + std::to_string(e.width) + "x" + std::to_string(e.height));
  }
  void on_message(const message& e) { heard.push_back("message " + e.text()); }
  void also_key(key_pressed& e) { heard.push_back("also " + std::to_string(e.code)); }
};

std::vector<int> free_heard;
void free_listener(key_pressed& e) { free_heard.push_back(e.code); }

TEST(CustomDispatcher, UpdateDeliversTypesInFirstUseOrderAndEventsInQueueOrder) {
  custom_dispatcher<> d;
  recorder r;
  // resized is used first (through its sink), key_pressed second.
  d.sink<resized>().connect<&recorder::on_resize>(r);
  d.sink<key_pressed>().connect<&recorder::on_key>(r);
  d.enqueue<key_pressed>(1);
  d.enqueue(resized{640, 480});
  d.enqueue(key_pressed{2});
  d.enqueue<message>("hi", 3);
  EXPECT_EQ(d.size<key_pressed>(), 2u);
  EXPECT_EQ(d.size(), 4u);
  EXPECT_TRUE(r.heard.empty());
  d.update();
  // message has no listener: delivered to nobody, but its queue is emptied too.
  EXPECT_EQ(r.heard, (std::vector<std::string>{"resize 640x480", "key 1", "key 2"}));
  EXPECT_EQ(d.size(), 0u);
  d.update();
  EXPECT_EQ(r.heard.size(), 3u);
}

TEST(CustomDispatcher, TriggerDeliversAtOnceAndUpdateOfOneTypeLeavesOthers) {
  custom_dispatcher<> d;
  recorder r;
  d.sink<key_pressed>().connect<&recorder::on_key>(r);
  d.sink<message>().connect<&recorder::on_message>(r);
  d.enqueue<message>("queued", 1);
  d.enqueue<key_pressed>(5);
  d.trigger(key_pressed{9});
  const message now("now", 2);
  d.trigger(now);
  EXPECT_EQ(r.heard, (std::vector<std::string>{"key 9", "message now*2"}));
  d.update<key_pressed>();
  EXPECT_EQ(r.heard.back(), "key 5");
  EXPECT_EQ(d.size<message>(), 1u);
  d.clear<message>();
  d.update();
  EXPECT_EQ(r.heard.size(), 3u);
  // Asking about an unused type creates nothing and reports nothing.
  EXPECT_EQ(d.size<resized>(), 0u);
}

TEST(CustomDispatcher, ConnectingAndDisconnecting) {
  custom_dispatcher<> d;
  recorder a;
  recorder b;
  free_heard.clear();
  auto sink = d.sink<key_pressed>();
  EXPECT_TRUE(sink.empty());
  sink.connect<&recorder::on_key>(a);
  sink.connect<&recorder::on_key>(a);  // a second connection is not a second delivery
  sink.connect<&recorder::also_key>(a);
  sink.connect<&recorder::on_key>(b);
  sink.connect<&free_listener>();
  d.trigger(key_pressed{1});
  EXPECT_EQ(a.heard, (std::vector<std::string>{"key 1", "also 1"}));
  EXPECT_EQ(b.heard, (std::vector<std::string>{"key 1"}));
  EXPECT_EQ(free_heard, std::vector<int>{1});

  sink.disconnect<&recorder::on_key>(a);
  d.trigger(key_pressed{2});
  EXPECT_EQ(a.heard.back(), "also 2");
  EXPECT_EQ(b.heard.back(), "key 2");

  sink.disconnect(a);  // every member of a
  sink.disconnect<&free_listener>();
  d.trigger(key_pressed{3});
  EXPECT_EQ(a.heard.size(), 3u);
  EXPECT_EQ(b.heard.back(), "key 3");
  EXPECT_EQ(free_heard.size(), 2u);
  sink.disconnect(b);
  EXPECT_TRUE(sink.empty());
}

// Listeners that change the dispatcher while it delivers.
struct reentrant {
  explicit reentrant(custom_dispatcher<>* dispatcher) : d(dispatcher) {}
  custom_dispatcher<>* d;
  std::vector<int> heard;
  int enqueue_below = 0;

  void requeue(key_pressed& e) {
    heard.push_back(e.code);
    if (e.code < enqueue_below) {
      d->enqueue<key_pressed>(e.code + 10);
    }
  }
  void republish(key_pressed& e) {
    heard.push_back(e.code);
    if (e.code < 10) {
      d->enqueue<key_pressed>(e.code + 10);
      d->update<key_pressed>();
    }
  }
  void send_resize(key_pressed& e) { d->enqueue(resized{e.code, e.code}); }
  void quit_after_one(key_pressed& e) {
    heard.push_back(e.code);
    d->sink<key_pressed>().disconnect<&reentrant::quit_after_one>(*this);
  }
  void bring_friend(key_pressed& e) {
    heard.push_back(e.code);
    if (e.code == 1) {
      d->sink<key_pressed>().connect<&recorder::on_key>(*late);
    }
  }
  recorder* late = nullptr;
};

TEST(CustomDispatcher, EventsEnqueuedDuringDeliveryOfTheirTypeWaitForTheNextUpdate) {
  custom_dispatcher<> d;
  reentrant r(&d);
  r.enqueue_below = 10;
  d.sink<key_pressed>().connect<&reentrant::requeue>(r);
  d.enqueue<key_pressed>(1);
  d.enqueue<key_pressed>(2);
  d.update();
  EXPECT_EQ(r.heard, (std::vector<int>{1, 2}));
  EXPECT_EQ(d.size<key_pressed>(), 2u);
  d.update();
  EXPECT_EQ(r.heard, (std::vector<int>{1, 2, 11, 12}));
  EXPECT_EQ(d.size<key_pressed>(), 0u);
}

TEST(CustomDispatcher, AListenerPublishingItsOwnQueueDeliversWhatItQueuedAtOnce) {
  custom_dispatcher<> d;
  reentrant r(&d);
  recorder after;
  d.sink<key_pressed>().connect<&reentrant::republish>(r);
  d.sink<key_pressed>().connect<&recorder::on_key>(after);
  for (int round : {0, 1}) {
    d.enqueue<key_pressed>(1 + round);
    d.enqueue<key_pressed>(3 + round);
    d.update();
  }
  // The nested publish runs inside the first listener's call, before the
  // second listener hears the outer event.
  EXPECT_EQ(r.heard, (std::vector<int>{1, 11, 3, 13, 2, 12, 4, 14}));
  EXPECT_EQ(after.heard, (std::vector<std::string>{"key 11", "key 1", "key 13", "key 3", "key 12", "key 2",
                                                   "key 14", "key 4"}));
  EXPECT_EQ(d.size<key_pressed>(), 0u);
}

TEST(CustomDispatcher, TypesFirstUsedDuringAnUpdateAreDeliveredInIt) {
  custom_dispatcher<> d;
  reentrant r(&d);
  d.sink<key_pressed>().connect<&reentrant::send_resize>(r);
  d.enqueue<key_pressed>(7);
  d.update();
  // resized got its handler during the update, after key_pressed: it is
  // walked in the same update.
  EXPECT_EQ(d.size<resized>(), 0u);
  recorder seen;
  d.sink<resized>().connect<&recorder::on_resize>(seen);
  d.enqueue<key_pressed>(8);
  d.update();
  EXPECT_EQ(seen.heard, std::vector<std::string>{"resize 8x8"});
}

TEST(CustomDispatcher, ListenersChangedDuringDelivery) {
  custom_dispatcher<> d;
  reentrant quitter(&d);
  reentrant host(&d);
  recorder late;
  host.late = &late;
  d.sink<key_pressed>().connect<&reentrant::quit_after_one>(quitter);
  d.sink<key_pressed>().connect<&reentrant::bring_friend>(host);
  for (int code : {1, 2, 3}) {
    d.enqueue<key_pressed>(code);
  }
  d.update();
  EXPECT_EQ(quitter.heard, std::vector<int>{1});
  EXPECT_EQ(host.heard, (std::vector<int>{1, 2, 3}));
  // Connected while event 1 was being delivered: hears the events after it.
  EXPECT_EQ(late.heard, (std::vector<std::string>{"key 2", "key 3"}));
}

struct thrower {
  explicit thrower(int code) : throw_on(code) {}
  int throw_on;
  std::vector<int> heard;
  void on_key(key_pressed& e) {
    if (e.code == throw_on) {
      throw std::runtime_error("listener failed");
    }
    heard.push_back(e.code);
  }
};

TEST(CustomDispatcher, AThrowingListenerLeavesTheBatchQueued) {
  custom_dispatcher<> d;
  thrower t(2);
  reentrant r(&d);
  r.enqueue_below = 2;
  d.sink<key_pressed>().connect<&reentrant::requeue>(r);
  d.sink<key_pressed>().connect<&thrower::on_key>(t);
  d.enqueue<key_pressed>(1);
  d.enqueue<key_pressed>(2);
  d.enqueue<key_pressed>(3);
  EXPECT_THROW(d.update(), std::runtime_error);
  EXPECT_EQ(t.heard, std::vector<int>{1});
  // The batch, then what its delivery enqueued (11).
  EXPECT_EQ(d.size<key_pressed>(), 4u);
  t.throw_on = -1;
  r.enqueue_below = 0;
  d.update();
  EXPECT_EQ(t.heard, (std::vector<int>{1, 1, 2, 3, 11}));
  EXPECT_EQ(d.size<key_pressed>(), 0u);
}

// Counts the allocations made through it, to show the dispatcher uses it.
template <typename T>
struct counting_allocator {
  using value_type = T;
  std::shared_ptr<int> count;
  explicit counting_allocator(std::shared_ptr<int> c) : count(std::move(c)) {}
  template <typename U>
  counting_allocator(const counting_allocator<U>& other) : count(other.count) {}
  T* allocate(std::size_t n) {
    ++*count;
    return std::allocator<T>().allocate(n);
  }
  void deallocate(T* p, std::size_t n) { std::allocator<T>().deallocate(p, n); }
  template <typename U>
  bool operator==(const counting_allocator<U>& other) const {
    return count == other.count;
  }
};

TEST(CustomDispatcher, AllocatesThroughItsAllocator) {
  auto count = std::make_shared<int>(0);
  custom_dispatcher<counting_allocator<void>> d{counting_allocator<void>(count)};
  recorder r;
  d.sink<key_pressed>().connect<&recorder::on_key>(r);
  const int after_connect = *count;
  EXPECT_GE(after_connect, 3);  // index, pool list, handler, listener list
  for (int i = 0; i < 100; ++i) {
    d.enqueue<key_pressed>(i);
  }
  EXPECT_GT(*count, after_connect);
  d.update();
  EXPECT_EQ(r.heard.size(), 100u);
}

TEST(CustomDispatcher, ConstructingInPlaceAndNamedQueues) {
  custom_dispatcher<> d;
  recorder r;
  constexpr std::uint32_t left = 1;
  constexpr std::uint32_t right = 2;
  d.sink<key_pressed>().connect<&recorder::on_key>(r);
  d.sink<key_pressed>(left).connect<&recorder::also_key>(r);
  d.sink<message>(right).connect<&recorder::on_message>(r);
  d.trigger<key_pressed>();
  d.trigger<key_pressed>(4);
  d.trigger(left, key_pressed{5});
  d.trigger<message>("built", 2);
  d.enqueue_hint(left, key_pressed{6});
  d.enqueue_hint<key_pressed>(left, 7);
  d.enqueue_hint<message>(right, "named", 1);
  d.enqueue<key_pressed>(8);
  EXPECT_EQ(r.heard, (std::vector<std::string>{"key 0", "key 4", "also 5"}));
  // Each queue counts, delivers and drops only its own events.
  EXPECT_EQ(d.size<key_pressed>(), 1u);
  EXPECT_EQ(d.size<key_pressed>(left), 2u);
  EXPECT_EQ(d.size<message>(right), 1u);
  EXPECT_EQ(d.size<message>(), 0u);
  d.update<key_pressed>(left);
  EXPECT_EQ(r.heard.back(), "also 7");
  d.clear<message>(right);
  EXPECT_EQ(d.size(), 1u);
  d.enqueue_hint<key_pressed>(left, 9);
  d.update();
  // Queues in first-use order: the default key queue, then the left one.
  EXPECT_EQ(r.heard,
            (std::vector<std::string>{"key 0", "key 4", "also 5", "also 6", "also 7", "key 8", "also 9"}));
}

TEST(CustomDispatcher, ConnectionsListenersByPointerAndDisconnectingAnInstance) {
  recorder r;
  recorder other;
  connection outlived;
  {
    custom_dispatcher<> d;
    auto link = d.sink<key_pressed>().connect<&recorder::on_key>(&r);
    d.sink<key_pressed>().connect<&recorder::also_key>(r);
    d.sink<key_pressed>(7).connect<&recorder::also_key>(&other);
    d.sink<resized>().connect<&recorder::on_resize>(other);
    {
      const scoped_connection scoped = d.sink<resized>().connect<&recorder::on_resize>(r);
      d.trigger(resized{1, 2});
    }
    d.trigger(resized{3, 4});
    d.trigger(key_pressed{1});
    EXPECT_TRUE(link);
    link.release();
    EXPECT_FALSE(link);
    link.release();
    d.trigger(key_pressed{2});
    d.sink<key_pressed>().disconnect<&recorder::also_key>(&r);
    d.trigger(key_pressed{3});
    EXPECT_TRUE(d.sink<key_pressed>().empty());
    // One call takes `other` off every queue.
    d.trigger(7, key_pressed{4});
    d.disconnect(other);
    d.trigger(7, key_pressed{5});
    d.trigger(resized{5, 6});
    outlived = d.sink<key_pressed>().connect<&free_listener>();
    EXPECT_TRUE(outlived);
  }
  EXPECT_EQ(r.heard, (std::vector<std::string>{"resize 1x2", "key 1", "also 1", "also 2"}));
  EXPECT_EQ(other.heard, (std::vector<std::string>{"resize 1x2", "resize 3x4", "also 4"}));
  // The dispatcher is gone: the connection knows, and releasing is harmless.
  EXPECT_FALSE(outlived);
  outlived.release();
}

template <int N>
struct numbered {
  int value;
};

struct numbered_log {
  std::vector<int> heard;
  template <int N>
  void on(numbered<N>& e) {
    heard.push_back(N * 100 + e.value);
  }
};

template <int... N>
void use_types(custom_dispatcher<>& d, numbered_log& log, std::integer_sequence<int, N...>) {
  (d.sink<numbered<N>>().template connect<&numbered_log::on<N>>(log), ...);
  // Queued in the reverse order of first use.
  constexpr int last = sizeof...(N) - 1;
  (d.enqueue<numbered<last - N>>(last - N), ...);
}

// Far more types than the index starts with, on two dispatchers at once:
// each type's queue is its own, on each dispatcher, and the order of first
// use survives the index growing.
TEST(CustomDispatcher, ManyTypesOnSeveralDispatchers) {
  custom_dispatcher<> first;
  custom_dispatcher<> second;
  numbered_log heard_first;
  numbered_log heard_second;
  use_types(first, heard_first, std::make_integer_sequence<int, 40>());
  use_types(second, heard_second, std::make_integer_sequence<int, 20>());
  EXPECT_EQ(first.size(), 40u);
  EXPECT_EQ(first.size<numbered<39>>(), 1u);
  EXPECT_EQ(second.size<numbered<39>>(), 0u);
  custom_dispatcher<> moved(std::move(first));
  moved.update();
  second.update();
  ASSERT_EQ(heard_first.heard.size(), 40u);
  for (int n = 0; n < 40; ++n) {
    EXPECT_EQ(heard_first.heard[static_cast<std::size_t>(n)], n * 101);
  }
  EXPECT_EQ(heard_second.heard.size(), 20u);
  // The dispatcher moved from starts over empty.
  EXPECT_EQ(first.size(), 0u);
  first.enqueue<numbered<3>>(1);
  EXPECT_EQ(first.size<numbered<3>>(), 1u);
  EXPECT_EQ(moved.size<numbered<3>>(), 0u);
}

// The plugin is built with hidden symbols: its copy of the dispatcher code
// must agree with this program's on every event type and queue.
TEST(CustomDispatcher, EventsCrossModulesBothWays) {
  void* plugin = dlopen(NORVANE_DISPATCHER_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(plugin, nullptr) << dlerror();
  const auto attach = reinterpret_cast<plugin_attach_fn>(dlsym(plugin, "plugin_attach"));
  const auto detach = reinterpret_cast<plugin_detach_fn>(dlsym(plugin, "plugin_detach"));
  const auto send = reinterpret_cast<plugin_send_fn>(dlsym(plugin, "plugin_send"));
  const auto reply_id = reinterpret_cast<plugin_reply_id_fn>(dlsym(plugin, "plugin_reply_id"));
  ASSERT_TRUE(attach && detach && send && reply_id);
  EXPECT_EQ(reply_id(), event_type_id<plugin_events::reply>());
  {
    custom_dispatcher<> d;
    std::vector<int> replies;
    struct collector {
      std::vector<int>* out;
      void on_reply(const plugin_events::reply& r) { out->push_back(r.value); }
    } collect{&replies};
    // The plugin makes the reply queues; this program the request queue,
    // to which the plugin connects.
    send(d, event_type_id<plugin_events::reply>(), 1);
    send(d, 42, 2);
    d.sink<plugin_events::reply>().connect<&collector::on_reply>(collect);
    d.sink<plugin_events::reply>(42).connect<&collector::on_reply>(collect);
    d.update();
    EXPECT_EQ(replies, (std::vector<int>{1, 2}));
    d.enqueue<plugin_events::request>(10);
    attach(d);
    d.update();
    d.update();
    EXPECT_EQ(replies, (std::vector<int>{1, 2, 20}));
    EXPECT_EQ(d.size(), 0u);
    detach(d);
    d.trigger(plugin_events::request{30});
    EXPECT_EQ(d.size(), 0u);
  }
  dlclose(plugin);
}

}  // namespace
}  // namespace norvane
