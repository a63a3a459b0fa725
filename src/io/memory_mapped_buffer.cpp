// Opening, mapping, growing and closing files for io_file with POSIX calls.
#include "io/memory_mapped_buffer.hpp"

#include "io/retry_eintr.hpp"

#include <norvane/io.hpp>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

namespace norvane {
namespace {

constexpr unsigned int app = io_device::app;
constexpr unsigned int ate = io_device::ate;
constexpr unsigned int in = io_device::in;
constexpr unsigned int out = io_device::out;
constexpr unsigned int trunc = io_device::trunc;

std::error_code last_error() noexcept { return {errno, std::system_category()}; }

// Address space mapped at least for a writable file; it costs nothing but
// bookkeeping and saves remapping while the file grows.
constexpr std::int64_t min_reservation = std::int64_t{256} << 20;

// The largest page that growth writes as zeros (see set_length), and the
// largest staging run.
constexpr std::int64_t zero_page_bytes = std::int64_t{64} << 10;

// The flags for open(2), or -1 for a mode no file can be opened with. The
// binary bit is deliberately not masked out: any mode with it is refused.
int open_flags(unsigned int mode) {
  switch (mode & ~ate) {
    case out:
    case out | trunc:
    case in | out | trunc:
      return O_RDWR | O_CREAT | O_TRUNC;
    case in:
      return O_RDONLY;
    case out | app:
      return O_WRONLY | O_APPEND | O_CREAT;
    case in | out:
      return O_RDWR;
    default:
      return -1;
  }
}

std::int64_t round_up(std::int64_t n, std::int64_t page) { return (n + page - 1) / page * page; }

// Storage reserved past what a growing file has written, doubling up to this much:
// a file written a little at a time then pays for a reservation every few
// growth steps rather than at each page.
constexpr std::int64_t max_reserved_ahead = std::int64_t{8} << 20;

// Backs bytes [from, to) of the file with storage, without changing its
// length. A shared mapping that touches a page the file system cannot
// allocate (a full tmpfs, a full disk with holes) gets SIGBUS, which would
// end the application; a failed reservation is an error the device can
// report instead. File systems without fallocate leave allocation to the
// first write, as before.
std::error_code reserve(int fd, std::int64_t from, std::int64_t to) noexcept {
  if (to <= from) {
    return {};
  }
  if (details::retry_on_eintr([&] { return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, from, to - from); }) == 0 ||
      errno == EOPNOTSUPP || errno == ENOSYS) {
    return {};
  }
  return last_error();
}

// Writes every piece at `offset`, going on where pwritev stopped short: a
// file-size limit or a full disk then fails the next call with its reason.
bool write_all(int fd, std::span<iovec> pieces, std::int64_t offset) noexcept {
  while (!pieces.empty()) {
    const ssize_t written = details::retry_on_eintr(
        [&] { return ::pwritev(fd, pieces.data(), static_cast<int>(pieces.size()), offset); });
    if (written < 0) {
      return false;
    }
    offset += written;
    auto left = static_cast<std::size_t>(written);
    while (!pieces.empty() && left >= pieces.front().iov_len) {
      left -= pieces.front().iov_len;
      pieces = pieces.subspan(1);
    }
    if (!pieces.empty()) {
      if (written == 0) {
        errno = ENOSPC;
        return false;
      }
      pieces.front().iov_base = static_cast<char*>(pieces.front().iov_base) + left;
      pieces.front().iov_len -= left;
    }
  }
  return true;
}

}  // namespace

memory_mapped_buffer::~memory_mapped_buffer() {
  if (fd == -1) {
    return;
  }
  if (mapped_length >= 0) {
    static_cast<void>(close());
  } else {
    ::close(fd);
  }
}

std::int64_t memory_mapped_buffer::granularity() noexcept { return ::sysconf(_SC_PAGESIZE); }

