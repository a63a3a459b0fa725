// A plugin loaded with dlopen by the dispatcher tests.
#include "dispatcher_plugin.hpp"

#define PLUGIN_API extern "C" __attribute__((visibility("default")))
using dispatcher_t = norvane::custom_dispatcher<>;

namespace {
struct responder {
  dispatcher_t* dispatcher = nullptr;
  void on_request(const plugin_events::request& event) {
    dispatcher->enqueue<plugin_events::reply>(event.value * 2);
  }
} the_responder;
}  // namespace

PLUGIN_API void plugin_attach(dispatcher_t& d) {
  the_responder.dispatcher = &d;
  d.sink<plugin_events::request>().connect<&responder::on_request>(the_responder);
}
PLUGIN_API void plugin_detach(dispatcher_t& d) { d.disconnect(the_responder); }
PLUGIN_API void plugin_send(dispatcher_t& d, std::uint32_t id, int value) {
  d.enqueue_hint<plugin_events::reply>(id, value);
}
PLUGIN_API std::uint32_t plugin_reply_id() { return norvane::event_type_id<plugin_events::reply>(); }
