// lock_file: flock on a file that records its holder.
#include "io/lock_file_pimpl.hpp"
#include "io/retry_eintr.hpp"

#include <norvane/application.hpp>
#include <norvane/log.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <thread>

namespace norvane {
namespace {

const std::error_code busy = std::make_error_code(std::errc::resource_unavailable_try_again);

std::string application_name() {
  if (const auto* app = application_core::instance()) {
    return app->application_name();
  }
  return program_invocation_short_name;
}

std::string host_name() {
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0) {
    return {};
  }
  return name;
}

// One line each: pid, host name, application name.
std::string holder_record() {
  return std::to_string(::getpid()) + "\n" + host_name() + "\n" + application_name() + "\n";
}

// True when `fd` is still the file at `path`: between our open and our
// lock, a previous holder may have removed or replaced it, and a lock on a
// file nobody else can open any more excludes no one.
bool still_at_path(int fd, const std::filesystem::path& path) {
  struct stat held {};
  struct stat named {};
  return ::fstat(fd, &held) == 0 && ::stat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

}  // namespace

std::error_code lock_file::pimpl::try_lock() {
  if (fd != -1) {
    return {};
  }
  // A file replaced under us is opened again; a path replaced endlessly is
  // as good as held by someone else.
  for (int attempt = 0; attempt < 16; ++attempt) {
    // Never O_TRUNC: the file may be another holder's, and its record is
    // only ever rewritten by whoever holds the lock.
    const int f =
        details::retry_on_eintr([&] { return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644); });
    if (f < 0) {
      return {errno, std::generic_category()};
    }
    if (details::retry_on_eintr([&] { return ::flock(f, LOCK_EX | LOCK_NB); }) != 0) {
      const int error = errno;
      ::close(f);
      return error == EWOULDBLOCK ? busy : std::error_code(error, std::generic_category());
    }
    if (!still_at_path(f, path)) {
      ::close(f);
      continue;
    }
    // The record only informs refused callers: a full disk leaves it short
    // but the lock is held all the same.
    const auto record = holder_record();
    if (::pwrite(f, record.data(), record.size(), 0) == static_cast<ssize_t>(record.size())) {
      static_cast<void>(::ftruncate(f, static_cast<off_t>(record.size())));
    }
    fd = f;
    return {};
  }
  return busy;
}

std::error_code lock_file::pimpl::lock(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  auto pause = std::chrono::milliseconds(1);
  for (;;) {
    const auto ec = try_lock();
    if (ec != busy) {
      return ec;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) {
      return std::make_error_code(std::errc::timed_out);
    }
    // flock cannot wait with a time limit: poll, a little less eagerly as
    // the wait goes on.
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(pause, deadline - now));
    pause = std::min(pause * 2, std::chrono::milliseconds(50));
  }
}

void lock_file::pimpl::unlock() noexcept {
  if (fd == -1) {
    return;
  }
  // Emptied while still held, so that nobody reads a stale holder.
  static_cast<void>(::ftruncate(fd, 0));
  ::flock(fd, LOCK_UN);
  ::close(fd);
  fd = -1;
}

lock_file::holder_info lock_file::pimpl::holder() const {
  holder_info info;
  const int f = details::retry_on_eintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); });
  if (f < 0) {
    return info;
  }
  char text[1024];
  const ssize_t n = details::retry_on_eintr([&] { return ::pread(f, text, sizeof text, 0); });
  ::close(f);
  if (n <= 0) {
    return info;
  }
  // A record caught half-written reads as no holder rather than a wrong one.
  const std::string record(text, static_cast<std::size_t>(n));
  const auto first = record.find('\n');
  const auto second = first == std::string::npos ? first : record.find('\n', first + 1);
  const auto third = second == std::string::npos ? second : record.find('\n', second + 1);
  if (third == std::string::npos) {
    return info;
  }
  char* end = nullptr;
  const long long pid = std::strtoll(record.c_str(), &end, 10);
  if (end != record.c_str() + first || pid <= 0) {
    return info;
  }
  info.pid = pid;
  info.host_name = record.substr(first + 1, second - first - 1);
  info.application_name = record.substr(second + 1, third - second - 1);
  return info;
}

lock_file::lock_file(const std::filesystem::path& path) : impl_(new pimpl(path)) {}

lock_file::~lock_file() = default;

bool lock_file::try_lock() {
  const auto ec = impl_->try_lock();
  if (ec && ec != busy) {
    get_norvane_logger()->log(log_level::error, "Cannot lock \"{}\": {}.", impl_->path.string(),
                              ec.message());
  }
  return !ec;
}

bool lock_file::lock(std::chrono::milliseconds timeout) {
  const auto ec = impl_->lock(timeout);
  if (ec == std::errc::timed_out) {
    const auto who = impl_->holder();
    get_norvane_logger()->log(
        log_level::error, "Cannot lock \"{}\" within {} ms: held by process {} ({} on {}).",
        impl_->path.string(), timeout.count(), who.pid, who.application_name, who.host_name);
  } else if (ec) {
    get_norvane_logger()->log(log_level::error, "Cannot lock \"{}\": {}.", impl_->path.string(),
                              ec.message());
  }
  return !ec;
}

void lock_file::unlock() { impl_->unlock(); }

bool lock_file::is_locked() const { return impl_->fd != -1; }

lock_file::holder_info lock_file::holder() const { return impl_->holder(); }

const std::filesystem::path& lock_file::path() const { return impl_->path; }

}  // namespace norvane