std::error_code memory_mapped_buffer::open(const std::filesystem::path& path, unsigned int mode) {
  if (fd != -1) {
    return std::make_error_code(std::errc::device_or_resource_busy);
  }
  writable = (mode & out) != 0;
  mapping_failed = false;
  staged_from = -1;
  staged_length = 0;
  exposed = false;
  const int flags = open_flags(mode);
  if (flags == -1) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  fd = details::retry_on_eintr([&] { return ::open(path.c_str(), flags | O_CLOEXEC, S_IRWXU); });
  if (fd == -1) {
    return last_error();
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    return unwind(last_error());
  }
  size = mapped_length = st.st_size;
  // What the file holds is taken to be stored already (holes are not looked for).
  backed = st.st_size;
  if (st.st_size == 0) {
    if (!writable) {
      position = 0;
      return {};
    }
    const std::int64_t page = granularity();
    if (page < 1) {
      return unwind(std::make_error_code(std::errc::invalid_argument));
    }
    mapped_length = page;
    const char zero = 0;
    if (::lseek(fd, page - 1, SEEK_SET) == -1 ||
        details::retry_on_eintr([&] { return ::write(fd, &zero, 1); }) != 1) {
      return unwind(last_error());
    }
    if (const auto error = reserve(fd, 0, page)) {
      return unwind(error);
    }
    backed = page;
  }
  if (!map()) {
    const auto error = last_error();
    mapping_failed = true;
    return unwind(error);
  }
  position = (mode & ate) != 0 ? mapped_length : 0;
  if (writable && staging == nullptr) {
    // A page: a file written front to back sends one run per page.
    staging_capacity = std::clamp<std::int64_t>(granularity(), 1, zero_page_bytes);
    staging = std::make_unique<char[]>(static_cast<std::size_t>(staging_capacity));
  }
  return {};
}

// A failure after the descriptor was obtained closes the backing and reports
// how that went, not the failure itself; a first open whose fstat failed
// keeps its descriptor and reports the cause. Callers depend on this exact
// outcome.
std::error_code memory_mapped_buffer::unwind(std::error_code cause) noexcept {
  if (mapped_length < 0) {
    return cause;
  }
  return close();
}

std::error_code memory_mapped_buffer::close() noexcept {
  settle();
  std::error_code error;
  if (mapped_length > 0) {
    // Unmapping the address a failed mmap returned fails; with no mapping
    // made yet there is nothing to unmap, which succeeds.
    if (mapping_failed) {
      error = std::make_error_code(std::errc::invalid_argument);
    } else if (data != nullptr && ::munmap(data, static_cast<std::size_t>(reserved)) != 0) {
      error = last_error();
    } else {
      data = nullptr;
      reserved = 0;
    }
  }
  if (writable && details::retry_on_eintr([&] { return ::ftruncate(fd, size); }) != 0 && !error) {
    error = last_error();
  }
  // Retrying close after EINTR could close a descriptor another thread has
  // just been given; Linux has released it whatever close returned.
  if (::close(fd) != 0 && errno != EINTR && !error) {
    error = last_error();
  }
  fd = -1;
  if (!error) {
    data = nullptr;
    mapped_length = 0;
    size = 0;
  }
  return error;
}

bool memory_mapped_buffer::map() noexcept { return map_fresh(mapped_length); }

void memory_mapped_buffer::stage(const char* bytes, std::int64_t count) noexcept {
  if (staged_from < 0 || position != staged_from + staged_length ||
      count > staging_capacity - staged_length) {
    settle();
    staged_from = position;
  }
  extend_staging(bytes, count);
}

void memory_mapped_buffer::start_staging() noexcept {
  settle();
  if (!exposed && staging != nullptr) {
    staged_from = position;
  }
}

// The run's bytes have storage behind them (back ran before they were
// staged), so copying them in cannot fault.
void memory_mapped_buffer::settle() noexcept {
  if (staged_length > 0 && data != nullptr) {
    std::memcpy(data + staged_from, staging.get(), static_cast<std::size_t>(staged_length));
  }
  staged_from = -1;
  staged_length = 0;
}

