// The spdlog logger behind a log_stream, and the stream's private record.
#pragma once

#include <norvane/log.hpp>

#include <spdlog/logger.h>

#include <memory>
#include <string>

namespace norvane {
namespace details {

// The name keeps its historical spelling; streams built on one spdlog sink.
class sdplog_logger : public spdlog::logger {
public:
  sdplog_logger(std::string name, std::shared_ptr<spdlog::sinks::sink> sink)
      : spdlog::logger(std::move(name), std::move(sink)) {}
  ~sdplog_logger() override;

  // Direct, non-virtual calls into spdlog's delivery and flush.
  void deliver(const spdlog::details::log_msg& msg) { spdlog::logger::sink_it_(msg); }
  void flush_sink() { flush_(); }
};

}  // namespace details

class log_stream::pimpl : public details::sdplog_logger {
public:
  pimpl(std::string name, std::shared_ptr<log_sink> s);

  // Keeps the wrapper alive at least as long as the stream.
  std::shared_ptr<log_sink> sink;
};

}  // namespace norvane
