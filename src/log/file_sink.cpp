// Writing, rotating and reopening a log file. Every step of a rotation keeps
// the current file open until its successor is open, so no failure on the
// way loses a line or leaves the sink without a file.
#include "log/file_sink.hpp"

#include <spdlog/common.h>
#include <spdlog/details/null_mutex.h>

#include <mutex>
#include <system_error>

namespace norvane::details {

namespace fs = std::filesystem;

fs::path numbered_file(const fs::path& path, std::size_t index) {
  auto name = path.stem();
  name += "." + std::to_string(index);
  name += path.extension();
  return path.parent_path() / name;
}

template <typename Mutex>
file_sink<Mutex>::file_sink(fs::path path, bool truncate, std::unique_ptr<spdlog::formatter> formatter,
                            file_rotation rotation)
    : spdlog::sinks::base_sink<Mutex>(std::move(formatter)), path_(std::move(path)), rotation_(rotation) {
  file_ = open_file(truncate);
  if (rotation_.max_size_bytes != 0) {
    file_size_bytes_ = file_->size();
  }
}

template <typename Mutex>
std::string file_sink<Mutex>::reopen() {
  std::lock_guard<Mutex> lock(this->mutex_);
  try {
    file_ = open_file(false);
    file_size_bytes_ = rotation_.max_size_bytes != 0 ? file_->size() : 0;
  } catch (const spdlog::spdlog_ex& e) {
    return e.what();
  }
  return {};
}

template <typename Mutex>
void file_sink<Mutex>::sink_it_(const spdlog::details::log_msg& msg) {
  spdlog::memory_buf_t line;
  this->formatter_->format(msg, line);
  std::string failure;
  // A line is never split: one longer than the limit gets a file of its own.
  if (rotation_.max_size_bytes != 0 && file_size_bytes_ != 0 &&
      file_size_bytes_ + line.size() > rotation_.max_size_bytes) {
    failure = rotate();
  }
  file_->write(line);
  file_size_bytes_ += line.size();
  // The line is in the file already; the failure goes to the logger's error
  // handler like a failed write.
  if (!failure.empty()) {
    spdlog::throw_spdlog_ex(failure);
  }
}

template <typename Mutex>
void file_sink<Mutex>::flush_() {
  file_->flush();
}

template <typename Mutex>
std::string file_sink<Mutex>::rotate() {
  // After a failure the file grows by one more limit before the next try,
  // instead of every line trying (and reporting) again.
  file_size_bytes_ = 0;
  file_->flush();
  if (auto failure = shift_older_files(); !failure.empty()) {
    return failure;
  }
  try {
    // Without older files to keep, the current one starts again empty.
    file_ = open_file(rotation_.max_files == 0);
  } catch (const spdlog::spdlog_ex& e) {
    return e.what();
  }
  return {};
}

template <typename Mutex>
std::string file_sink<Mutex>::shift_older_files() const {
  std::error_code ec;
  // Moved away or removed with its directory: there is nothing to shift, and
  // opening makes the file (and directory) again.
  if (rotation_.max_files == 0 || !fs::exists(path_, ec)) {
    return {};
  }
  const auto failed = [&](const fs::path& which) {
    return "Failed rotating log file " + which.string() + ": " + ec.message();
  };
  std::size_t last = 0;
  while (last < rotation_.max_files && fs::exists(numbered_file(path_, last + 1), ec)) {
    ++last;
  }
  if (last == rotation_.max_files) {
    if (fs::remove(numbered_file(path_, last), ec); ec) {
      return failed(numbered_file(path_, last));
    }
    --last;
  }
  // Oldest first, stopping at the first failure, so that no rename ever
  // replaces a file that has not moved on yet.
  for (auto index = last; index > 0; --index) {
    if (fs::rename(numbered_file(path_, index), numbered_file(path_, index + 1), ec); ec) {
      return failed(numbered_file(path_, index));
    }
  }
  // Moved away since it was looked at: nothing is left to shift.
  if (fs::rename(path_, numbered_file(path_, 1), ec); ec && ec != std::errc::no_such_file_or_directory) {
    return failed(path_);
  }
  return {};
}

template <typename Mutex>
std::unique_ptr<spdlog::details::file_helper> file_sink<Mutex>::open_file(bool truncate) const {
  auto file = std::make_unique<spdlog::details::file_helper>();
  file->open(path_.native(), truncate);
  return file;
}

template class file_sink<spdlog::details::null_mutex>;
template class file_sink<std::mutex>;

}  // namespace norvane::details
