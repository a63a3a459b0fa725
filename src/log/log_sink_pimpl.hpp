// The record behind every log_sink: the spdlog sink that does the writing.
#pragma once

#include <spdlog/sinks/sink.h>

#include <memory>

namespace norvane {

struct log_sink_pimpl {
  explicit log_sink_pimpl(std::shared_ptr<spdlog::sinks::sink> s) noexcept : sink(std::move(s)) {}

  std::shared_ptr<spdlog::sinks::sink> sink;
};

}  // namespace norvane
