// The backing of io_buffer: caller memory seen as a logical stream laid over
// equal chunks in any order, with the position and its physical offset.
#pragma once

#include <cstdint>
#include <vector>

namespace norvane {

struct memory_raw_buffer {
  memory_raw_buffer() = default;
  ~memory_raw_buffer();
  memory_raw_buffer(const memory_raw_buffer&) = delete;
  memory_raw_buffer& operator=(const memory_raw_buffer&) = delete;

  // Physical offset of logical position `p`, or -1 when no chunk holds it.
  // An index one past the last chunk is accepted on purpose (the end of an
  // exactly filled buffer must map) and maps as if the physical chunk with
  // that same index followed.
  std::int64_t map(std::int64_t p) const noexcept;

  // Copies up to `n` bytes between `outside` and the memory from the
  // position on, chunk run by chunk run, stopping where the mapping fails.
  // The position and cached offset end as a byte-at-a-time loop leaves
  // them; returns the number of bytes copied.
  std::int64_t copy_out(char* outside, std::int64_t n) noexcept;
  std::int64_t copy_in(const char* outside, std::int64_t n) noexcept;
  // The same as copy_out without moving the position or the cached offset.
  std::int64_t copy_out_at(std::int64_t from, char* outside, std::int64_t n) const noexcept;

  void release() noexcept;

  char* data = nullptr;
  bool owned = false;
  std::int64_t size = 0;
  std::vector<unsigned long> chunk_ids;
  std::int64_t chunk_size = 0;
  std::int64_t chunk_offset = -1;
  std::int64_t position = -1;
  bool writable = false;

private:
  template <typename Copy>
  std::int64_t transfer(std::int64_t& p, std::int64_t n, Copy copy, std::int64_t* last_offset) const noexcept;
};

}  // namespace norvane
