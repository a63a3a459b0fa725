// The sink family: each class picks one spdlog sink and its locking policy.
// The file sinks, which share one file record, are in file_sinks.cpp.
#include "log/log_sink_pimpl.hpp"

#include <norvane/log.hpp>

#include <spdlog/details/console_globals.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/ansicolor_sink.h>
#include <spdlog/sinks/dist_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <mutex>

namespace norvane {

namespace {

using details::make_pimpl;

template <typename Mutex>
void replace_targets(const log_sink_pimpl& impl, const std::vector<std::shared_ptr<log_sink>>& sinks) {
  std::vector<std::shared_ptr<spdlog::sinks::sink>> targets;
  targets.reserve(sinks.size());
  for (const auto& s : sinks) {
    targets.push_back(s->handle().sink);
  }
  static_cast<spdlog::sinks::dist_sink<Mutex>&>(*impl.sink).set_sinks(std::move(targets));
}

using null_mutex = spdlog::details::null_mutex;
using console_nullmutex = spdlog::details::console_nullmutex;
using console_mutex = spdlog::details::console_mutex;

}  // namespace

log_sink::log_sink(log_sink_pimpl& impl) noexcept : impl_(&impl) {}

log_sink::~log_sink() = default;

log_sink_null::log_sink_null() : log_sink(make_pimpl<spdlog::sinks::null_sink<null_mutex>>()) {}
log_sink_null::~log_sink_null() = default;

// spdlog's own thread-safe null sink is the same type: there is nothing to lock.
log_sink_null_threaded::log_sink_null_threaded()
    : log_sink(make_pimpl<spdlog::sinks::null_sink<null_mutex>>()) {}
log_sink_null_threaded::~log_sink_null_threaded() = default;

log_sink_stdout::log_sink_stdout() : log_sink(make_pimpl<spdlog::sinks::stdout_sink<console_nullmutex>>()) {}
log_sink_stdout::~log_sink_stdout() = default;

log_sink_stdout_threaded::log_sink_stdout_threaded()
    : log_sink(make_pimpl<spdlog::sinks::stdout_sink<console_mutex>>()) {}
log_sink_stdout_threaded::~log_sink_stdout_threaded() = default;

log_sink_stdout_colour::log_sink_stdout_colour()
    : log_sink(make_pimpl<spdlog::sinks::ansicolor_stdout_sink<console_nullmutex>>(
          spdlog::color_mode::automatic)) {}
log_sink_stdout_colour::~log_sink_stdout_colour() = default;

log_sink_stdout_colour_threaded::log_sink_stdout_colour_threaded()
    : log_sink(
          make_pimpl<spdlog::sinks::ansicolor_stdout_sink<console_mutex>>(spdlog::color_mode::automatic)) {}
log_sink_stdout_colour_threaded::~log_sink_stdout_colour_threaded() = default;

log_sink_stderr::log_sink_stderr() : log_sink(make_pimpl<spdlog::sinks::stderr_sink<console_nullmutex>>()) {}
log_sink_stderr::~log_sink_stderr() = default;

log_sink_stderr_threaded::log_sink_stderr_threaded()
    : log_sink(make_pimpl<spdlog::sinks::stderr_sink<console_mutex>>()) {}
log_sink_stderr_threaded::~log_sink_stderr_threaded() = default;

log_sink_stderr_colour::log_sink_stderr_colour()
    : log_sink(make_pimpl<spdlog::sinks::ansicolor_stderr_sink<console_nullmutex>>(
          spdlog::color_mode::automatic)) {}
log_sink_stderr_colour::~log_sink_stderr_colour() = default;

log_sink_stderr_colour_threaded::log_sink_stderr_colour_threaded()
    : log_sink(
          make_pimpl<spdlog::sinks::ansicolor_stderr_sink<console_mutex>>(spdlog::color_mode::automatic)) {}
log_sink_stderr_colour_threaded::~log_sink_stderr_colour_threaded() = default;

log_sink_distribution::log_sink_distribution()
    : log_sink(make_pimpl<spdlog::sinks::dist_sink<null_mutex>>()) {}
log_sink_distribution::~log_sink_distribution() = default;

void log_sink_distribution::set_sinks(const std::vector<std::shared_ptr<log_sink>>& sinks) {
  replace_targets<null_mutex>(handle(), sinks);
}

log_sink_distribution_threaded::log_sink_distribution_threaded()
    : log_sink(make_pimpl<spdlog::sinks::dist_sink<std::mutex>>()) {}
log_sink_distribution_threaded::~log_sink_distribution_threaded() = default;

void log_sink_distribution_threaded::set_sinks(const std::vector<std::shared_ptr<log_sink>>& sinks) {
  replace_targets<std::mutex>(handle(), sinks);
}

}  // namespace norvane
