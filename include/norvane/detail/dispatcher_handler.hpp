// The machinery behind custom_dispatcher: event type identity, one handler
// per queue (its events and listeners), and the index that finds a handler
// from a type and a queue id without hashing at run time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace norvane::details {

template <typename Type>
constexpr const char* signature_of() noexcept {
  return __PRETTY_FUNCTION__;
}

// The type's name as the compiler spells it in a signature: "Type = name]"
// on both g++ and clang, so the name ends at the last bracket.
template <typename Type>
constexpr std::string_view type_name_of() noexcept {
  constexpr std::string_view signature = signature_of<Type>();
  constexpr std::string_view marker = "Type = ";
  constexpr auto first = signature.find(marker) + marker.size();
  return signature.substr(first, signature.rfind(']') - first);
}

constexpr std::uint32_t fnv1a_32(std::string_view text) noexcept {
  std::uint32_t hash = 2166136261u;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  }
  return hash;
}

constexpr std::uint64_t fnv1a_64(std::string_view text) noexcept {
  std::uint64_t hash = 14695981039346656037ull;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
  }
  return hash;
}

// An event type's identity, computed from its name at compile time so that
// every module agrees on it, whatever its symbol visibility. `id` keys the
// type's default queue; `check`, a second hash of the name, spreads the
// types that share one named queue id over the index.
template <typename Type>
struct event_type {
  static constexpr std::string_view name = type_name_of<Type>();
  static constexpr std::uint32_t id = fnv1a_32(name);
  static constexpr std::uint32_t check = static_cast<std::uint32_t>(fnv1a_64(name) >> 32);
};

// A listener function with its event type erased, so that a connection can
// name it without knowing the event.
using erased_call = void (*)();

// The type-erased face of one queue with its listeners: what the dispatcher
// needs to deliver, count and disconnect across every queue.
class dispatcher_handler : public std::enable_shared_from_this<dispatcher_handler> {
public:
  dispatcher_handler(std::uint32_t id, std::uint32_t check, std::string_view type_name) noexcept
      : id_(id), check_(check), type_name_(type_name) {}
  virtual ~dispatcher_handler() = default;
  dispatcher_handler(const dispatcher_handler&) = delete;
  dispatcher_handler& operator=(const dispatcher_handler&) = delete;

  // Delivers the queued events to the listeners and empties the queue.
  virtual void publish() = 0;
  virtual void clear() noexcept = 0;
  virtual std::size_t size() const noexcept = 0;
  // Removes the listeners bound to `instance` through `call`, or through
  // any function when `call` is null.
  virtual void disconnect(const void* instance, erased_call call) noexcept = 0;

  std::uint32_t id() const noexcept { return id_; }
  std::uint32_t check() const noexcept { return check_; }
  std::string_view type_name() const noexcept { return type_name_; }

private:
  std::uint32_t id_;
  std::uint32_t check_;
  // Points into the module that made the handler: a module that is unloaded
  // must not have made handlers of a dispatcher that outlives it.
  std::string_view type_name_;
};

// Delivers `batch` through `deliver(batch)`. If that throws, the whole
// batch, followed by what was queued meanwhile, becomes the queue again and
// the exception leaves: nothing is lost and everything is delivered next time.
template <typename Vector, typename Deliver>
void deliver_or_requeue(Vector& batch, Vector& queue, Deliver&& deliver) {
  try {
    deliver(batch);
  } catch (...) {
    batch.insert(batch.end(), std::make_move_iterator(queue.begin()), std::make_move_iterator(queue.end()));
    queue.swap(batch);
    batch.clear();
    throw;
  }
  batch.clear();
}

// Aggregates are built with braces, other types through a constructor.
template <typename Event, typename... Args>
concept constructible_event = (std::is_aggregate_v<Event> &&
                               requires(Args && ... args) { Event{std::forward<Args>(args)...}; }) ||
                              (!std::is_aggregate_v<Event> && std::is_constructible_v<Event, Args...>);

template <typename Event, typename Allocator>
class event_handler final : public dispatcher_handler {
  using alloc_traits = std::allocator_traits<Allocator>;

public:
  using call_type = void (*)(void*, Event&);
  // Delivers events[0, count) to one listener, one at a time, and stops
  // early after an event during which `changes` moved; returns how many
  // events it delivered.
  using run_type = std::size_t (*)(void*, Event* events, std::size_t count, const std::size_t& changes);

