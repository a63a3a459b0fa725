// Named log streams, the sinks they write to, the registry of named loggers
// and the library's own logger. spdlog does the work underneath; no spdlog
// header is needed to use this one.
#pragma once

#include <norvane/export.hpp>

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace spdlog::details {
struct log_msg;
}

namespace norvane {

// Severity, with spdlog's level numbers. A stream passes a message whose
// level is at or above its threshold; `off` is a threshold only.
enum class log_level : std::int32_t {
  trace = 0,
  debug = 1,
  info = 2,
  warning = 3,
  error = 4,
  critical = 5,
  off = 6,
};

// One record on its way from a stream to its sink. It views the logger name
// and the formatted text without copying them, so it must not outlive
// either; the time stamp and thread id are taken at construction.
class NORVANE_API log_msg {
public:
  log_msg(std::string_view logger_name, log_level level, std::string_view payload);
  ~log_msg();
  log_msg(const log_msg&) = delete;
  log_msg& operator=(const log_msg&) = delete;

  const spdlog::details::log_msg& backend() const noexcept { return *impl_; }

private:
  std::unique_ptr<spdlog::details::log_msg> impl_;
};

struct log_sink_pimpl;

// A destination for log records. The concrete classes below choose which
// spdlog sink does the writing; `_threaded` classes serialise concurrent
// writes with a mutex, the others are for one thread at a time.
class NORVANE_API log_sink {
public:
  // Adopts a heap-allocated record: the sink frees it.
  explicit log_sink(log_sink_pimpl& impl) noexcept;
  virtual ~log_sink();
  log_sink(const log_sink&) = delete;
  log_sink& operator=(const log_sink&) = delete;

