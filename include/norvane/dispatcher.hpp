// Typed events for an application's main loop: custom_dispatcher queues
// events per type and delivers them to the listeners connected for that
// type; signal_dispatcher adds functions postponed to the end of a cycle.
#pragma once

#include <norvane/detail/dispatcher_handler.hpp>
#include <norvane/export.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace norvane {

template <typename Allocator>
class custom_dispatcher;

// A main-loop dispatcher: typed events through handle(), plus functions
// postponed with delay_event. update() first delivers every queued typed
// event, then runs the postponed functions once, in order.
class NORVANE_API signal_dispatcher {
public:
  class pimpl;

  signal_dispatcher();
  // Postponed functions still pending are dropped without running.
  ~signal_dispatcher();
  signal_dispatcher(const signal_dispatcher&) = delete;
  signal_dispatcher& operator=(const signal_dispatcher&) = delete;

  custom_dispatcher<std::allocator<void>>& handle() const noexcept;

  void delay_event(std::function<void()> event);

  // A function postponed by a listener during this update runs in it; one
  // postponed by a postponed function is dropped unrun. If a listener or a
  // function throws, the exception leaves at once: is_updating() keeps its
  // value and every postponed function, those already run included, stays
  // for the next update.
  void update();

  // True while typed events are being delivered, not while postponed
  // functions run.
  bool is_updating() const noexcept;

private:
  std::unique_ptr<pimpl> impl_;
};

// The identifier of an event type's default queue, the same in every
// module; named queues take identifiers of the caller's choosing.
template <typename Event>
constexpr std::uint32_t event_type_id() noexcept {
  return details::event_type<Event>::id;
}

// One listener's link to a queue, returned by connect. release() removes the
// listener; it does nothing once the dispatcher is gone or when called twice.
// Connecting the same listener again later makes a link that either
// connection releases.
class connection {
public:
  connection() = default;

  // True until released, and while the dispatcher that made it lives.
  explicit operator bool() const noexcept { return !handler_.expired(); }

  void release() noexcept {
    if (auto handler = handler_.lock()) {
      handler->disconnect(instance_, call_);
    }
    handler_.reset();
  }

private:
  template <typename Event, typename Allocator>
  friend class dispatcher_sink;

  connection(std::weak_ptr<details::dispatcher_handler> handler, const void* instance,
             details::erased_call call) noexcept
      : handler_(std::move(handler)), instance_(instance), call_(call) {}

  std::weak_ptr<details::dispatcher_handler> handler_;
  const void* instance_ = nullptr;
  details::erased_call call_ = nullptr;
};

// A connection released when it goes out of scope.
class scoped_connection {
public:
  scoped_connection() = default;
  scoped_connection(connection link) noexcept : link_(std::move(link)) {}
  ~scoped_connection() { link_.release(); }
  scoped_connection(scoped_connection&& other) noexcept : link_(std::exchange(other.link_, {})) {}
  scoped_connection& operator=(scoped_connection&& other) noexcept {
    if (this != &other) {
      link_.release();
      link_ = std::exchange(other.link_, {});
    }
    return *this;
  }
  scoped_connection(const scoped_connection&) = delete;
  scoped_connection& operator=(const scoped_connection&) = delete;

  explicit operator bool() const noexcept { return static_cast<bool>(link_); }
  void release() noexcept { link_.release(); }

private:
  connection link_;
};

// Connects and disconnects the listeners of one queue. A listener is a
// function taking Event& or const Event&, or a member function called on an
// object (given by reference or by pointer) that the caller keeps alive
// while connected. Connecting the same listener twice keeps one connection.
template <typename Event, typename Allocator>
class dispatcher_sink {
  using handler_type = details::event_handler<Event, Allocator>;

public:
  explicit dispatcher_sink(handler_type& handler) noexcept : handler_(&handler) {}

  template <auto Candidate>
  connection connect() {
    static_assert(std::is_invocable_v<decltype(Candidate), Event&>, "the listener must take the event");
    handler_->connect(nullptr, &call_free<Candidate>, &run<&call_free<Candidate>>);
    return link(nullptr, &call_free<Candidate>);
  }

  template <auto Candidate, typename Type>
  connection connect(Type& instance) {
    static_assert(std::is_invocable_v<decltype(Candidate), Type&, Event&>,
                  "the listener must take the event");
    handler_->connect(erase(instance), &call_bound<Candidate, Type>, &run<&call_bound<Candidate, Type>>);
    return link(erase(instance), &call_bound<Candidate, Type>);
  }

