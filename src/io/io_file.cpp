// io_file: the device interface over memory_mapped_buffer. Reads and writes
// are memory copies; the mapping is the file.
#include "io/io_file_pimpl.hpp"
#include "io/io_position.hpp"
#include "io/retry_eintr.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace norvane {
namespace {

memory_mapped_buffer& backing(io_device_pimpl& pimpl) { return *static_cast<io_file_pimpl&>(pimpl).file; }

// How many of `count` bytes a read at the position delivers: bounded by the
// mapped length, not the logical size.
std::int64_t readable(const memory_mapped_buffer& mapping, std::int64_t count) {
  if (mapping.data == nullptr) {
    return 0;
  }
  return details::readable_count(mapping.position, mapping.mapped_length, count);
}

// Large copies go through the page cache with pread and pwrite: the shared
// mapping shows the very same pages, and one system call is far cheaper than
// a page fault for every page the mapping has not touched yet (a file read
// or written front to back touches each page once). Whatever the call does
// not transfer is copied through the mapping, as small copies always are.
constexpr std::int64_t system_copy_threshold = std::int64_t{32} << 10;

void copy_out(const memory_mapped_buffer& mapping, char* to, std::int64_t n) {
  std::int64_t done = 0;
  while (n >= system_copy_threshold && done < n) {
    const ssize_t got = details::retry_on_eintr([&] {
      return ::pread(mapping.fd, to + done, static_cast<std::size_t>(n - done), mapping.position + done);
    });
    if (got <= 0) {
      break;
    }
    done += got;
  }
  std::memcpy(to + done, mapping.data + mapping.position + done, static_cast<std::size_t>(n - done));
}

void copy_in(const memory_mapped_buffer& mapping, const char* from, std::int64_t n) {
  std::int64_t done = 0;
  while (n >= system_copy_threshold && done < n) {
    const ssize_t put = details::retry_on_eintr([&] {
      return ::pwrite(mapping.fd, from + done, static_cast<std::size_t>(n - done), mapping.position + done);
    });
    if (put <= 0) {
      break;
    }
    done += put;
  }
  std::memcpy(mapping.data + mapping.position + done, from + done, static_cast<std::size_t>(n - done));
}

// Room for bytes [position, end) of a write: growth when they pass the
// mapped end, storage behind them otherwise. Growth may store the bytes
// past the old end itself; `stored_from` says from where.
std::error_code make_room(memory_mapped_buffer& mapping, const char* buffer, std::int64_t count,
                          std::int64_t& end, std::int64_t& stored_from) {
  if (__builtin_add_overflow(mapping.position, count, &end)) {
    return std::make_error_code(std::errc::file_too_large);
  }
  stored_from = end;
  std::error_code error;
  if (end > mapping.mapped_length) {
    error = mapping.grow_to(end, mapping.position, buffer, stored_from);
  } else if (count > 0) {
    error = mapping.back(mapping.position, end);
  }
  if (!error && mapping.data == nullptr && count > 0) {
    error = std::make_error_code(std::errc::bad_file_descriptor);
  }
  return error;
}

}  // namespace

io_file::io_file() : io_device(*new io_file_pimpl) {}

io_file::~io_file() = default;

void io_file::open(const std::filesystem::path& path, unsigned int mode) {
  if (!verify_open_mode(mode)) {
    return;
  }
  set_name(path.c_str());
  const auto error = backing(pimpl()).open(path, mode);
  set_open_mode(mode);
  if (!error) {
    clear(0);
    return;
  }
  set_state(failbit);
}

bool io_file::is_open() const { return backing(pimpl()).fd != -1; }

void io_file::close() {
  auto& mapping = backing(pimpl());
  if (mapping.fd == -1 || mapping.mapped_length < 0) {
    set_state(failbit);
    return;
  }
  if (mapping.close()) {
    set_state(failbit);
  }
}

long io_file::peek(char* buffer, long count) const {
  auto& mapping = backing(pimpl());
  mapping.settle();
  const std::int64_t n = readable(mapping, count);
  if (n > 0) {
    std::memcpy(buffer, mapping.data + mapping.position, static_cast<std::size_t>(n));
  }
  return static_cast<long>(n);
}

void io_file::read(char* buffer, long count) {
  auto& mapping = backing(pimpl());
  mapping.settle();
  const std::int64_t n = readable(mapping, count);
  if (n > 0) {
    copy_out(mapping, buffer, n);
    mapping.position += n;
  }
  if (n != count) {
    set_state(eofbit | failbit);
  }
}

void io_file::write(const char* buffer, long count) {
  auto& mapping = backing(pimpl());
  if (mapping.extends_staging(count)) {
    mapping.extend_staging(buffer, count);
    return;
  }
  if (!mapping.writable || count < 0) {
    set_state(failbit);
    return;
  }
  std::int64_t end = 0;
  std::int64_t stored_from = 0;
  if (make_room(mapping, buffer, count, end, stored_from)) {
    if (count != 0) {
      set_state(badbit);
    }
    return;
  }
  if (stored_from == mapping.position && count > 0) {
    // Growth stored the whole write: the small writes that follow it are
    // staged until the next growth.
    mapping.position = end;
    mapping.size = std::max(mapping.size, end);
    mapping.start_staging();
    return;
  }
  if (stored_from == end && mapping.stages(count)) {
    mapping.stage(buffer, count);
    return;
  }
  mapping.settle();
  if (stored_from > mapping.position) {
    copy_in(mapping, buffer, stored_from - mapping.position);
  }
  mapping.position = end;
  mapping.size = std::max(mapping.size, end);
}

void io_file::seek(long long offset, std::ios_base::seekdir whence) {
  if (has_failure()) {
    return;
  }
  auto& mapping = backing(pimpl());
  const std::int64_t target = details::seek_target(mapping.position, mapping.mapped_length, offset, whence);
  if (target < 0) {
    set_state(failbit);
    return;
  }
  mapping.position = target;
}

long long io_file::tell() const {
  const auto& mapping = backing(pimpl());
  if (has_failure() || mapping.position < 0) {
    return -1;
  }
  return mapping.position;
}

char* io_file::data() const {
  auto& mapping = backing(pimpl());
  mapping.expose();
  return mapping.data;
}

long long io_file::size() const { return backing(pimpl()).mapped_length; }

bool io_file::is_sequential() const { return false; }

}  // namespace norvane
