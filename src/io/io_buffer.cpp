// io_buffer: the device interface over memory_raw_buffer.
#include "io/io_buffer_pimpl.hpp"
#include "io/io_position.hpp"

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
  auto& memory = backing(pimpl());
  if (memory.data == nullptr) {
    memory.data = data;
    memory.owned = take_ownership;
    memory.size = size;
    memory.chunk_ids = chunk_ids;
    memory.chunk_size = chunk_size;
    memory.chunk_offset = chunk_ids.empty() ? -1 : static_cast<std::int64_t>(chunk_ids[0] * chunk_size);
    memory.position = data == nullptr ? -1 : 0;
    memory.writable = (mode & out) != 0;
    set_open_mode(mode);
    clear(0);
  } else {
    set_open_mode(mode);
    set_state(failbit);
  }
}

bool io_buffer::is_open() const { return backing(pimpl()).data != nullptr; }

void io_buffer::close() {
  auto& memory = backing(pimpl());
  if (memory.data == nullptr) {
    set_state(failbit);
    return;
  }
  memory.release();
  memory.size = 0;
  memory.chunk_ids.clear();
  memory.chunk_size = 0;
  memory.chunk_offset = 0;
  memory.position = 0;
}

long io_buffer::peek(char* buffer, long count) const {
  const auto& memory = backing(pimpl());
  return static_cast<long>(memory.copy_out_at(memory.position, buffer,
                                              details::readable_count(memory.position, memory.size, count)));
}

void io_buffer::read(char* buffer, long count) {
  auto& memory = backing(pimpl());
  if (memory.copy_out(buffer, details::readable_count(memory.position, memory.size, count)) != count) {
    set_state(eofbit | failbit);
  }
}

void io_buffer::write(const char* buffer, long count) {
  auto& memory = backing(pimpl());
  if (!memory.writable) {
    set_state(failbit);
    return;
  }
  std::int64_t n = count;
  std::int64_t end = 0;
  if (__builtin_add_overflow(memory.position, n, &end) || end > memory.size) {
    n = memory.size - memory.position;
  }
  if (memory.copy_in(buffer, n) < count) {
    set_state(badbit);
  }
}

void io_buffer::seek(long long offset, std::ios_base::seekdir whence) {
  if (has_failure()) {
    return;
  }
  auto& memory = backing(pimpl());
  const std::int64_t target = details::seek_target(memory.position, memory.size, offset, whence);
  if (target < 0) {
    set_state(failbit);
    return;
  }
  memory.position = target;
  const std::int64_t mapped = memory.map(target);
  if (mapped < 0) {
    set_state(failbit);
    return;
  }
  memory.chunk_offset = mapped;
}

long long io_buffer::tell() const {
  auto& memory = backing(pimpl());
  if (has_failure() || memory.position < 0) {
    return -1;
  }
  const std::int64_t mapped = memory.map(memory.position);
  if (mapped < 0) {
    return -1;
  }
  memory.chunk_offset = mapped;
  return memory.position;
}

char* io_buffer::data() const { return backing(pimpl()).data; }

long long io_buffer::size() const { return backing(pimpl()).size; }

bool io_buffer::is_sequential() const { return false; }

const std::vector<unsigned long>& io_buffer::chunk_ids() const { return backing(pimpl()).chunk_ids; }

long io_buffer::chunk_size() const { return static_cast<long>(backing(pimpl()).chunk_size); }

void io_buffer::set_chunks(const std::vector<unsigned long>& chunk_ids, long chunk_size) {
  auto& memory = backing(pimpl());
  memory.chunk_ids = chunk_ids;
  memory.chunk_size = chunk_size;
  memory.position = 0;
  memory.chunk_offset = chunk_ids.empty() ? -1 : static_cast<std::int64_t>(chunk_ids[0] * chunk_size);
}

}  // namespace norvane
