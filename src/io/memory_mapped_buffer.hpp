// The backing of io_file: a file descriptor and a shared mapping of the whole
// file, grown a page at a time for writes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <system_error>

namespace norvane {

struct memory_mapped_buffer {
  memory_mapped_buffer() = default;
  ~memory_mapped_buffer();
  memory_mapped_buffer(const memory_mapped_buffer&) = delete;
  memory_mapped_buffer& operator=(const memory_mapped_buffer&) = delete;

  // The page size; growth steps and mapping offsets are multiples of it.
  static std::int64_t granularity() noexcept;

  // Opens and maps the file; the error says why it failed. A failure after
  // the descriptor was obtained reports how closing it went instead, so an
  // empty error may come with nothing open (see unwind).
  std::error_code open(const std::filesystem::path& path, unsigned int mode);
  // Unmaps, truncates a writable file to `size` and closes the descriptor;
  // the error of the first step that failed (the descriptor is gone in
  // every case).
  std::error_code close() noexcept;
  // Maps `mapped_length` bytes of the descriptor from offset 0.
  bool map() noexcept;
  // Grows by whole pages until `required` bytes are mapped: the same file
  // length, mapped length and outcome as growing a page at a time until it
  // fits or fails, in one truncation and one mapping call. The bytes from
  // `written_from` on get storage behind them (see back); a full file
  // system fails growth like a file-size limit does. `bytes`, when not
  // null, are the write's bytes for [written_from, required): a one-page
  // step stores those past the old end itself, and `stored_from` says from
  // where the write is already in the file (`required` when nothing was
  // stored).
  std::error_code grow_to(std::int64_t required, std::int64_t written_from, const char* bytes,
                          std::int64_t& stored_from) noexcept;
  // Storage behind bytes [from, to) about to be written through the
  // mapping: touching a page the file system cannot allocate would raise
  // SIGBUS. Fails when the file system has no room.
  std::error_code back(std::int64_t from, std::int64_t to) noexcept;

  // Small writes that follow one another are gathered in a staging run
  // instead of being copied through the mapping: on a virtual machine the
  // first touch of each freshly mapped page costs more than a write(2) of
  // it. The run goes to the file with the write that grows the file past it
  // (see grow_to), or is copied into the mapping (settle) before anything
  // looks at the file's bytes.
  //
  // True when `count` bytes at the position simply extend the staging run.
  bool extends_staging(std::int64_t count) const noexcept {
    return staged_from >= 0 && position == staged_from + staged_length && count >= 0 &&
           count <= staging_capacity - staged_length && position + count <= mapped_length &&
           position + count <= backed;
  }
  void extend_staging(const char* bytes, std::int64_t count) noexcept {
    std::copy_n(bytes, count, staging.get() + staged_length);
    staged_length += count;
    position += count;
    size = std::max(size, position);
  }
  // True when a write of `count` bytes that fits the mapping is staged.
  bool stages(std::int64_t count) const noexcept {
    return !exposed && count > 0 && count <= staging_capacity;
  }
  // Stages `count` bytes at the position (backed, within the mapping, at
  // most staging_capacity), settling a run they do not extend first.
  void stage(const char* bytes, std::int64_t count) noexcept;
  // Starts an empty staging run at the position, unless the mapping has
  // been handed out (see expose).
  void start_staging() noexcept;
  // Copies the staging run into the mapping and ends it.
  void settle() noexcept;
  // The caller holds the mapping's address from now on: settles, and
  // writes go through the mapping again until the file is closed.
  void expose() noexcept;

  char* data = nullptr;
  std::int64_t mapped_length = -1;
  std::int64_t size = 0;
  int fd = -1;
  std::int64_t position = -1;
  bool writable = false;

private:
  // The bytes of a write for [from, to) of the file; null data for none.
  struct write_bytes {
    const char* data = nullptr;
    std::int64_t from = 0;
    std::int64_t to = 0;
    // The staging run that ends where the write starts, stored ahead of it.
    const char* staged = nullptr;
    std::int64_t staged_from = 0;
  };

  std::error_code unwind(std::error_code cause) noexcept;
  bool map_fresh(std::int64_t length) noexcept;
  // Sets the file's length to `length` (at least mapped_length) with
  // storage behind the bytes from `written_from`; on failure the file keeps
  // mapped_length bytes.
  std::error_code extend_to(std::int64_t length, std::int64_t written_from,
                            const write_bytes& bytes) noexcept;
  // Sets the file's length, from mapped_length, with the part of `bytes`
  // that falls in a one-page step; on failure the file keeps mapped_length
  // bytes.
  std::error_code set_length(std::int64_t length, const write_bytes& bytes) noexcept;

  // The length of the address range mapped: a writable file is mapped past
  // its end so that growth needs no new mapping.
  std::int64_t reserved = 0;
  // Bytes from the start of the file known to have storage behind them,
  // possibly past its end (reserved ahead while it grows).
  std::int64_t backed = 0;
  // The last open's mmap failed; closing then reports a failed unmap.
  bool mapping_failed = false;

  std::unique_ptr<char[]> staging;
  std::int64_t staging_capacity = 0;
  // File offset of the staging run; -1 when there is none.
  std::int64_t staged_from = -1;
  std::int64_t staged_length = 0;
  bool exposed = false;
};

}  // namespace norvane
