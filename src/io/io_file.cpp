// io_file: the device interface over memory_mapped_buffer. Reads and writes
// are memory copies; the mapping is the file.
#include "io/io_file_pimpl.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace norvane {
namespace {

memory_mapped_buffer& backing(io_device_pimpl& pimpl) { return *static_cast<io_file_pimpl&>(pimpl).file; }

// How many of `count` bytes a read at the position delivers: bounded by the
// mapped length, with the same clamp as io_buffer (a count that brings the
// end to 0 takes everything left).
std::int64_t readable(const memory_mapped_buffer& f, std::int64_t count) {
  if (f.data == nullptr) {
    return 0;
  }
  std::int64_t end = 0;
  if (__builtin_add_overflow(f.position, count, &end) || end > f.mapped_length || end == 0) {
    return std::max<std::int64_t>(f.mapped_length - f.position, 0);
  }
  return std::max<std::int64_t>(count, 0);
}

// Large copies go through the page cache with pread and pwrite: the shared
// mapping shows the very same pages, and one system call is far cheaper than
// a page fault for every page the mapping has not touched yet (a file read
// or written front to back touches each page once). Whatever the call does
// not transfer is copied through the mapping, as small copies always are.
constexpr std::int64_t system_copy_threshold = std::int64_t{32} << 10;

void copy_out(const memory_mapped_buffer& f, char* to, std::int64_t n) {
  std::int64_t done = 0;
  while (n >= system_copy_threshold && done < n) {
    const ssize_t r = ::pread(f.fd, to + done, static_cast<std::size_t>(n - done), f.position + done);
    if (r <= 0 && !(r < 0 && errno == EINTR)) {
      break;
    }
    done += std::max<ssize_t>(r, 0);
  }
  std::memcpy(to + done, f.data + f.position + done, static_cast<std::size_t>(n - done));
}

void copy_in(const memory_mapped_buffer& f, const char* from, std::int64_t n) {
  std::int64_t done = 0;
  while (n >= system_copy_threshold && done < n) {
    const ssize_t w = ::pwrite(f.fd, from + done, static_cast<std::size_t>(n - done), f.position + done);
    if (w <= 0 && !(w < 0 && errno == EINTR)) {
      break;
    }
    done += std::max<ssize_t>(w, 0);
  }
  std::memcpy(f.data + f.position + done, from + done, static_cast<std::size_t>(n - done));
}

}  // namespace

io_file::io_file() : io_device(*new io_file_pimpl) {}

io_file::~io_file() = default;

void io_file::open(const std::filesystem::path& path, unsigned int mode) {
  if (!verify_open_mode(mode)) {
    return;
  }
  set_name(path.c_str());
  const bool opened = backing(pimpl()).open(path, mode);
  set_open_mode(mode);
  if (opened) {
    clear(0);
  } else {
    set_state(failbit);
  }
}

bool io_file::is_open() const { return backing(pimpl()).fd != -1; }

void io_file::close() {
  auto& f = backing(pimpl());
  if (f.fd == -1 || f.mapped_length < 0 || !f.close()) {
    set_state(failbit);
  }
}

long io_file::peek(char* buffer, long count) const {
  const auto& f = backing(pimpl());
  const std::int64_t n = readable(f, count);
  if (n > 0) {
    std::memcpy(buffer, f.data + f.position, static_cast<std::size_t>(n));
  }
  return static_cast<long>(n);
}

void io_file::read(char* buffer, long count) {
  auto& f = backing(pimpl());
  const std::int64_t n = readable(f, count);
  if (n > 0) {
    copy_out(f, buffer, n);
    f.position += n;
  }
  if (n != count) {
    set_state(eofbit | failbit);
  }
}

void io_file::write(const char* buffer, long count) {
  auto& f = backing(pimpl());
  if (!f.writable || count < 0) {
    set_state(failbit);
    return;
  }
  std::int64_t end = 0;
  bool room = !__builtin_add_overflow(f.position, count, &end);
  if (room && end > f.mapped_length) {
    room = f.grow_to(end, f.position);
  } else if (room && count > 0) {
    room = f.back(f.position, end);
  }
  if (!room || (f.data == nullptr && count > 0)) {
    if (count != 0) {
      set_state(badbit);
    }
    return;
  }
  if (count > 0) {
    copy_in(f, buffer, count);
  }
  f.position = end;
  f.size = std::max(f.size, end);
}

void io_file::seek(long long offset, std::ios_base::seekdir whence) {
  if (has_failure()) {
    return;
  }
  auto& f = backing(pimpl());
  std::int64_t target = -1;
  bool valid = true;
  if (whence == std::ios_base::beg) {
    target = offset;
  } else if (whence == std::ios_base::cur) {
    valid = !__builtin_add_overflow(f.position, offset, &target);
  } else if (whence == std::ios_base::end) {
    valid = !__builtin_add_overflow(f.mapped_length, offset, &target);
  } else {
    valid = false;
  }
  if (!valid || target < 0) {
    set_state(failbit);
    return;
  }
  f.position = target;
}

long long io_file::tell() const {
  const auto& f = backing(pimpl());
  if (has_failure() || f.position < 0) {
    return -1;
  }
  return f.position;
}

char* io_file::data() const { return backing(pimpl()).data; }

long long io_file::size() const { return backing(pimpl()).mapped_length; }

bool io_file::is_sequential() const { return false; }

}  // namespace norvane
