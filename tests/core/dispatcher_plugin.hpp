// What the dispatcher tests share with the plugin they load.
#pragma once

#include <norvane/dispatcher.hpp>

#include <cstdint>

namespace plugin_events {
struct request {
  int value;
};
struct reply {
  int value;
};
}  // namespace plugin_events

// attach: the plugin answers each request with a reply of twice its value
// (detach, same type: it leaves every queue); send: it queues a reply on queue `id`.
using plugin_attach_fn = void (*)(norvane::custom_dispatcher<>&);
using plugin_send_fn = void (*)(norvane::custom_dispatcher<>&, std::uint32_t id, int value);
