// The device base: state word, exceptions mask, name, open-mode checking and
// the line reader shared by every device.
#include "io/io_position.hpp"

#include <norvane/io.hpp>

#include <algorithm>
#include <cstring>
#include <system_error>

namespace norvane {

namespace details {

std::int64_t seek_target(std::int64_t position, std::int64_t end, long long offset,
                         std::ios_base::seekdir whence) noexcept {
  std::int64_t from = 0;
  if (whence == std::ios_base::cur) {
    from = position;
  } else if (whence == std::ios_base::end) {
    from = end;
  } else if (whence != std::ios_base::beg) {
    return -1;
  }
  std::int64_t target = 0;
  if (__builtin_add_overflow(from, offset, &target) || target < 0) {
    return -1;
  }
  return target;
}

std::int64_t readable_count(std::int64_t position, std::int64_t end, std::int64_t count) noexcept {
  std::int64_t read_end = 0;
  if (__builtin_add_overflow(position, count, &read_end) || read_end > end || read_end == 0) {
    return std::max<std::int64_t>(end - position, 0);
  }
  return std::max<std::int64_t>(count, 0);
}

}  // namespace details

io_device_pimpl::~io_device_pimpl() { delete[] name; }

io_device::io_device() : impl_(new io_device_pimpl) {}

io_device::io_device(io_device_pimpl& pimpl) noexcept : impl_(&pimpl) {}

io_device::~io_device() = default;

bool io_device::is_good() const noexcept { return impl_->state == 0; }

bool io_device::at_end() const noexcept { return (impl_->state & eofbit) != 0; }

bool io_device::has_failure() const noexcept { return (impl_->state & (badbit | failbit)) != 0; }

bool io_device::has_error() const noexcept { return (impl_->state & badbit) != 0; }

unsigned int io_device::state() const noexcept { return impl_->state; }

void io_device::throw_if_masked() const {
  if ((impl_->state & impl_->exceptions) != 0) {
    throw std::system_error(std::make_error_code(std::io_errc::stream));
  }
}

void io_device::set_state(unsigned int bits) {
  impl_->state |= bits;
  throw_if_masked();
}

void io_device::clear(unsigned int state) {
  impl_->state = state;
  throw_if_masked();
}

unsigned int io_device::exceptions() const noexcept { return impl_->exceptions; }

void io_device::set_exceptions(unsigned int mask) {
  impl_->exceptions = mask;
  throw_if_masked();
}

const char* io_device::name() const noexcept { return impl_->name; }

void io_device::set_name(const char* name) {
  char* copy = nullptr;
  if (name != nullptr) {
    const std::size_t length = std::strlen(name);
    copy = new char[length + 1];
    std::memcpy(copy, name, length + 1);
  }
  delete[] impl_->name;
  impl_->name = copy;
}

unsigned int io_device::open_mode() const noexcept { return impl_->open_mode; }

void io_device::set_open_mode(unsigned int mode) noexcept { impl_->open_mode = mode; }

bool io_device::verify_open_mode(unsigned int mode) {
  const bool trunc_without_out = (mode & (trunc | out)) == trunc;
  const bool app_with_trunc = (mode & (app | trunc)) == (app | trunc);
  if (trunc_without_out || app_with_trunc || is_open()) {
    set_state(failbit);
    return false;
  }
  return true;
}

long io_device::read_line(bool* delimiter_found, char* buffer, long max, char delimiter) {
  *delimiter_found = false;
  long i = 0;
  if (max >= 2) {
    char byte = 0;
    char previous = 0;
    while (!*delimiter_found && i < max - 1) {
      if (!is_good()) {
        break;
      }
      // A read that delivers nothing leaves `byte` as it was, and that byte
      // is stored once more before the loop sees the state: the doubled
      // last byte at the end of data comes from here.
      read(&byte, 1);
      if (byte == delimiter) {
        *delimiter_found = true;
        if (delimiter == '\n' && previous == '\r') {
          --i;
        }
      }
      buffer[i++] = byte;
      previous = byte;
    }
  }
  buffer[i] = 0;
  if (i != 0) {
    return i;
  }
  return has_error() ? -1 : 0;
}

}  // namespace norvane
