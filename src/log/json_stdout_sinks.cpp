// JSON lines on standard output: spdlog's console sinks with the JSON-lines
// layout in place of the default one.
#include "log/json_lines_formatter.hpp"
#include "log/log_sink_pimpl.hpp"

#include <norvane/log.hpp>

#include <spdlog/details/console_globals.h>
#include <spdlog/sinks/stdout_sinks.h>

namespace norvane {

namespace {

template <typename ConsoleMutex>
log_sink_pimpl& make_json_stdout() {
  auto sink = std::make_shared<spdlog::sinks::stdout_sink<ConsoleMutex>>();
  sink->set_formatter(std::make_unique<details::json_lines_formatter>());
  return *new log_sink_pimpl(std::move(sink));
}

}  // namespace

log_sink_json_stdout::log_sink_json_stdout()
    : log_sink(make_json_stdout<spdlog::details::console_nullmutex>()) {}
log_sink_json_stdout::~log_sink_json_stdout() = default;

log_sink_json_stdout_threaded::log_sink_json_stdout_threaded()
    : log_sink(make_json_stdout<spdlog::details::console_mutex>()) {}
log_sink_json_stdout_threaded::~log_sink_json_stdout_threaded() = default;

}  // namespace norvane
