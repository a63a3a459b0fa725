// Typed events for an application's main loop: custom_dispatcher queues
// events per type and delivers them to the listeners connected for that
// type; signal_dispatcher adds functions postponed to the end of a cycle.
#pragma once

#include <norvane/export.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace norvane {

namespace details {

// One id per event type, counted from 0 by the library so that ids never
// clash. An event type gets one id per loaded module that instantiates its
// dispatcher code with hidden visibility; dispatch within one module, or
// with default visibility, always agrees on the id.
NORVANE_API std::uint32_t next_event_type_id() noexcept;

template <typename Event>
[[gnu::always_inline]] inline std::uint32_t event_type_id() noexcept {
  static const std::uint32_t id = next_event_type_id();
  return id;
}

// The type-erased face of one event type's queue and listeners, all that
// the dispatcher needs to deliver every type in turn.
class dispatcher_handler {
public:
  virtual ~dispatcher_handler() = default;
  // Delivers the queued events to the listeners and empties the queue.
  virtual void publish() = 0;
  virtual void clear() noexcept = 0;
  virtual std::size_t size() const noexcept = 0;
};

template <typename Event, typename Allocator>
class event_handler final : public dispatcher_handler {
  using alloc_traits = std::allocator_traits<Allocator>;

public:
  using call_type = void (*)(void*, Event&);

  explicit event_handler(const Allocator& allocator)
      : events_(event_allocator(allocator)),
        batch_(event_allocator(allocator)),
        listeners_(listener_allocator(allocator)) {}

  // Events enqueued while the queue is being published join the next
  // publish. If a listener throws, the whole batch goes back to the front
  // of the queue, ahead of events enqueued meanwhile, and is delivered
  // again next time.
  void publish() override {
    if (events_.empty()) {
      return;
    }
    // A listener that publishes its own type again gets a batch of its own:
    // batch_ is still being walked further up the stack.
    if (publishing_) {
      std::vector<Event, event_allocator> nested(events_.get_allocator());
      nested.swap(events_);
      deliver_batch(nested);
      return;
    }
    publishing_ = true;
    batch_.swap(events_);
    try {
      deliver_batch(batch_);
    } catch (...) {
      publishing_ = false;
      throw;
    }
    publishing_ = false;
  }

  void trigger(Event& event) {
    const delivery_scope scope(*this);
    deliver(event);
  }

  template <typename... Args>
  void enqueue(Args&&... args) {
    if constexpr (std::is_aggregate_v<Event>) {
      events_.push_back(Event{std::forward<Args>(args)...});
    } else {
      events_.emplace_back(std::forward<Args>(args)...);
    }
  }

  void clear() noexcept override { events_.clear(); }
  std::size_t size() const noexcept override { return events_.size(); }

  void connect(void* instance, call_type call) {
    disconnect(instance, call);
    listeners_.push_back({instance, call});
  }

  // During a delivery removed listeners are only blanked, so that the walk
  // over the list stays valid; the list is compacted when delivery ends.
  void disconnect(void* instance, call_type call) noexcept {
    remove_if([=](const listener& l) { return l.instance == instance && l.call == call; });
  }

  void disconnect(void* instance) noexcept {
    remove_if([=](const listener& l) { return l.instance == instance && l.call != nullptr; });
  }

  std::size_t listener_count() const noexcept {
    std::size_t count = 0;
    for (const auto& l : listeners_) {
      count += l.call != nullptr ? 1 : 0;
    }
    return count;
  }

private:
  struct listener {
    void* instance;
    call_type call;
  };
  using event_allocator = typename alloc_traits::template rebind_alloc<Event>;
  using listener_allocator = typename alloc_traits::template rebind_alloc<listener>;

  class delivery_scope {
  public:
    explicit delivery_scope(event_handler& handler) noexcept : handler_(handler) { ++handler_.depth_; }
    ~delivery_scope() {
      if (--handler_.depth_ == 0 && handler_.has_gaps_) {
        handler_.compact();
      }
    }
    delivery_scope(const delivery_scope&) = delete;
    delivery_scope& operator=(const delivery_scope&) = delete;