  template <auto Candidate, typename Type>
  connection connect(Type* instance) {
    return connect<Candidate>(*instance);
  }

  template <auto Candidate>
  void disconnect() noexcept {
    handler_->disconnect(nullptr, handler_type::erase(&call_free<Candidate>));
  }

  template <auto Candidate, typename Type>
  void disconnect(Type& instance) noexcept {
    handler_->disconnect(erase(instance), handler_type::erase(&call_bound<Candidate, Type>));
  }

  template <auto Candidate, typename Type>
  void disconnect(Type* instance) noexcept {
    disconnect<Candidate>(*instance);
  }

  // Every listener bound to `instance`, whatever its member function.
  template <typename Type>
  void disconnect(Type& instance) noexcept {
    handler_->disconnect(erase(instance), nullptr);
  }

  template <typename Type>
  void disconnect(Type* instance) noexcept {
    disconnect(*instance);
  }

  bool empty() const noexcept { return handler_->listener_count() == 0; }

private:
  template <typename Type>
  static void* erase(Type& instance) noexcept {
    return const_cast<void*>(static_cast<const void*>(std::addressof(instance)));
  }

  connection link(const void* instance, typename handler_type::call_type call) const noexcept {
    return connection(handler_->weak_from_this(), instance, handler_type::erase(call));
  }

  template <auto Candidate>
  static void call_free(void*, Event& event) {
    std::invoke(Candidate, event);
  }

  template <auto Candidate, typename Type>
  static void call_bound(void* instance, Event& event) {
    // Calling through the member pointer directly lets the compiler inline
    // the listener here; through std::invoke it often does not.
    if constexpr (std::is_member_function_pointer_v<decltype(Candidate)>) {
      (static_cast<Type*>(instance)->*Candidate)(event);
    } else {
      std::invoke(Candidate, *static_cast<Type*>(instance), event);
    }
  }

  template <auto Call>
  static std::size_t run(void* instance, Event* events, std::size_t count, const std::size_t& changes) {
    const std::size_t before = changes;
    for (std::size_t i = 0; i < count; ++i) {
      Call(instance, events[i]);
      if (changes != before) {
        return i + 1;
      }
    }
    return count;
  }

  handler_type* handler_;
};

// Queues typed events and delivers them to their listeners. Each event type
// has a default queue, made at its first use; named queues (an id of the
// caller's choosing) keep several queues of one type apart. update() walks
// every queue in first-use order. Not thread-safe: it belongs to the loop's
// thread, but separate dispatchers may live on separate threads.
template <typename Allocator = std::allocator<void>>
class custom_dispatcher {
  using alloc_traits = std::allocator_traits<Allocator>;
  template <typename Event>
  using handler_type = details::event_handler<Event, Allocator>;
  using pool_allocator =
      typename alloc_traits::template rebind_alloc<std::shared_ptr<details::dispatcher_handler>>;

public:
  using allocator_type = Allocator;

  custom_dispatcher() : custom_dispatcher(allocator_type{}) {}
  explicit custom_dispatcher(const allocator_type& allocator)
      : allocator_(allocator), pools_(pool_allocator(allocator)), index_(allocator) {}
  custom_dispatcher(custom_dispatcher&&) noexcept = default;
  custom_dispatcher& operator=(custom_dispatcher&&) noexcept = default;
  custom_dispatcher(const custom_dispatcher&) = delete;
  custom_dispatcher& operator=(const custom_dispatcher&) = delete;

  template <typename Event>
  dispatcher_sink<Event, Allocator> sink(std::uint32_t id = event_type_id<Event>()) {
    return dispatcher_sink<Event, Allocator>(assure<Event>(id));
  }

  // Delivers `event` now, whatever is queued; listeners see a copy.
  template <typename Event>
  void trigger(Event&& event) {
    trigger(event_type_id<std::decay_t<Event>>(), std::forward<Event>(event));
  }

  template <typename Event>
  void trigger(std::uint32_t id, Event&& event) {
    std::decay_t<Event> copy(std::forward<Event>(event));
    assure<std::decay_t<Event>>(id).trigger(copy);
  }

