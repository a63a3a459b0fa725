// The record behind every log_sink: the spdlog sink that does the writing.
#pragma once

#include <spdlog/sinks/sink.h>

#include <memory>
#include <utility>

namespace norvane {

struct log_sink_pimpl {
  explicit log_sink_pimpl(std::shared_ptr<spdlog::sinks::sink> s) noexcept : sink(std::move(s)) {}

  std::shared_ptr<spdlog::sinks::sink> sink;
};

namespace details {

// A record owning a new `Sink`, for a log_sink constructor to adopt.
template <typename Sink, typename... Args>
log_sink_pimpl& make_pimpl(Args&&... args) {
  // The spdlog sink first: when it throws (a file that cannot be opened)
  // no record has been allocated.
  auto sink = std::make_shared<Sink>(std::forward<Args>(args)...);
  return *new log_sink_pimpl(std::move(sink));
}

}  // namespace details

}  // namespace norvane
