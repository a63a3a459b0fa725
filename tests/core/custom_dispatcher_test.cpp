#include <norvane/dispatcher.hpp>

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

}  // namespace
}  // namespace norvane
