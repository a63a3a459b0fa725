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

using heard_list = std::vector<std::string>;
struct key {
  int code;
};
struct resized {
  int width, height;
};

// Records what it hears, in order; requeue and quit_after_one change the
// dispatcher while it delivers.
struct listener {
  custom_dispatcher<>* d = nullptr;
  heard_list heard{};
  int requeue_below = 0;
  int throw_on = -1;
  bool publish_at_once = false;
  listener* late = nullptr;  // connected when event 1 arrives
  void on_key(const key& e) { heard.push_back("key " + std::to_string(e.code)); }
  void also(key& e) { heard.push_back("also " + std::to_string(e.code)); }
  void on_resize(resized& e) { heard.push_back(std::to_string(e.width) + "x" + std::to_string(e.height)); }
  void on_text(const std::string& e) { heard.push_back(e); }
  void on_reply(const plugin_events::reply& e) { heard.push_back(std::to_string(e.value)); }
  void send_resize(key& e) { d->enqueue(resized{e.code, e.code}); }
  void requeue(key& e) {
    if (e.code == throw_on) throw std::runtime_error("listener failed");
    heard.push_back(std::to_string(e.code));
    if (e.code < requeue_below) d->enqueue<key>(e.code + 10);
    if (e.code < requeue_below && publish_at_once) d->update<key>();
    if (e.code == 1 && late != nullptr) d->sink<key>().connect<&listener::on_key>(*late);
  }
  void quit_after_one(key& e) {
    heard.push_back(std::to_string(e.code));
    d->sink<key>().disconnect<&listener::quit_after_one>(*this);
  }
};

std::vector<int> free_heard;
void free_listener(key& e) { free_heard.push_back(e.code); }

TEST(CustomDispatcher, UpdateDeliversTypesInFirstUseOrderAndEventsInQueueOrder) {
  custom_dispatcher<> d;
  listener r;
  d.sink<resized>().connect<&listener::on_resize>(r);  // resized is used first
  d.sink<key>().connect<&listener::on_key>(r);
  d.enqueue<key>(1);
  d.enqueue(resized{640, 480});
  d.enqueue(key{2});
  d.enqueue<std::string>(3, 'u');  // no listener: its queue is emptied all the same
  EXPECT_EQ(d.size<key>(), 2u);
  EXPECT_EQ(d.size(), 4u);
  d.trigger(key{9});
  EXPECT_EQ(r.heard, heard_list{"key 9"});
  d.update();
  EXPECT_EQ(r.heard, (heard_list{"key 9", "640x480", "key 1", "key 2"}));
  EXPECT_EQ(d.size(), 0u);
  d.sink<std::string>().connect<&listener::on_text>(r);
  d.enqueue<std::string>("queued");
  d.enqueue<key>(5);
  d.trigger(std::string("now"));
  d.update<key>();
  EXPECT_EQ(d.size<std::string>(), 1u);
  d.clear<std::string>();
  d.update();
  EXPECT_EQ(r.heard, (heard_list{"key 9", "640x480", "key 1", "key 2", "now", "key 5"}));
  EXPECT_EQ(d.size<int>(), 0u);  // asking about an unused type creates nothing
}

TEST(CustomDispatcher, ConnectionsAndDisconnecting) {
  listener r, other;
  free_heard.clear();
  connection outlived;
  {
    custom_dispatcher<> d;
    auto sink = d.sink<key>();
    EXPECT_TRUE(sink.empty());
    auto link = sink.connect<&listener::on_key>(&r);
    sink.connect<&listener::on_key>(r);  // a second connection is not a second delivery
    sink.connect<&listener::also>(r);
    sink.connect<&free_listener>();
    d.sink<key>(7).connect<&listener::also>(&other);
    d.sink<resized>().connect<&listener::on_resize>(other);
    {
      const scoped_connection scoped = d.sink<resized>().connect<&listener::on_resize>(r);
      d.trigger(resized{1, 2});
    }
    d.trigger(resized{3, 4});
    d.trigger(key{1});
    EXPECT_TRUE(link);
    link.release();
    EXPECT_FALSE(link);
    link.release();
    d.trigger(key{2});
    sink.disconnect<&free_listener>();
    sink.disconnect(r);  // every member of r
    d.trigger(key{3});
    EXPECT_TRUE(sink.empty());
    d.trigger(7, key{4});
    d.disconnect(other);  // off every queue at once
    d.trigger(7, key{5});
    d.trigger(resized{5, 6});
    outlived = sink.connect<&free_listener>();
    EXPECT_TRUE(outlived);
  }
  EXPECT_EQ(r.heard, (heard_list{"1x2", "key 1", "also 1", "also 2"}));
  EXPECT_EQ(other.heard, (heard_list{"1x2", "3x4", "also 4"}));
  EXPECT_EQ(free_heard, (std::vector<int>{1, 2}));
  EXPECT_FALSE(outlived);  // the dispatcher is gone: the connection knows, and releasing is harmless
  outlived.release();
}

