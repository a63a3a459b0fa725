// Byte devices: the abstract io_device with stream-style state bits, an
// exceptions mask and open modes; io_buffer over caller memory, optionally
// laid out in chunks taken in any order; io_file over a memory-mapped file;
// io_save_file, which replaces a file whole or not at all. And lock_file,
// an inter-process lock held through a file.
#pragma once

#include <norvane/export.hpp>

#include <chrono>
#include <filesystem>
#include <ios>
#include <memory>
#include <string>
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
  io_device_pimpl& pimpl() const noexcept { return *impl_; }

private:
  void throw_if_masked() const;

  std::unique_ptr<io_device_pimpl> impl_;
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

// Saves a file whole or not at all. Writes go to a new file in the target's
// directory; commit() flushes it to disk, renames it over the target and
// flushes the directory, so that a crash or a power cut at any moment leaves
// the target with its old content or the new one, never a mix. cancel(),
// close() or destruction without commit() removes the new file and leaves
// the target as it was. A target behind symbolic links is replaced where
// the links point (the links stay); an existing target keeps its permission
// bits, and its owner where the process may give files away.
//
// Every failure (a missing or read-only directory, a target that is a
// directory or read-only, a full disk, a file-size limit) sets state bits,
// logs one error line with the path and the system's reason, and leaves the
// target untouched. Write-only: reads deliver nothing; data() is null.
class NORVANE_API io_save_file : public io_device {
public:
  io_save_file();
  // Discards the new file unless commit() succeeded.
  ~io_save_file() override;

  // `mode` is out, optionally with trunc or binary (the new file always
  // starts empty); anything else sets fail. Creates the new file at once,
  // so a directory that takes no file fails here, with fail set.
  void open(const std::filesystem::path& target, unsigned int mode = out);
  // True when the target now holds exactly what was written and both the
  // file and the rename are on disk. False, with the new file removed, after
  // any failure, including an earlier write's (bad set, target untouched).
  // The device is closed afterwards either way.
  bool commit();
  // Removes the new file; the target stays as it was.
  void cancel();

  bool is_open() const override;
  // The same as cancel(); fail on a closed device.
  void close() override;
  long peek(char* buffer, long count) const override;
  void read(char* buffer, long count) override;
  // At the position; a gap left by a seek past the end reads as zeros.
  // A failed write sets bad and discards the save.
  void write(const char* buffer, long count) override;
  void seek(long long offset, std::ios_base::seekdir whence) override;
  long long tell() const override;
  char* data() const override;
  // The bytes written so far (the highest position reached by a write).
  long long size() const override;
  bool is_sequential() const override;
};

// An exclusive lock between processes, held through a file at a path the
// caller gives (a runtime or configuration directory). It is an operating
// system lock on the open file (flock), so it goes with its holder: a
// process that dies, even by SIGKILL, never leaves a lock that blocks the
// next one. While held, the file names the holder (process id, host name and
// application name) for refused callers to report; the file itself is left
// in place, emptied, when the lock is released.
//
// Two lock_file objects exclude each other even in one process, so threads
// may each take their own. One object is used by one thread at a time.
class NORVANE_API lock_file {
public:
  class pimpl;

  // Who holds a lock, as its file records it; pid 0 when nobody does or the
  // record cannot be read.
  struct holder_info {
    long long pid = 0;
    std::string host_name;
    std::string application_name;
  };

  // Touches nothing until a lock is asked for.
  explicit lock_file(const std::filesystem::path& path);
  // Releases the lock when held.
  ~lock_file();
  lock_file(const lock_file&) = delete;
  lock_file& operator=(const lock_file&) = delete;

  // True when the lock is now held (also when this object already held it).
  // False at once when another holds it (nothing logged), or, with an error
  // logged, when the file cannot be created or locked.
  bool try_lock();
  // Waits up to `timeout` for the lock. False when it did not come in time,
  // with one error line naming the holder, or for try_lock's errors.
  bool lock(std::chrono::milliseconds timeout);
  void unlock();
  bool is_locked() const;
  // The holder recorded in the file: this process while it holds the lock.
  holder_info holder() const;
  const std::filesystem::path& path() const;

private:
  std::unique_ptr<pimpl> impl_;
};

}  // namespace norvane