void memory_mapped_buffer::expose() noexcept {
  settle();
  exposed = true;
}

// Maps the file at the start of a fresh address range and releases the old
// one. A writable file is mapped past its end over the whole range (room to
// grow, doubling each time): pages beyond the end of the file are never
// touched, and once the file grows they are simply there, so growth inside
// the range is a truncation alone.
bool memory_mapped_buffer::map_fresh(std::int64_t length) noexcept {
  const std::int64_t page = std::max<std::int64_t>(granularity(), 1);
  const int prot = writable ? PROT_READ | PROT_WRITE : PROT_READ;
  std::int64_t room = round_up(length, page);
  void* mapped = MAP_FAILED;
  if (writable) {
    const std::int64_t wide =
        std::max({room, std::min<std::int64_t>(2 * reserved, INT64_MAX / 4), min_reservation});
    mapped = ::mmap(nullptr, static_cast<std::size_t>(wide), prot, MAP_SHARED, fd, 0);
    if (mapped != MAP_FAILED) {
      room = wide;
    }
  }
  if (mapped == MAP_FAILED) {
    mapped = ::mmap(nullptr, static_cast<std::size_t>(length), prot, MAP_SHARED, fd, 0);
  }
  if (mapped == MAP_FAILED) {
    return false;
  }
  if (data != nullptr) {
    ::munmap(data, static_cast<std::size_t>(reserved));
  }
  data = static_cast<char*>(mapped);
  reserved = room;
  return true;
}

std::error_code memory_mapped_buffer::back(std::int64_t from, std::int64_t to) noexcept {
  if (to <= backed) {
    return {};
  }
  if (from > backed) {
    // Past a hole: only the pages written, so that a write far beyond the
    // end keeps the file sparse.
    const std::int64_t page = std::max<std::int64_t>(granularity(), 1);
    return reserve(fd, from / page * page, to);
  }
  const std::int64_t ahead = to > INT64_MAX - max_reserved_ahead ? to : to + std::min(to, max_reserved_ahead);
  std::error_code error;
  for (const std::int64_t target : {ahead, to}) {
    error = reserve(fd, backed, target);
    if (!error) {
      backed = target;
      return {};
    }
  }
  return error;
}

std::error_code memory_mapped_buffer::extend_to(std::int64_t length, std::int64_t written_from,
                                                const write_bytes& bytes) noexcept {
  if (const auto error = set_length(length, bytes)) {
    return error;
  }
  if (written_from >= length) {
    return {};
  }
  const auto error = back(written_from, length);
  if (error) {
    // Cutting the file back also releases what was reserved past its end.
    const bool restored = ::ftruncate(fd, mapped_length) == 0;
    static_cast<void>(restored);
    backed = std::min(backed, mapped_length);
  }
  return error;
}

// A file written front to back grows by one page per step. Writing that page
// (the write's own bytes, zeros around them) instead of truncating puts it in
// the page cache in one call, with its storage accounted for: the mapping
// need not fault it in and read it first, and bytes that reach the page end
// never touch the mapping at all. perf on a 256-byte write loop put a third
// of its time in the truncate-then-fault path. A staging run that the write
// extends goes in the same call, ahead of it.
std::error_code memory_mapped_buffer::set_length(std::int64_t length, const write_bytes& bytes) noexcept {
  const std::int64_t page = granularity();
  if (length - mapped_length != page || page > zero_page_bytes) {
    if (details::retry_on_eintr([&] { return ::ftruncate(fd, length); }) != 0) {
      return last_error();
    }
    return {};
  }
  static const char zeros[zero_page_bytes] = {};
  const bool any = bytes.data != nullptr;
  const bool prefixed = any && bytes.staged != nullptr;
  const std::int64_t start = prefixed ? bytes.staged_from : mapped_length;
  const std::int64_t from =
      any ? std::clamp(bytes.from, prefixed ? start : mapped_length, length) : mapped_length;
  const std::int64_t to = any ? std::clamp(bytes.to, from, length) : from;
  const char* middle = any ? bytes.data + (from - bytes.from) : zeros;
  iovec pieces[] = {
      {const_cast<char*>(prefixed ? bytes.staged : zeros), static_cast<std::size_t>(from - start)},
      {const_cast<char*>(middle), static_cast<std::size_t>(to - from)},
      {const_cast<char*>(zeros), static_cast<std::size_t>(length - to)},
  };
  if (write_all(fd, pieces, start)) {
    return {};
  }
  const auto error = last_error();
  const bool restored = ::ftruncate(fd, mapped_length) == 0;
  static_cast<void>(restored);
  return error;
}