  // The record holding the spdlog sink. Streams copy its shared handle, so
  // the spdlog sink outlives this wrapper while any stream uses it.
  log_sink_pimpl& handle() const noexcept { return *impl_; }

private:
  std::unique_ptr<log_sink_pimpl> impl_;
};

// Swallows every message.
class NORVANE_API log_sink_null : public log_sink {
public:
  log_sink_null();
  ~log_sink_null() override;
};

class NORVANE_API log_sink_null_threaded : public log_sink {
public:
  log_sink_null_threaded();
  ~log_sink_null_threaded() override;
};

// Standard output, plain.
class NORVANE_API log_sink_stdout : public log_sink {
public:
  log_sink_stdout();
  ~log_sink_stdout() override;
};

// Shares the process-wide console mutex with log_sink_stdout_colour_threaded,
// so lines from the two never interleave.
class NORVANE_API log_sink_stdout_threaded : public log_sink {
public:
  log_sink_stdout_threaded();
  ~log_sink_stdout_threaded() override;
};

// Standard output with the level coloured, only when it is a terminal.
class NORVANE_API log_sink_stdout_colour : public log_sink {
public:
  log_sink_stdout_colour();
  ~log_sink_stdout_colour() override;
};

class NORVANE_API log_sink_stdout_colour_threaded : public log_sink {
public:
  log_sink_stdout_colour_threaded();
  ~log_sink_stdout_colour_threaded() override;
};

// Standard error, for programs whose standard output is their result. The
// stderr sinks share the console mutex with the stdout ones.
class NORVANE_API log_sink_stderr : public log_sink {
public:
  log_sink_stderr();
  ~log_sink_stderr() override;
};

class NORVANE_API log_sink_stderr_threaded : public log_sink {
public:
  log_sink_stderr_threaded();
  ~log_sink_stderr_threaded() override;
};

// Standard error with the level coloured, only when it is a terminal.
class NORVANE_API log_sink_stderr_colour : public log_sink {
public:
  log_sink_stderr_colour();
  ~log_sink_stderr_colour() override;
};

class NORVANE_API log_sink_stderr_colour_threaded : public log_sink {
public:
  log_sink_stderr_colour_threaded();
  ~log_sink_stderr_colour_threaded() override;
};

// A file, appended to unless `truncate` is true. A file that cannot be
// opened throws spdlog::spdlog_ex (a std::exception) from here; missing
// parent directories are made.
class NORVANE_API log_sink_file : public log_sink {
public:
  log_sink_file(const std::filesystem::path& path, bool truncate);
  ~log_sink_file() override;
  // For rotation by another program (logrotate moves the file, then tells
  // the application): the next line goes to a new file at the original
  // path. False, with one error line through the library logger, when that
  // file cannot be opened; the sink then keeps writing to the file it had.
  bool reopen();
};

class NORVANE_API log_sink_file_threaded : public log_sink {
public:
  log_sink_file_threaded(const std::filesystem::path& path, bool truncate);
  ~log_sink_file_threaded() override;
  // As log_sink_file::reopen; safe while other threads log.
  bool reopen();
};

// Fans each message out to a list of targets, in list order. The list keeps
// the targets' spdlog sinks, so the given wrappers may be destroyed after
// set_sinks. Starts with no targets.
class NORVANE_API log_sink_distribution : public log_sink {
public:
  log_sink_distribution();
  ~log_sink_distribution() override;
  // Replaces the whole list; duplicates are kept, an empty vector clears it.
  void set_sinks(const std::vector<std::shared_ptr<log_sink>>& sinks);
};

class NORVANE_API log_sink_distribution_threaded : public log_sink {
public:
  log_sink_distribution_threaded();
  ~log_sink_distribution_threaded() override;
  // Safe against concurrent logging: the list is swapped under the sink's mutex.
  void set_sinks(const std::vector<std::shared_ptr<log_sink>>& sinks);
};

// A file with a size limit, appended to. When the next line would take it
// past `max_size_bytes`, app.log becomes app.1.log, app.1.log app.2.log and
// so on, the one past `max_files` is removed, and a new app.log starts. A
// line is never split: one longer than the limit gets a file of its own.
// `max_files` 0 keeps no older file: app.log starts again empty. A limit of
// 0 bytes, like a file that cannot be opened, throws spdlog::spdlog_ex. A
// rotation that fails (a rename refused) goes to spdlog's error handler as a
// write failure does; the line is still written and the next try comes one
// limit later. A directory removed while the sink runs is made again at the
// next rotation or reopen().
class NORVANE_API log_sink_rotating_file : public log_sink {
public:
  log_sink_rotating_file(const std::filesystem::path& path, std::size_t max_size_bytes,
                         std::size_t max_files);
  ~log_sink_rotating_file() override;
  // As log_sink_file::reopen.
  bool reopen();
};

class NORVANE_API log_sink_rotating_file_threaded : public log_sink {
public:
  log_sink_rotating_file_threaded(const std::filesystem::path& path, std::size_t max_size_bytes,
                                  std::size_t max_files);
  ~log_sink_rotating_file_threaded() override;
  bool reopen();
};

// Records as JSON lines, for programs that read logs, one object per line:
//   {"time":"2026-11-21T10:00:00.123Z","level":"info","logger":"app","msg":"disk 91%
//   full","pid":4242,"thread":4243}
// The time is UTC with milliseconds. Every line is strict JSON whatever the
// message holds: quotes, backslashes and control bytes are escaped, and each
// ill-formed UTF-8 piece becomes U+FFFD. Files as log_sink_file.
class NORVANE_API log_sink_json_file : public log_sink {
public:
  log_sink_json_file(const std::filesystem::path& path, bool truncate);
  ~log_sink_json_file() override;
  // As log_sink_file::reopen.
  bool reopen();
};

class NORVANE_API log_sink_json_file_threaded : public log_sink {
public:
  log_sink_json_file_threaded(const std::filesystem::path& path, bool truncate);
  ~log_sink_json_file_threaded() override;
  bool reopen();
};

class NORVANE_API log_sink_json_stdout : public log_sink {
public:
  log_sink_json_stdout();
  ~log_sink_json_stdout() override;
};

// Shares the process-wide console mutex with the other standard-output sinks.
class NORVANE_API log_sink_json_stdout_threaded : public log_sink {
public:
  log_sink_json_stdout_threaded();
  ~log_sink_json_stdout_threaded() override;
};

// A named logger over one sink. A new stream is silent (level `off`) until
// set_level is called. Hold it through std::shared_ptr; it is not copied.
class NORVANE_API log_stream {
public:
  class pimpl;

