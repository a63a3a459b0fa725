// Byte devices: the abstract io_device with stream-style state bits, an
// exceptions mask and open modes; io_buffer over caller memory, optionally
// laid out in chunks taken in any order; io_file over a memory-mapped file.
#pragma once

#include <norvane/export.hpp>

#include <filesystem>
#include <ios>
#include <vector>

namespace norvane {

// The state every device keeps. It is public so that a device written
// outside the library can derive its own record from it and hand that to
// io_device(io_device_pimpl&); the library's devices do the same.
struct NORVANE_API io_device_pimpl {
  io_device_pimpl() noexcept = default;
  virtual ~io_device_pimpl();
  io_device_pimpl(const io_device_pimpl&) = delete;
  io_device_pimpl& operator=(const io_device_pimpl&) = delete;

  char* name = nullptr;  // owned copy, allocated with new[]
  unsigned int open_mode = 0;
  unsigned int state = 0;
  unsigned int exceptions = 0;
};

// The abstract byte device. State bits and open-mode bits have the values of
// std::ios_base: bad 1, eof 2, fail 4; app 1, ate 2, binary 4, in 8, out 16,
// trunc 32. Failures are recorded in the state; a device throws
// std::system_error(std::io_errc::stream) only for bits put in the exceptions
// mask, and always after the state has changed. One thread at a time.
class NORVANE_API io_device {
public:
  static constexpr unsigned int badbit = 1;
  static constexpr unsigned int eofbit = 2;
  static constexpr unsigned int failbit = 4;

  static constexpr unsigned int app = 1;
  static constexpr unsigned int ate = 2;
  static constexpr unsigned int binary = 4;
  static constexpr unsigned int in = 8;
  static constexpr unsigned int out = 16;
  static constexpr unsigned int trunc = 32;

  io_device();
  // Adopts a record allocated with new by the derived class.
  explicit io_device(io_device_pimpl& pimpl) noexcept;
  virtual ~io_device();
  io_device(const io_device&) = delete;
  io_device& operator=(const io_device&) = delete;

  virtual bool is_open() const = 0;
  virtual void close() = 0;
  // Copies up to `count` bytes from the current position without moving it;
  // returns the number copied.
  virtual long peek(char* buffer, long count) const = 0;
  // Copies and advances; a short read sets eof and fail.
  virtual void read(char* buffer, long count) = 0;
  virtual void write(const char* buffer, long count) = 0;
  virtual void seek(long long offset, std::ios_base::seekdir whence) = 0;
  // The current position, or -1.
  virtual long long tell() const = 0;
  virtual char* data() const = 0;
  virtual long long size() const = 0;
  virtual bool is_sequential() const = 0;

  bool is_good() const noexcept;
  bool at_end() const noexcept;
  // Bad or fail.
  bool has_failure() const noexcept;
  // Bad only.
  bool has_error() const noexcept;
  unsigned int state() const noexcept;
  // ORs `bits` into the state, then throws when the state meets the mask:
  // once a masked bit is set even set_state(0) throws, until clear removes it.
  void set_state(unsigned int bits);
  // Replaces the state, then throws when the new state meets the mask.
  void clear(unsigned int state);
  unsigned int exceptions() const noexcept;
  // Stores the mask, then throws when the current state already meets it.
  void set_exceptions(unsigned int mask);

  // Null until set.
  const char* name() const noexcept;
  // Keeps a copy; null clears the name.
  void set_name(const char* name);
  unsigned int open_mode() const noexcept;
  // Stores the mode as given, without checking it.
  void set_open_mode(unsigned int mode) noexcept;
  // Every open asks this first. Refuses trunc without out, app with trunc,
  // and any mode while the device is open, by setting fail (with the
  // throwing rule of set_state) and returning false. Stores nothing.
  bool verify_open_mode(unsigned int mode);