std::error_code memory_mapped_buffer::grow_to(std::int64_t required, std::int64_t written_from,
                                              const char* bytes, std::int64_t& stored_from) noexcept {
  stored_from = required;
  if (fd == -1 || !writable) {
    return std::make_error_code(std::errc::bad_file_descriptor);
  }
  const std::int64_t page = granularity();
  if (page < 1) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  if (required <= mapped_length) {
    return {};
  }
  const std::int64_t pages = (required - mapped_length + page - 1) / page;
  const std::int64_t most_pages = (INT64_MAX - mapped_length) / page;
  std::int64_t reached = pages;
  // Only a one-page step takes the write's bytes along (see set_length),
  // and the staging run with them when the write extends it.
  const bool storing = pages == 1 && bytes != nullptr && page <= zero_page_bytes;
  const bool prefixed = storing && staged_length > 0 && staged_from + staged_length == written_from &&
                        written_from <= mapped_length;
  if (!prefixed) {
    settle();
  }
  const write_bytes along = !storing ? write_bytes{}
                            : prefixed
                                ? write_bytes{bytes, written_from, required, staging.get(), staged_from}
                                : write_bytes{bytes, written_from, required};
  std::error_code error = pages > most_pages ? std::make_error_code(std::errc::file_too_large)
                                             : extend_to(mapped_length + pages * page, written_from, along);
  if (error) {
    // Find how many single-page steps would have succeeded before the first
    // failing one (a file-size limit or a full disk fails every length
    // beyond it). A failed probe puts the file back to its old length.
    std::int64_t good = 0;
    std::int64_t bad = std::min(pages, most_pages);
    while (bad - good > 1) {
      const std::int64_t mid = good + (bad - good) / 2;
      if (extend_to(mapped_length + mid * page, written_from, {})) {
        bad = mid;
      } else {
        good = mid;
      }
    }
    reached = good;
    if (const auto stuck = extend_to(mapped_length + reached * page, written_from, {})) {
      return stuck;
    }
  }
  const std::int64_t new_length = mapped_length + reached * page;
  if (reached > 0) {
    const bool in_room = data != nullptr && round_up(new_length, page) <= reserved;
    if (!in_room && !map_fresh(new_length)) {
      const auto mapping_error = last_error();
      // The old mapping still stands: put the file back to its length.
      const bool restored = ::ftruncate(fd, mapped_length) == 0;
      static_cast<void>(restored);
      return mapping_error;
    }
    if (storing && !error) {
      stored_from = prefixed ? written_from : std::max(written_from, mapped_length);
      if (prefixed) {
        staged_from = -1;
        staged_length = 0;
      }
      if (in_room && required < new_length && exposed) {
        // The page is in the page cache and, with the mapping handed out,
        // the next small writes land in it rather than in a staging run:
        // map it now, in the same kind of call, rather than through a fault
        // at the next copy. Kernels without MADV_POPULATE_WRITE leave that
        // to the fault.
        static_cast<void>(
            ::madvise(data + mapped_length, static_cast<std::size_t>(page), MADV_POPULATE_WRITE));
      }
    }
    mapped_length = new_length;
  }
  return error;
}

}  // namespace norvane