// What a listener enqueues for the type being delivered waits for the next
// update, also when a later listener throws: the batch stays queued.
TEST(CustomDispatcher, EventsEnqueuedDuringDeliveryOfTheirTypeWaitForTheNextUpdate) {
  custom_dispatcher<> d;
  listener r{.d = &d, .requeue_below = 10}, t{.d = &d, .throw_on = 3};
  d.sink<key>().connect<&listener::requeue>(r);
  d.sink<key>().connect<&listener::send_resize>(r);
  for (int code : {1, 2}) d.enqueue<key>(code);
  d.update();
  EXPECT_EQ(r.heard, (heard_list{"1", "2"}));
  EXPECT_EQ(d.size<key>(), 2u);
  EXPECT_EQ(d.size<resized>(), 0u);  // first used during the update, after key: walked in it
  d.sink<key>().connect<&listener::requeue>(t);
  d.enqueue<key>(3);
  EXPECT_THROW(d.update(), std::runtime_error);
  EXPECT_EQ(d.size<key>(), 4u);  // the batch, then what its delivery enqueued (13)
  t.throw_on = -1;
  d.update();
  EXPECT_EQ(t.heard, (heard_list{"11", "12", "11", "12", "3", "13"}));
  d.update();
  EXPECT_EQ(r.heard, (heard_list{"1", "2", "11", "12", "3", "11", "12", "3", "13", "13"}));
  EXPECT_EQ(d.size(), 0u);
}

TEST(CustomDispatcher, AListenerPublishingItsOwnQueueDeliversWhatItQueuedAtOnce) {
  custom_dispatcher<> d;
  listener r{.d = &d, .requeue_below = 10, .publish_at_once = true}, after;
  d.sink<key>().connect<&listener::requeue>(r);
  d.sink<key>().connect<&listener::on_key>(after);
  for (int round : {0, 1}) {
    d.enqueue<key>(1 + round);
    d.enqueue<key>(3 + round);
    d.update();
  }
  // The nested publish runs inside the first listener's call, before the
  // second listener hears the outer event.
  EXPECT_EQ(r.heard, (heard_list{"1", "11", "3", "13", "2", "12", "4", "14"}));
  EXPECT_EQ(after.heard,
            (heard_list{"key 11", "key 1", "key 13", "key 3", "key 12", "key 2", "key 14", "key 4"}));
  EXPECT_EQ(d.size<key>(), 0u);
}

TEST(CustomDispatcher, ListenersChangedDuringDelivery) {
  custom_dispatcher<> d;
  listener quitter{.d = &d}, late, host{.d = &d, .late = &late};
  d.sink<key>().connect<&listener::quit_after_one>(quitter);
  d.sink<key>().connect<&listener::requeue>(host);
  for (int code : {1, 2, 3}) d.enqueue<key>(code);
  d.update();
  EXPECT_EQ(quitter.heard, heard_list{"1"});
  EXPECT_EQ(host.heard, (heard_list{"1", "2", "3"}));
  // Connected while event 1 was being delivered: hears the events after it,
  // and stays connected, ahead of a listener connected after the update.
  d.sink<key>().connect<&listener::also>(late);
  d.enqueue<key>(4);
  d.update();
  EXPECT_EQ(late.heard, (heard_list{"key 2", "key 3", "key 4", "also 4"}));
}

template <int N>
struct numbered {
  int value;
};
std::vector<int> numbered_heard;
template <int N>
void on_numbered(numbered<N>& e) {
  numbered_heard.push_back(N * 100 + e.value);
}
// Connects every type, then queues one event of each in the reverse order.
template <int... N>
std::vector<int> use_types(custom_dispatcher<>& d, std::integer_sequence<int, N...>) {
  (d.sink<numbered<N>>().template connect<&on_numbered<N>>(), ...);
  constexpr int last = sizeof...(N) - 1;
  (d.enqueue<numbered<last - N>>(last - N), ...);
  return {N * 101 ...};
}

// Far more types than the index starts with: first-use order survives the
// index growing, and a move takes every queue along.
TEST(CustomDispatcher, ManyTypesAndAMove) {
  custom_dispatcher<> first;
  const auto expected = use_types(first, std::make_integer_sequence<int, 40>());
  EXPECT_EQ(first.size(), 40u);
  custom_dispatcher<> moved(std::move(first));
  moved.update();
  EXPECT_EQ(numbered_heard, expected);
  EXPECT_EQ(first.size(), 0u);  // the dispatcher moved from starts over empty
  first.enqueue<numbered<3>>(1);
  EXPECT_EQ(first.size<numbered<3>>() * 10 + moved.size<numbered<3>>(), 10u);
}

// The plugin is built with hidden symbols: its copy of the dispatcher code
// must agree with this program's on every event type and queue.
TEST(CustomDispatcher, EventsCrossModulesBothWays) {
  void* plugin = dlopen(NORVANE_DISPATCHER_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(plugin, nullptr) << dlerror();
  const auto attach = reinterpret_cast<plugin_attach_fn>(dlsym(plugin, "plugin_attach"));
  const auto detach = reinterpret_cast<plugin_attach_fn>(dlsym(plugin, "plugin_detach"));
  const auto send = reinterpret_cast<plugin_send_fn>(dlsym(plugin, "plugin_send"));
  ASSERT_TRUE(attach && detach && send);
  {
    custom_dispatcher<> d;
    listener collect;
    // The plugin makes the reply queues; this program the request queue,
    // to which the plugin connects.
    send(d, reinterpret_cast<std::uint32_t (*)()>(dlsym(plugin, "plugin_reply_id"))(), 1);
    send(d, 42, 2);
    d.sink<plugin_events::reply>().connect<&listener::on_reply>(collect);
    d.sink<plugin_events::reply>(42).connect<&listener::on_reply>(collect);
    d.update();
    d.enqueue<plugin_events::request>(10);
    attach(d);
    d.update();
    d.update();
    EXPECT_EQ(collect.heard, (heard_list{"1", "2", "20"}));
    detach(d);
    d.trigger(plugin_events::request{30});
    EXPECT_EQ(d.size(), 0u);
  }
  dlclose(plugin);
}

}  // namespace
}  // namespace norvane