  // Reads one line of at most `max` - 1 bytes into `buffer`, zero-terminated,
  // the delimiter kept; a carriage return before a line feed delimiter comes
  // back as the line feed alone. Returns the length, or -1 for an empty
  // result on a device with the bad bit. Kept deliberately as it has always
  // behaved: a line ending at the end of data without a delimiter comes back
  // with its last byte doubled ("cd" gives "cdd").
  long read_line(bool* delimiter_found, char* buffer, long max, char delimiter);

protected:
  // For derived devices, to reach the record they built.
  io_device_pimpl& pimpl() const noexcept { return *pimpl_; }

private:
  void throw_if_masked() const;

  io_device_pimpl* pimpl_;
};

// A device over caller memory. The logical stream may be laid over the
// memory in equal chunks taken in any order: chunk_ids[k] names the physical
// chunk that holds logical chunk k. Without chunks the memory is one chunk.
// The device never grows the memory; writes stop at the logical size.
class NORVANE_API io_buffer : public io_device {
public:
  io_buffer();
  ~io_buffer() override;

  // A read-only view of `size` bytes; the caller keeps the memory.
  void open(const char* data, long size);
  // One chunk over `size` bytes. With `take_ownership` the device frees
  // `data` with delete[] on close and on destruction.
  void open(char* data, long size, unsigned int mode, bool take_ownership);
  // The general form. A second open on an open device is refused (fail) and
  // leaves the first memory in place; a refused open does not take
  // ownership. A null `data` passes and clears the state but leaves the
  // device closed. Chunk ids are not checked against the memory's length.
  void open(char* data, long size, const std::vector<unsigned long>& chunk_ids, long chunk_size,
            unsigned int mode, bool take_ownership);

  bool is_open() const override;
  // Frees owned memory and forgets the buffer; the state is kept. Closing a
  // closed device sets fail.
  void close() override;
  long peek(char* buffer, long count) const override;
  // Reads min(count, size - position) bytes. Kept as it has always behaved:
  // a read of 0 bytes at position 0 reads the whole buffer and sets eof and
  // fail, so the destination must be able to hold it.
  void read(char* buffer, long count) override;
  // Needs out; overwrites in place up to the logical size and sets bad for
  // what did not fit.
  void write(const char* buffer, long count) override;
  // Ignored while the device has a failure. A negative target sets fail;
  // past the end is allowed (reads there deliver nothing).
  void seek(long long offset, std::ios_base::seekdir whence) override;
  // -1 with a failure or an unmappable position. A closed device reports 0.
  long long tell() const override;
  char* data() const override;
  long long size() const override;
  bool is_sequential() const override;

  const std::vector<unsigned long>& chunk_ids() const;
  long chunk_size() const;
  // Replaces the chunk layout and rewinds to the start. `chunk_ids` must not
  // be empty.
  void set_chunks(const std::vector<unsigned long>& chunk_ids, long chunk_size);
};

// A device over a file mapped whole. Writing past the mapped end grows the
// file and its mapping a page at a time; closing a writable file cuts it
// back to the bytes written. size() is the mapped length, not the number of
// bytes written: an empty file opened for writing reports one page.
class NORVANE_API io_file : public io_device {
public:
  io_file();
  ~io_file() override;

  // Modes (ate may be added to any of them, moving the start to the end):
  // out or out|trunc create or empty the file; in reads; in|out updates;
  // in|out|trunc creates or empties it; out|app is accepted by the mode
  // check but a file opened write-only cannot be mapped, so it fails. Any
  // mode with binary fails. New files get permissions 0700. Failure sets
  // fail; success clears the state.
  void open(const std::filesystem::path& path, unsigned int mode);

  bool is_open() const override;
  // Unmaps, truncates a writable file to its logical size and closes the
  // descriptor. Sets fail on a closed device or when a step fails.
  void close() override;
  long peek(char* buffer, long count) const override;
  // Bounded by the mapped length, not the logical size; a read of 0 bytes at
  // position 0 reads the whole mapping and sets eof and fail.
  void read(char* buffer, long count) override;
  // Needs out. Grows the file as needed; growth that fails sets bad and
  // writes nothing.
  void write(const char* buffer, long count) override;
  void seek(long long offset, std::ios_base::seekdir whence) override;
  long long tell() const override;
  char* data() const override;
  long long size() const override;
  bool is_sequential() const override;
};

}  // namespace norvane
