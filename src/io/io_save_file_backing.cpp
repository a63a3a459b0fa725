// The durable replacement of a file with POSIX calls: a new file beside the
// target, fsync, rename, fsync of the directory.
#include "io/io_save_file_pimpl.hpp"
#include "io/retry_eintr.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

namespace norvane::details {

std::filesystem::path resolve_links(std::filesystem::path path) {
  for (int hops = 0; hops <= 40; ++hops) {
    std::error_code ec;
    if (!std::filesystem::is_symlink(std::filesystem::symlink_status(path, ec))) {
      return path;
    }
    auto next = std::filesystem::read_symlink(path, ec);
    if (ec) {
      return {};
    }
    path = next.is_absolute() ? next : path.parent_path() / next;
  }
  return {};
}

save_file::~save_file() { discard(); }

std::error_code save_file::fail(std::string_view step, int error) noexcept {
  step_ = step;
  discard();
  return {error, std::generic_category()};
}

std::error_code save_file::open(const std::filesystem::path& target) {
  discard();
  destination_ = resolve_links(target);
  if (destination_.empty()) {
    destination_ = target;
    return fail("following its links", ELOOP);
  }
  struct stat st {};
  const bool exists = ::stat(destination_.c_str(), &st) == 0;
  if (exists && S_ISDIR(st.st_mode)) {
    return fail("it is a directory", EISDIR);
  }
  if (exists && !S_ISREG(st.st_mode)) {
    return fail("it is not a regular file", EINVAL);
  }
  if (exists) {
    // The target's own permission bits still decide, as they would for a
    // write in place: a read-only file is not replaced behind its back.
    const int probe = retry_on_eintr([&] { return ::open(destination_.c_str(), O_WRONLY | O_CLOEXEC); });
    if (probe < 0) {
      return fail("opening it for writing", errno);
    }
    ::close(probe);
  }
  static std::atomic<unsigned> counter{0};
  const auto name = destination_.filename().string();
  temporary_ = destination_.parent_path() /
               ("." + name + "." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".tmp");
  fd_ = retry_on_eintr(
      [&] { return ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); });
  if (fd_ < 0) {
    const int error = errno;
    temporary_.clear();
    return fail("creating the new file beside it", error);
  }
  if (exists) {
    // Best effort for the owner: only root may give a file away.
    static_cast<void>(::fchown(fd_, st.st_uid, st.st_gid));
    if (::fchmod(fd_, st.st_mode & 07777) != 0) {
      return fail("giving the new file its mode", errno);
    }
  }
  return {};
}

std::error_code save_file::write(const char* data, std::int64_t size, std::int64_t offset) {
  if (fd_ == -1) {
    return fail("writing to a closed save file", EBADF);
  }
  while (size > 0) {
    const ssize_t n =
        retry_on_eintr([&] { return ::pwrite(fd_, data, static_cast<std::size_t>(size), offset); });
    if (n < 0) {
      return fail("writing the new file", errno);
    }
    data += n;
    size -= n;
    offset += n;
  }
  return {};
}

std::error_code save_file::commit() {
  if (fd_ == -1) {
    return fail("committing a closed save file", EBADF);
  }
  if (retry_on_eintr([&] { return ::fsync(fd_); }) != 0) {
    return fail("flushing the new file", errno);
  }
  // After a failed close the data may not have reached the file.
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) {
    return fail("closing the new file", errno);
  }
  if (::rename(temporary_.c_str(), destination_.c_str()) != 0) {
    return fail("renaming the new file over it", errno);
  }
  temporary_.clear();
  // The rename itself is durable only once the directory is flushed.
  auto directory = destination_.parent_path();
  if (directory.empty()) {
    directory = ".";
  }
  const int dir =
      retry_on_eintr([&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (dir < 0) {
    return fail("opening its directory", errno);
  }
  const bool synced = retry_on_eintr([&] { return ::fsync(dir); }) == 0;
  const int error = errno;
  ::close(dir);
  // Some file systems cannot flush a directory and say so; nothing is lost.
  if (!synced && error != EINVAL && error != EROFS) {
    return fail("flushing its directory", error);
  }
  return {};
}

void save_file::discard() noexcept {
  if (fd_ != -1) {
    ::close(fd_);
    fd_ = -1;
  }
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
    temporary_.clear();
  }
}

}  // namespace norvane::details
