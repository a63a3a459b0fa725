// log_stream: a non-virtual facade over one spdlog logger and one sink.
#include "log/log_sink_pimpl.hpp"
#include "log/sdplog_logger.hpp"

namespace norvane {

namespace details {
sdplog_logger::~sdplog_logger() = default;
}

log_stream::pimpl::pimpl(std::string name, std::shared_ptr<log_sink> s)
    : sdplog_logger(std::move(name), s->handle().sink), sink(std::move(s)) {}

log_stream::log_stream(std::string name, log_sink* sink)
    // The no-op deleter is the point: a borrowed sink belongs to the caller.
    : log_stream(std::move(name), std::shared_ptr<log_sink>(sink, [](log_sink*) {})) {}

log_stream::log_stream(std::string name, std::shared_ptr<log_sink> sink)
    : impl_(new pimpl(std::move(name), std::move(sink))) {
  // Silent until somebody chooses a level.
  set_level(log_level::off);
}

log_stream::~log_stream() = default;

const std::string& log_stream::name() const { return impl_->name(); }

log_level log_stream::level() const { return static_cast<log_level>(impl_->level()); }

void log_stream::set_level(log_level level) {
  impl_->set_level(static_cast<spdlog::level::level_enum>(level));
}

bool log_stream::should_log(log_level level) const {
  return impl_->should_log(static_cast<spdlog::level::level_enum>(level));
}

void log_stream::sink_it(log_level, const log_msg& msg) { impl_->deliver(msg.backend()); }

void log_stream::flush() { impl_->flush_sink(); }

}  // namespace norvane