  // Builds an event from `args` (braces for aggregates; none for a default
  // one) and delivers it now.
  template <typename Event, typename... Args>
  requires details::constructible_event<Event, Args...>
  void trigger(Args&&... args) {
    if constexpr (std::is_aggregate_v<Event>) {
      Event event{std::forward<Args>(args)...};
      assure<Event>(event_type_id<Event>()).trigger(event);
    } else {
      Event event(std::forward<Args>(args)...);
      assure<Event>(event_type_id<Event>()).trigger(event);
    }
  }

  // Queues an event for the next update, built in place from `args`.
  template <typename Event, typename... Args>
  requires details::constructible_event<Event, Args...>
  void enqueue(Args&&... args) { assure<Event>(event_type_id<Event>()).enqueue(std::forward<Args>(args)...); }

  template <typename Event>
  void enqueue(Event&& event) {
    assure<std::decay_t<Event>>(event_type_id<std::decay_t<Event>>()).enqueue(std::forward<Event>(event));
  }

  // As enqueue, on the queue named `id`.
  template <typename Event, typename... Args>
  requires details::constructible_event<Event, Args...>
  void enqueue_hint(std::uint32_t id, Args&&... args) {
    assure<Event>(id).enqueue(std::forward<Args>(args)...);
  }

  template <typename Event>
  void enqueue_hint(std::uint32_t id, Event&& event) {
    assure<std::decay_t<Event>>(id).enqueue(std::forward<Event>(event));
  }

  // Delivers the events queued on one queue.
  template <typename Event>
  void update(std::uint32_t id = event_type_id<Event>()) {
    assure<Event>(id).publish();
  }

  // Every queue, in first-use order; queues first used during this update
  // are delivered in it too.
  void update() {
    for (std::size_t i = 0; i < pools_.size(); ++i) {
      pools_[i]->publish();
    }
  }

  // Drops the events queued on one queue; an unused queue is not made.
  template <typename Event>
  void clear(std::uint32_t id = event_type_id<Event>()) noexcept {
    if (auto* handler = find<Event>(id)) {
      handler->clear();
    }
  }

  void clear() noexcept {
    for (auto& pool : pools_) {
      pool->clear();
    }
  }

  template <typename Event>
  std::size_t size(std::uint32_t id = event_type_id<Event>()) const noexcept {
    const auto* handler = find<Event>(id);
    return handler != nullptr ? handler->size() : 0;
  }

  std::size_t size() const noexcept {
    std::size_t total = 0;
    for (const auto& pool : pools_) {
      total += pool->size();
    }
    return total;
  }

  // Removes every listener bound to `instance` from every queue: the call a
  // listener makes in its destructor.
  template <typename Type>
  void disconnect(Type& instance) noexcept {
    const void* address = std::addressof(instance);
    for (auto& pool : pools_) {
      pool->disconnect(address, nullptr);
    }
  }

  template <typename Type>
  void disconnect(Type* instance) noexcept {
    disconnect(*instance);
  }

  allocator_type get_allocator() const noexcept { return allocator_; }

private:
  template <typename Event>
  handler_type<Event>* find(std::uint32_t id) const noexcept {
    return static_cast<handler_type<Event>*>(index_.template find<Event>(id));
  }

  template <typename Event>
  handler_type<Event>& assure(std::uint32_t id) {
    static_assert(std::is_same_v<Event, std::decay_t<Event>>, "events are plain object types");
    if (auto* handler = index_.template cached<Event>(id)) [[likely]] {
      return *static_cast<handler_type<Event>*>(handler);
    }
    return adopt_or_create<Event>(id);
  }

  // Out of line, so that the lookup above stays small enough to inline
  // into every enqueue.
  template <typename Event>
  [[gnu::noinline]] handler_type<Event>& adopt_or_create(std::uint32_t id) {
    if (auto* handler = index_.template adopt<Event>(id)) {
      return *static_cast<handler_type<Event>*>(handler);
    }
    using handler_allocator = typename alloc_traits::template rebind_alloc<handler_type<Event>>;
    auto handler = std::allocate_shared<handler_type<Event>>(handler_allocator(allocator_), id, allocator_);
    auto& made = *handler;
    pools_.reserve(pools_.size() + 1);
    index_.template insert<Event>(made);
    pools_.push_back(std::move(handler));
    return made;
  }

  allocator_type allocator_;
  // Handlers in first-use order; the index finds one by type and queue id.
  std::vector<std::shared_ptr<details::dispatcher_handler>, pool_allocator> pools_;
  details::handler_index<Allocator> index_;
};

}  // namespace norvane