  event_handler(std::uint32_t id, const Allocator& allocator)
      : dispatcher_handler(id, event_type<Event>::check, event_type<Event>::name),
        events_(event_allocator(allocator)),
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
    // A listener that publishes its own queue again gets a batch of its
    // own: batch_ is still being walked further up the stack.
    if (publishing_) {
      std::vector<Event, event_allocator> nested(events_.get_allocator());
      nested.swap(events_);
      deliver_batch(nested);
      take_back(nested);
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
    take_back(batch_);
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

  void connect(void* instance, call_type call, run_type run) {
    disconnect(instance, erase(call));
    listeners_.push_back({instance, call, run});
    ++changes_;
  }

  // During a delivery removed listeners are only blanked, so that the walk
  // over the list stays valid; the list is compacted when delivery ends.
  void disconnect(const void* instance, erased_call call) noexcept override {
    for (auto& l : listeners_) {
      if (l.call != nullptr && l.instance == instance && (call == nullptr || erase(l.call) == call)) {
        l = {nullptr, nullptr, nullptr};
        has_gaps_ = true;
        ++changes_;
      }
    }
    if (depth_ == 0 && has_gaps_) {
      compact();
    }
  }

  std::size_t listener_count() const noexcept {
    std::size_t count = 0;
    for (const auto& l : listeners_) {
      count += l.call != nullptr ? 1 : 0;
    }
    return count;
  }

  static erased_call erase(call_type call) noexcept { return reinterpret_cast<erased_call>(call); }

private:
  struct listener {
    void* instance;
    call_type call;
    run_type run;
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
  void deliver(Event& event) { deliver(event, 0, listeners_.size()); }

  void deliver(Event& event, std::size_t first, std::size_t count) {
    for (std::size_t i = first; i < count; ++i) {
      // Two plain loads: a copy of the whole entry goes through the stack.
      const call_type call = listeners_[i].call;
      void* const instance = listeners_[i].instance;
      if (call != nullptr) {
        call(instance, event);
      }
    }
  }

  // A sole listener takes the batch in one call, the listener inlined in
  // its loop; several listeners are walked with the list held in registers.
  // Either way, as soon as the listeners change, delivery goes on from the
  // next event with the list as it now is.
  void deliver_all(std::vector<Event, event_allocator>& batch) {
    Event* const events = batch.data();
    const std::size_t total = batch.size();
    for (std::size_t done = 0; done < total;) {
      if (listeners_.size() == 1 && listeners_.front().run != nullptr) {
        const listener l = listeners_.front();
        done += l.run(l.instance, events + done, total - done, changes_);
      } else {
        done += walk(events + done, total - done);
      }
    }
  }

  // Delivers events[0, count) to every listener, event by event, and stops
  // after an event during which the listeners changed; returns how many
  // events it delivered. Until a change the list cannot have moved; after
  // one, the rest of the event goes through deliver()'s rules: entries are
  // only blanked during delivery, so their positions still hold.
  std::size_t walk(Event* events, std::size_t count) {
    const std::size_t before = changes_;
    const listener* const list = listeners_.data();
    const std::size_t listeners = listeners_.size();
    for (std::size_t e = 0; e < count; ++e) {
      for (std::size_t i = 0; i < listeners; ++i) {
        if (list[i].call == nullptr) {
          continue;
        }
        list[i].call(list[i].instance, events[e]);
        if (changes_ != before) [[unlikely]] {
          deliver(events[e], i + 1, listeners);
          return e + 1;
        }
      }
    }
    return count;
  }

  void deliver_batch(std::vector<Event, event_allocator>& batch) {
    const delivery_scope scope(*this);
    deliver_or_requeue(batch, events_, [this](auto& events) { deliver_all(events); });
  }

  // The delivered batch's storage becomes the queue again when nothing was
  // enqueued meanwhile, so that a steady loop keeps filling the one buffer
  // that is still in cache instead of alternating between two.
  void take_back(std::vector<Event, event_allocator>& delivered) noexcept {
    if (events_.empty()) {
      events_.swap(delivered);
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
  // Counts connections and disconnections, for deliver_all to notice them.
  std::size_t changes_ = 0;
  bool publishing_ = false;
  bool has_gaps_ = false;
};

// An object of each event type whose address tells the types apart within
// one module, at no cost; across modules the type's name does.
template <typename Type>
inline constexpr char event_token = 0;

// Finds the handler of (queue id, event type) by open addressing. A slot
// remembers the token of the module that last found it, so a lookup is a
// mask, a few loads and two comparisons, with no hashing and no shared
// state: any number of dispatchers on any threads stay independent. A
// module whose token differs (another module, or another type with the
// same id) finds the handler by comparing names once, after which the slot
// carries its token. Every module that used a dispatcher stays loaded while
// it lives.
template <typename Allocator>
class handler_index {
  struct slot {
    const void* token;
    std::uint32_t id;
    dispatcher_handler* handler;
  };
  using slot_allocator = typename std::allocator_traits<Allocator>::template rebind_alloc<slot>;
  // Stands for the table until the first handler arrives, so that a lookup
  // needs no test for an empty table: it misses here like anywhere else.
  static constexpr slot no_slot{nullptr, 0, nullptr};

public:
  explicit handler_index(const Allocator& allocator) : slots_(slot_allocator(allocator)) {}
  handler_index(handler_index&& other) noexcept
      : slots_(std::move(other.slots_)),
        table_(std::exchange(other.table_, &no_slot)),
        mask_(std::exchange(other.mask_, 0)),
        used_(std::exchange(other.used_, 0)) {
    other.slots_.clear();
  }
  handler_index& operator=(handler_index&& other) noexcept {
    slots_ = std::move(other.slots_);
    table_ = std::exchange(other.table_, &no_slot);
    mask_ = std::exchange(other.mask_, 0);
    used_ = std::exchange(other.used_, 0);
    other.slots_.clear();
    return *this;
  }
  handler_index(const handler_index&) = delete;
  handler_index& operator=(const handler_index&) = delete;

  // The handler this module last found for (id, Event), or null: the hot
  // path of every enqueue, inlined there.
  template <typename Event>
  [[gnu::always_inline]] dispatcher_handler* cached(std::uint32_t id) const noexcept {
    const slot& home = table_[position(id, event_type<Event>::check)];
    return home.token == &event_token<Event> && home.id == id ? home.handler : nullptr;
  }

  template <typename Event>
  dispatcher_handler* find(std::uint32_t id) const noexcept {
    if (auto* handler = cached<Event>(id)) [[likely]] {
      return handler;
    }
    const slot* found = probe(id, event_type<Event>::check, event_type<Event>::name);
    return found != nullptr ? found->handler : nullptr;
  }

  // As find() after a miss in cached(); the slot found by name takes this
  // module's token.
  template <typename Event>
  dispatcher_handler* adopt(std::uint32_t id) noexcept {
    const slot* found = probe(id, event_type<Event>::check, event_type<Event>::name);
    if (found == nullptr) {
      return nullptr;
    }
    slots_[static_cast<std::size_t>(found - table_)].token = &event_token<Event>;
    return found->handler;
  }

  // Adds a handler that find() does not know yet.
  template <typename Event>
  void insert(dispatcher_handler& handler) {
    if ((used_ + 1) * 2 > mask_) {
      grow();
    }
    place({&event_token<Event>, handler.id(), &handler});
  }

private:
  std::size_t position(std::uint32_t id, std::uint32_t check) const noexcept { return (id ^ check) & mask_; }

  const slot* probe(std::uint32_t id, std::uint32_t check, std::string_view name) const noexcept {
    for (std::size_t i = position(id, check);; i = (i + 1) & mask_) {
      const slot& s = table_[i];
      if (s.handler == nullptr) {
        return nullptr;
      }
      if (s.id == id && s.handler->check() == check && s.handler->type_name() == name) {
        return &s;
      }
    }
  }

  void place(const slot& entry) {
    std::size_t i = position(entry.id, entry.handler->check());
    while (slots_[i].handler != nullptr) {
      i = (i + 1) & mask_;
    }
    slots_[i] = entry;
    ++used_;
  }

  void grow() {
    std::vector<slot, slot_allocator> old(slots_.get_allocator());
    old.swap(slots_);
    slots_.assign(mask_ == 0 ? 8 : (mask_ + 1) * 2, slot{nullptr, 0, nullptr});
    table_ = slots_.data();
    mask_ = static_cast<std::uint32_t>(slots_.size() - 1);
    used_ = 0;
    for (const auto& s : old) {
      if (s.handler != nullptr) {
        place(s);
      }
    }
  }

  std::vector<slot, slot_allocator> slots_;
  // slots_.data(), or no_slot while there are no slots.
  const slot* table_ = &no_slot;
  // slots_.size() - 1, or 0. 32 bits wide, so that an event's 64-bit
  // fields written by an enqueue cannot alias it.
  std::uint32_t mask_ = 0;
  std::size_t used_ = 0;
};

}  // namespace norvane::details
