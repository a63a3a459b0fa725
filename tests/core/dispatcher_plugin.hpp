// The events and entry points shared by the dispatcher tests and the plugin
// they load, which is built with hidden symbols like a real one.
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

// Connects the plugin's listener: each request is answered by a reply of
// twice its value, queued on the same dispatcher.
using plugin_attach_fn = void (*)(norvane::custom_dispatcher<>&);
// Removes the plugin's listener from every queue.
using plugin_detach_fn = void (*)(norvane::custom_dispatcher<>&);
// Queues a reply on the queue `id`, from inside the plugin.
using plugin_send_fn = void (*)(norvane::custom_dispatcher<>&, std::uint32_t id, int value);
// The identifier the plugin computes for the reply type.
using plugin_reply_id_fn = std::uint32_t (*)();
