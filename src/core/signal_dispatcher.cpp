// The main-loop dispatcher: typed events first, then postponed functions.
#include <norvane/dispatcher.hpp>

namespace norvane {

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
  details::deliver_or_requeue(running, impl_->delayed_events, [](auto& events) {
    for (auto& event : events) {
      event();
    }
  });
  impl_->delayed_events.clear();
  // Keep the batch's storage for the next cycle.
  impl_->delayed_events.swap(running);
}

bool signal_dispatcher::is_updating() const noexcept { return impl_->updating; }

}  // namespace norvane
