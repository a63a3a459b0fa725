// A plugin loaded with dlopen by the dispatcher tests.
#include "dispatcher_plugin.hpp"

namespace {

struct responder {
  norvane::custom_dispatcher<>* dispatcher = nullptr;
  void on_request(const plugin_events::request& event) {
    dispatcher->enqueue<plugin_events::reply>(event.value * 2);
  }
} the_responder;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void plugin_attach(norvane::custom_dispatcher<>& dispatcher) {
  the_responder.dispatcher = &dispatcher;
  dispatcher.sink<plugin_events::request>().connect<&responder::on_request>(the_responder);
}

__attribute__((visibility("default"))) void plugin_detach(norvane::custom_dispatcher<>& dispatcher) {
  dispatcher.disconnect(the_responder);
}

__attribute__((visibility("default"))) void plugin_send(norvane::custom_dispatcher<>& dispatcher,
                                                        std::uint32_t id, int value) {
  dispatcher.enqueue_hint<plugin_events::reply>(id, value);
}

__attribute__((visibility("default"))) std::uint32_t plugin_reply_id() {
  return norvane::event_type_id<plugin_events::reply>();
}
}
