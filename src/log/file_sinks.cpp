// The file sinks: plain, rotating and JSON lines, all over one file record
// that can be reopened at its original path.
#include "log/file_sink.hpp"
#include "log/json_lines_formatter.hpp"
#include "log/log_sink_pimpl.hpp"

#include <norvane/log.hpp>

#include <spdlog/common.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/pattern_formatter.h>

#include <mutex>

namespace norvane {

namespace {

using details::file_rotation;
using details::file_sink;
using details::make_pimpl;
using null_mutex = spdlog::details::null_mutex;

std::unique_ptr<spdlog::formatter> default_layout() { return std::make_unique<spdlog::pattern_formatter>(); }

std::unique_ptr<spdlog::formatter> json_lines() { return std::make_unique<details::json_lines_formatter>(); }

// Checked before the file is made, so that a refused limit leaves nothing behind.
file_rotation rotation_limits(std::size_t max_size_bytes, std::size_t max_files) {
  if (max_size_bytes == 0) {
    spdlog::throw_spdlog_ex("A rotating log file needs a size limit above 0 bytes");
  }
  return {max_size_bytes, max_files};
}

template <typename Mutex>
bool reopen_file(const log_sink_pimpl& impl) {
  // The report is made after the sink's lock is released: the library
  // logger may write to this very sink.
  const auto failure = static_cast<file_sink<Mutex>&>(*impl.sink).reopen();
  if (failure.empty()) {
    return true;
  }
  if (const auto logger = get_norvane_logger()) {
    logger->log(log_level::error, "{}", failure);
  }
  return false;
}

}  // namespace

log_sink_file::log_sink_file(const std::filesystem::path& path, bool truncate)
    : log_sink(make_pimpl<file_sink<null_mutex>>(path, truncate, default_layout())) {}
log_sink_file::~log_sink_file() = default;
bool log_sink_file::reopen() { return reopen_file<null_mutex>(handle()); }

log_sink_file_threaded::log_sink_file_threaded(const std::filesystem::path& path, bool truncate)
    : log_sink(make_pimpl<file_sink<std::mutex>>(path, truncate, default_layout())) {}
log_sink_file_threaded::~log_sink_file_threaded() = default;
bool log_sink_file_threaded::reopen() { return reopen_file<std::mutex>(handle()); }

log_sink_rotating_file::log_sink_rotating_file(const std::filesystem::path& path, std::size_t max_size_bytes,
                                               std::size_t max_files)
    : log_sink(make_pimpl<file_sink<null_mutex>>(path, false, default_layout(),
                                                 rotation_limits(max_size_bytes, max_files))) {}
log_sink_rotating_file::~log_sink_rotating_file() = default;
bool log_sink_rotating_file::reopen() { return reopen_file<null_mutex>(handle()); }

log_sink_rotating_file_threaded::log_sink_rotating_file_threaded(const std::filesystem::path& path,
                                                                 std::size_t max_size_bytes,
                                                                 std::size_t max_files)
    : log_sink(make_pimpl<file_sink<std::mutex>>(path, false, default_layout(),
                                                 rotation_limits(max_size_bytes, max_files))) {}
log_sink_rotating_file_threaded::~log_sink_rotating_file_threaded() = default;
bool log_sink_rotating_file_threaded::reopen() { return reopen_file<std::mutex>(handle()); }

log_sink_json_file::log_sink_json_file(const std::filesystem::path& path, bool truncate)
    : log_sink(make_pimpl<file_sink<null_mutex>>(path, truncate, json_lines())) {}
log_sink_json_file::~log_sink_json_file() = default;
bool log_sink_json_file::reopen() { return reopen_file<null_mutex>(handle()); }

log_sink_json_file_threaded::log_sink_json_file_threaded(const std::filesystem::path& path, bool truncate)
    : log_sink(make_pimpl<file_sink<std::mutex>>(path, truncate, json_lines())) {}
log_sink_json_file_threaded::~log_sink_json_file_threaded() = default;
bool log_sink_json_file_threaded::reopen() { return reopen_file<std::mutex>(handle()); }

}  // namespace norvane
