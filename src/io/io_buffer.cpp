// io_buffer: the device interface over memory_raw_buffer.
#include "io/io_buffer_pimpl.hpp"

namespace norvane {
namespace {

memory_raw_buffer& backing(io_device_pimpl& pimpl) { return *static_cast<io_buffer_pimpl&>(pimpl).buffer; }

}  // namespace

io_buffer::io_buffer() : io_device(*new io_buffer_pimpl) {}

io_buffer::~io_buffer() = default;

void io_buffer::open(const char* data, long size) {
  // The memory is never written: without out every write is refused.
  open(const_cast<char*>(data), size, {0}, size, in, false);
}

void io_buffer::open(char* data, long size, unsigned int mode, bool take_ownership) {
  open(data, size, {0}, size, mode, take_ownership);
}

void io_buffer::open(char* data, long size, const std::vector<unsigned long>& chunk_ids, long chunk_size,
                     unsigned int mode, bool take_ownership) {
  if (!verify_open_mode(mode)) {
    return;
  }
  auto& b = backing(pimpl());
  if (b.data == nullptr) {
    b.data = data;
    b.owned = take_ownership;
    b.size = size;
    b.chunk_ids = chunk_ids;
    b.chunk_size = chunk_size;
    b.chunk_offset = chunk_ids.empty() ? -1 : static_cast<std::int64_t>(chunk_ids[0] * chunk_size);
    b.position = data == nullptr ? -1 : 0;
    b.writable = (mode & out) != 0;
    set_open_mode(mode);
    clear(0);
  } else {
    set_open_mode(mode);
    set_state(failbit);
  }
}

bool io_buffer::is_open() const { return backing(pimpl()).data != nullptr; }

void io_buffer::close() {
  auto& b = backing(pimpl());
  if (b.data == nullptr) {
    set_state(failbit);
    return;
  }
  b.release();
  b.size = 0;
  b.chunk_ids.clear();
  b.chunk_size = 0;
  b.chunk_offset = 0;
  b.position = 0;
}

long io_buffer::peek(char* buffer, long count) const {
  const auto& b = backing(pimpl());
  return static_cast<long>(b.copy_out_at(b.position, buffer, b.readable(count)));
}

void io_buffer::read(char* buffer, long count) {
  auto& b = backing(pimpl());
  if (b.copy_out(buffer, b.readable(count)) != count) {
    set_state(eofbit | failbit);
  }
}

void io_buffer::write(const char* buffer, long count) {
  auto& b = backing(pimpl());
  if (!b.writable) {
    set_state(failbit);
    return;
  }
  std::int64_t n = count;
  std::int64_t end = 0;
  if (__builtin_add_overflow(b.position, n, &end) || end > b.size) {
    n = b.size - b.position;
  }
  if (b.copy_in(buffer, n) < count) {
    set_state(badbit);
  }
}

void io_buffer::seek(long long offset, std::ios_base::seekdir whence) {
  if (has_failure()) {
    return;
  }
  auto& b = backing(pimpl());
  std::int64_t target = -1;
  bool valid = true;
  if (whence == std::ios_base::beg) {
    target = offset;
  } else if (whence == std::ios_base::cur) {
    valid = !__builtin_add_overflow(b.position, offset, &target);
  } else if (whence == std::ios_base::end) {
    valid = !__builtin_add_overflow(b.size, offset, &target);
  } else {
    valid = false;
  }
  if (!valid || target < 0) {
    set_state(failbit);
    return;
  }
  b.position = target;
  const std::int64_t mapped = b.map(target);
  if (mapped < 0) {
    set_state(failbit);
    return;
  }
  b.chunk_offset = mapped;
}

long long io_buffer::tell() const {
  auto& b = backing(pimpl());
  if (has_failure() || b.position < 0) {
    return -1;
  }
  const std::int64_t mapped = b.map(b.position);
  if (mapped < 0) {
    return -1;
  }
  b.chunk_offset = mapped;
  return b.position;
}

char* io_buffer::data() const { return backing(pimpl()).data; }

long long io_buffer::size() const { return backing(pimpl()).size; }

bool io_buffer::is_sequential() const { return false; }

const std::vector<unsigned long>& io_buffer::chunk_ids() const { return backing(pimpl()).chunk_ids; }

long io_buffer::chunk_size() const { return static_cast<long>(backing(pimpl()).chunk_size); }

void io_buffer::set_chunks(const std::vector<unsigned long>& chunk_ids, long chunk_size) {
  auto& b = backing(pimpl());
  b.chunk_ids = chunk_ids;
  b.chunk_size = chunk_size;
  b.position = 0;
  b.chunk_offset = chunk_ids.empty() ? -1 : static_cast<std::int64_t>(chunk_ids[0] * chunk_size);
}

}  // namespace norvane
