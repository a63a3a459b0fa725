// Opening, mapping, growing and closing files for io_file with POSIX calls.
#include "io/memory_mapped_buffer.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace norvane {
namespace {

constexpr unsigned int mode_app = 1;
constexpr unsigned int mode_ate = 2;
constexpr unsigned int mode_in = 8;
constexpr unsigned int mode_out = 16;
constexpr unsigned int mode_trunc = 32;

// Address space mapped at least for a writable file; it costs nothing but
// bookkeeping and saves remapping while the file grows.
constexpr std::int64_t min_reservation = std::int64_t{256} << 20;

// The flags for open(2), or -1 for a mode no file can be opened with. The
// binary bit is deliberately not masked out: any mode with it is refused.
int open_flags(unsigned int mode) {
  switch (mode & ~mode_ate) {
    case mode_out:
    case mode_out | mode_trunc:
    case mode_in | mode_out | mode_trunc:
      return O_RDWR | O_CREAT | O_TRUNC;
    case mode_in:
      return O_RDONLY;
    case mode_out | mode_app:
      return O_WRONLY | O_APPEND | O_CREAT;
    case mode_in | mode_out:
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
bool reserve(int fd, std::int64_t from, std::int64_t to) noexcept {
  if (to <= from) {
    return true;
  }
  int result = 0;
  do {
    result = ::fallocate(fd, FALLOC_FL_KEEP_SIZE, from, to - from);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == EOPNOTSUPP || errno == ENOSYS;
}

}  // namespace

memory_mapped_buffer::~memory_mapped_buffer() {
  if (fd == -1) {
    return;
  }
  if (mapped_length >= 0) {
    close();
  } else {
    ::close(fd);
  }
}

std::int64_t memory_mapped_buffer::granularity() noexcept { return ::sysconf(_SC_PAGESIZE); }

bool memory_mapped_buffer::open(const std::filesystem::path& path, unsigned int mode) {
  if (fd != -1) {
    return false;
  }
  writable = (mode & mode_out) != 0;
  mapping_failed = false;
  const int flags = open_flags(mode);
  if (flags == -1) {
    return false;
  }
  fd = ::open(path.c_str(), flags | O_CLOEXEC, S_IRWXU);
  if (fd == -1) {
    return false;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    return unwind();
  }
  size = mapped_length = st.st_size;
  // What the file holds is taken to be stored already (holes are not looked for).
  backed = st.st_size;
  if (st.st_size == 0) {
    if (!writable) {
      position = 0;
      return true;
    }
    const std::int64_t page = granularity();
    if (page < 1) {
      return unwind();
    }
    mapped_length = page;
    const char zero = 0;
    if (::lseek(fd, page - 1, SEEK_SET) == -1 || ::write(fd, &zero, 1) != 1 || !reserve(fd, 0, page)) {
      return unwind();
    }
    backed = page;
  }
  if (!map()) {
    mapping_failed = true;
    return unwind();
  }
  position = (mode & mode_ate) != 0 ? mapped_length : 0;
  return true;
}

// A failure after the descriptor was obtained closes the backing and reports
// how that went, not the failure itself; a first open whose fstat failed
// keeps its descriptor. Callers depend on this exact outcome.
bool memory_mapped_buffer::unwind() noexcept {
  if (mapped_length < 0) {
    return false;
  }
  return close();
}

bool memory_mapped_buffer::close() noexcept {
  bool ok = true;
  if (mapped_length > 0) {
    // Unmapping the address a failed mmap returned fails; with no mapping
    // made yet there is nothing to unmap, which succeeds.
    if (mapping_failed || (data != nullptr && ::munmap(data, static_cast<std::size_t>(reserved)) != 0)) {
      ok = false;
    } else {
      data = nullptr;
      reserved = 0;
    }
  }
  if (writable && ::ftruncate(fd, size) != 0) {
    ok = false;
  }
  if (::close(fd) != 0) {
    ok = false;
  }
  fd = -1;
  if (ok) {
    data = nullptr;
    mapped_length = 0;
    size = 0;
  }
  return ok;
}

bool memory_mapped_buffer::map() noexcept { return map_fresh(mapped_length); }

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

bool memory_mapped_buffer::back(std::int64_t from, std::int64_t to) noexcept {
  if (to <= backed) {
    return true;
  }
  if (from > backed) {
    // Past a hole: only the pages written, so that a write far beyond the
    // end keeps the file sparse.
    const std::int64_t page = std::max<std::int64_t>(granularity(), 1);
    return reserve(fd, from / page * page, to);
  }
  const std::int64_t ahead = to > INT64_MAX - max_reserved_ahead ? to : to + std::min(to, max_reserved_ahead);
  for (const std::int64_t target : {ahead, to}) {
    if (reserve(fd, backed, target)) {
      backed = target;
      return true;
    }
  }
  return false;
}

bool memory_mapped_buffer::extend_to(std::int64_t length, std::int64_t written_from) noexcept {
  if (::ftruncate(fd, length) != 0) {
    return false;
  }
  if (written_from >= length || back(written_from, length)) {
    return true;
  }
  // Cutting the file back also releases what was reserved past its end.
  const bool restored = ::ftruncate(fd, mapped_length) == 0;
  static_cast<void>(restored);
  backed = std::min(backed, mapped_length);
  return false;
}

bool memory_mapped_buffer::resize_map() noexcept { return grow_to(mapped_length + 1, mapped_length); }

bool memory_mapped_buffer::grow_to(std::int64_t required, std::int64_t written_from) noexcept {
  if (fd == -1 || !writable) {
    return false;
  }
  const std::int64_t page = granularity();
  if (page < 1) {
    return false;
  }
  if (required <= mapped_length) {
    return true;
  }
  const std::int64_t pages = (required - mapped_length + page - 1) / page;
  std::int64_t reached = pages;
  if (pages > (INT64_MAX - mapped_length) / page || !extend_to(mapped_length + pages * page, written_from)) {
    // Find how many single-page steps would have succeeded before the first
    // failing one (a file-size limit or a full disk fails every length
    // beyond it). A failed probe puts the file back to its old length.
    std::int64_t good = 0;
    std::int64_t bad = std::min(pages, (INT64_MAX - mapped_length) / page);
    while (bad - good > 1) {
      const std::int64_t mid = good + (bad - good) / 2;
      if (extend_to(mapped_length + mid * page, written_from)) {
        good = mid;
      } else {
        bad = mid;
      }
    }
    reached = good;
    if (!extend_to(mapped_length + reached * page, written_from)) {
      return false;
    }
  }
  const std::int64_t new_length = mapped_length + reached * page;
  if (reached > 0) {
    const bool in_room = data != nullptr && round_up(new_length, page) <= reserved;
    if (!in_room && !map_fresh(new_length)) {
      // The old mapping still stands: put the file back to its length.
      const bool restored = ::ftruncate(fd, mapped_length) == 0;
      static_cast<void>(restored);
      return false;
    }
    mapped_length = new_length;
  }
  return reached == pages;
}

}  // namespace norvane