  private:
    event_handler& handler_;
  };

  // A listener connected during delivery hears the events after the
  // current one; one disconnected hears nothing more.
  void deliver(Event& event) {
    const auto count = listeners_.size();
    for (std::size_t i = 0; i < count; ++i) {
      const listener l = listeners_[i];
      if (l.call != nullptr) {
        l.call(l.instance, event);
      }
    }
  }

  void deliver_batch(std::vector<Event, event_allocator>& batch) {
    const delivery_scope scope(*this);
    try {
      for (auto& event : batch) {
        deliver(event);
      }
    } catch (...) {
      batch.insert(batch.end(), std::make_move_iterator(events_.begin()),
                   std::make_move_iterator(events_.end()));
      events_.swap(batch);
      batch.clear();
      throw;
    }
    batch.clear();
  }

  template <typename Predicate>
  void remove_if(Predicate matches) noexcept {
    for (auto& l : listeners_) {
      if (matches(l)) {
        l = {nullptr, nullptr};
        has_gaps_ = true;
      }
    }
    if (depth_ == 0 && has_gaps_) {
      compact();
    }
  }

  void compact() noexcept {
    std::erase_if(listeners_, [](const listener& l) { return l.call == nullptr; });
    has_gaps_ = false;
  }

  std::vector<Event, event_allocator> events_;
  // The events being published; kept between publishes for its capacity.
  std::vector<Event, event_allocator> batch_;
  std::vector<listener, listener_allocator> listeners_;
  std::size_t depth_ = 0;
  bool publishing_ = false;
  bool has_gaps_ = false;
};

}  // namespace details

// Connects and disconnects the listeners of one event type. A listener is a
// function taking Event& or const Event&, or a member function called on an
// object the caller keeps alive while connected. Connecting the same
// listener twice keeps one connection.
template <typename Event, typename Allocator>
class dispatcher_sink {
  using handler_type = details::event_handler<Event, Allocator>;

public:
  explicit dispatcher_sink(handler_type& handler) noexcept : handler_(&handler) {}

  template <auto Candidate>
  void connect() {
    static_assert(std::is_invocable_v<decltype(Candidate), Event&>, "the listener must take the event");
    handler_->connect(nullptr, &call_free<Candidate>);
  }

  template <auto Candidate, typename Type>
  void connect(Type& instance) {
    static_assert(std::is_invocable_v<decltype(Candidate), Type&, Event&>,
                  "the listener must take the event");
    handler_->connect(erase(instance), &call_bound<Candidate, Type>);
  }

  template <auto Candidate>
  void disconnect() noexcept {
    handler_->disconnect(nullptr, &call_free<Candidate>);
  }

  template <auto Candidate, typename Type>
  void disconnect(Type& instance) noexcept {
    handler_->disconnect(erase(instance), &call_bound<Candidate, Type>);
  }

  // Every listener bound to `instance`, whatever its member function.
  template <typename Type>
  void disconnect(Type& instance) noexcept {
    handler_->disconnect(erase(instance));
  }

  bool empty() const noexcept { return handler_->listener_count() == 0; }

private:
  template <typename Type>
  static void* erase(Type& instance) noexcept {
    return const_cast<void*>(static_cast<const void*>(std::addressof(instance)));
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

  handler_type* handler_;
};

// Queues typed events and delivers them to their listeners. Each event
// type has one handler, made at its first use; update() walks the types in
// first-use order. Not thread-safe: it belongs to the loop's thread.
template <typename Allocator = std::allocator<void>>
class custom_dispatcher {
  using alloc_traits = std::allocator_traits<Allocator>;
  template <typename Event>
  using handler_type = details::event_handler<Event, Allocator>;