  // Borrows the sink: the stream never deletes a sink given by raw pointer,
  // and keeps writing after the caller destroys it.
  log_stream(std::string name, log_sink* sink);
  log_stream(std::string name, std::shared_ptr<log_sink> sink);
  ~log_stream();
  log_stream(const log_stream&) = delete;
  log_stream& operator=(const log_stream&) = delete;

  const std::string& name() const;
  log_level level() const;
  void set_level(log_level level);
  // True exactly when `level` is at or above the threshold.
  bool should_log(log_level level) const;
  // Hands a record to the sink, which applies its own level; sink failures
  // go to spdlog's error handler, never to the caller.
  void sink_it(log_level level, const log_msg& msg);
  void flush();

  // Formats on the calling thread and writes one record. A disabled level
  // returns before formatting anything. A format string that does not
  // match its arguments at run time (fmt::runtime) throws fmt::format_error
  // and writes nothing.
  template <typename... Args>
  void log(log_level level, fmt::format_string<Args...> format, Args&&... args) {
    if (!should_log(level)) {
      return;
    }
    // Short messages are formatted without touching the heap.
    fmt::memory_buffer text;
    fmt::vformat_to(fmt::appender(text), fmt::string_view(format), fmt::make_format_args(args...));
    const log_msg msg(name(), level, std::string_view(text.data(), text.size()));
    sink_it(level, msg);
  }

private:
  std::unique_ptr<pimpl> impl_;
};

using logger_registry = std::unordered_map<std::string, std::shared_ptr<log_stream>>;

namespace details {

// The process-wide registry of named loggers and the defaults with which
// missing loggers are made. Only the three operations taking `lock` are
// safe from several threads (with lock true); the rest belong to start-up.
class NORVANE_API logger_manager {
public:
  static logger_manager& instance();

  // Switches to `registry` (null: back to the manager's own map), copying
  // the entries of the map being left into it; same names are overwritten.
  void install_registry(logger_registry* registry);
  // A null sink installs a fresh log_sink_null_threaded instead.
  void set_default_sink(std::shared_ptr<log_sink> sink);
  std::shared_ptr<log_sink> default_sink() const;
  void set_default_level(log_level level);
  log_level default_level() const;

  // The newest registration under a name wins; returns the stored stream.
  std::shared_ptr<log_stream> register_logger(std::shared_ptr<log_stream> stream, bool lock);
  // A missing name is ignored.
  void unregister_logger(std::string_view name, bool lock);
  // Never null: a missing name is made with the defaults and registered.
  std::shared_ptr<log_stream> get_logger(std::string_view name, bool lock);

  logger_manager(const logger_manager&) = delete;
  logger_manager& operator=(const logger_manager&) = delete;

private:
  logger_manager();
  ~logger_manager();

  log_level default_level_ = log_level::off;
  std::shared_ptr<log_sink> default_sink_;
  logger_registry own_registry_;
  std::mutex mutex_;
  logger_registry* registry_ = &own_registry_;
};

}  // namespace details

NORVANE_API void install_logger_registry(logger_registry* registry);
NORVANE_API void install_default_log_sink(std::shared_ptr<log_sink> sink);
NORVANE_API void set_default_log_level(log_level level);
NORVANE_API std::shared_ptr<log_stream> register_logger(std::shared_ptr<log_stream> stream, bool lock = true);
NORVANE_API void unregister_logger(std::string_view name, bool lock = true);
NORVANE_API std::shared_ptr<log_stream> get_logger(std::string_view name, bool lock = true);

// A new stream with the current default sink and level; not registered.
NORVANE_API std::shared_ptr<log_stream> make_default_logger(std::string_view name);

}  // namespace norvane

// Holder of the library's own logger, the stream "norvane" through which
// every part of the library reports its failures. It is made, and
// registered, with the defaults in force at its first use.
struct NORVANE_API norvane_logger {
  static norvane_logger& instance();
  std::shared_ptr<norvane::log_stream> logger;

private:
  norvane_logger();
};

NORVANE_API std::shared_ptr<norvane::log_stream> get_norvane_logger();
// Replaces what get_norvane_logger() returns, null included. The registry
// entry "norvane" is deliberately left as it was.
NORVANE_API void set_norvane_logger(std::shared_ptr<norvane::log_stream> stream);
