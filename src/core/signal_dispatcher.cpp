// The main-loop dispatcher: typed events first, then postponed functions.
#include <norvane/dispatcher.hpp>

#include <atomic>

namespace norvane {

namespace details {

std::uint32_t next_event_type_id() noexcept {
  static std::atomic<std::uint32_t> next{0};
  return next.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace details

class signal_dispatcher::pimpl {
public:
  custom_dispatcher<std::allocator<void>> dispatcher;
  std::vector<std::function<void()>> delayed_events;
  bool updating = false;
};

signal_dispatcher::signal_dispatcher() : impl_(new pimpl) {}

signal_dispatcher::~signal_dispatcher() {
  // Pending functions go before the dispatcher: they may refer to listeners
  // that the dispatcher's handlers still point at.
  impl_->delayed_events.clear();
  delete impl_;
}

custom_dispatcher<std::allocator<void>>& signal_dispatcher::handle() const noexcept {
  return impl_->dispatcher;
}

void signal_dispatcher::delay_event(std::function<void()> event) {
  impl_->delayed_events.push_back(std::move(event));
}

void signal_dispatcher::update() {
  impl_->updating = true;
  impl_->dispatcher.update();
  impl_->updating = false;

  // The functions run from a vector of their own, so that one postponing
  // another cannot move the running function out from under itself; what
  // they postpone lands in delayed_events and is dropped afterwards.
  std::vector<std::function<void()>> running;
  running.swap(impl_->delayed_events);
  try {
    for (auto& event : running) {
      event();
    }
  } catch (...) {
    running.insert(running.end(), std::make_move_iterator(impl_->delayed_events.begin()),
                   std::make_move_iterator(impl_->delayed_events.end()));
    impl_->delayed_events.swap(running);
    throw;
  }
  impl_->delayed_events.clear();
  running.clear();
  // Keep the batch's storage for the next cycle.
  impl_->delayed_events.swap(running);
}

bool signal_dispatcher::is_updating() const noexcept { return impl_->updating; }

}  // namespace norvane