  struct pool {
    std::uint32_t id;
    std::shared_ptr<details::dispatcher_handler> handler;
  };
  using pool_allocator = typename alloc_traits::template rebind_alloc<pool>;
  using index_allocator = typename alloc_traits::template rebind_alloc<details::dispatcher_handler*>;

public:
  using allocator_type = Allocator;

  custom_dispatcher() : custom_dispatcher(allocator_type{}) {}
  explicit custom_dispatcher(const allocator_type& allocator)
      : allocator_(allocator), pools_(pool_allocator(allocator)), index_(index_allocator(allocator)) {}
  custom_dispatcher(custom_dispatcher&&) noexcept = default;
  custom_dispatcher& operator=(custom_dispatcher&&) noexcept = default;
  custom_dispatcher(const custom_dispatcher&) = delete;
  custom_dispatcher& operator=(const custom_dispatcher&) = delete;

  template <typename Event>
  dispatcher_sink<Event, Allocator> sink() {
    return dispatcher_sink<Event, Allocator>(assure<Event>());
  }

  // Delivers a copy of `event` now, whatever is queued.
  template <typename Event>
  void trigger(Event&& event) {
    std::decay_t<Event> copy(std::forward<Event>(event));
    assure<std::decay_t<Event>>().trigger(copy);
  }

  // Builds an event in the queue (braces for aggregates) for the next update.
  template <typename Event, typename... Args>
  void enqueue(Args&&... args) {
    assure<Event>().enqueue(std::forward<Args>(args)...);
  }

  template <typename Event>
  void enqueue(Event&& event) {
    assure<std::decay_t<Event>>().enqueue(std::forward<Event>(event));
  }

  template <typename Event>
  void update() {
    assure<Event>().publish();
  }

  // Types first used during this update are delivered in it too.
  void update() {
    for (std::size_t i = 0; i < pools_.size(); ++i) {
      pools_[i].handler->publish();
    }
  }

  template <typename Event>
  void clear() noexcept {
    if (auto* handler = find<Event>()) {
      handler->clear();
    }
  }

  void clear() noexcept {
    for (auto& p : pools_) {
      p.handler->clear();
    }
  }

  template <typename Event>
  std::size_t size() const noexcept {
    const auto* handler = find<Event>();
    return handler != nullptr ? handler->size() : 0;
  }

  std::size_t size() const noexcept {
    std::size_t total = 0;
    for (const auto& p : pools_) {
      total += p.handler->size();
    }
    return total;
  }

  allocator_type get_allocator() const noexcept { return allocator_; }

private:
  template <typename Event>
  handler_type<Event>* find() const noexcept {
    const auto id = details::event_type_id<Event>();
    return id < index_.size() ? static_cast<handler_type<Event>*>(index_[id]) : nullptr;
  }

  template <typename Event>
  handler_type<Event>& assure() {
    static_assert(std::is_same_v<Event, std::decay_t<Event>>, "events are plain object types");
    if (auto* handler = find<Event>()) [[likely]] {
      return *handler;
    }
    return create<Event>();
  }

  // Out of line, so that the lookup above stays small enough to inline
  // into every enqueue.
  template <typename Event>
  [[gnu::noinline]] handler_type<Event>& create() {
    const auto id = details::event_type_id<Event>();
    using handler_allocator = typename alloc_traits::template rebind_alloc<handler_type<Event>>;
    auto handler = std::allocate_shared<handler_type<Event>>(handler_allocator(allocator_), allocator_);
    auto* raw = handler.get();
    if (id >= index_.size()) {
      index_.resize(id + 1, nullptr);
    }
    pools_.push_back({id, std::move(handler)});
    index_[id] = raw;
    return *raw;
  }

  allocator_type allocator_;
  // Handlers in first-use order, and for each type id its handler (null:
  // none yet), one load away on every enqueue.
  std::vector<pool, pool_allocator> pools_;
  std::vector<details::dispatcher_handler*, index_allocator> index_;
};

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
  pimpl* impl_;
};

}  // namespace norvane
