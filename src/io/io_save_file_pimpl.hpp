// The record behind io_save_file, and the durable replacement of a file it
// is built on, which the settings store also saves through.
#pragma once

#include <norvane/io.hpp>

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace norvane {

namespace details {

// Replaces one file whole or not at all: the bytes go to a new file in the
// target's directory, which commit() flushes to disk and renames over the
// target before flushing the directory, so that after a crash or a power cut
// the target holds either its old content or the new one. The target is
// untouched until the rename; a save that is discarded, fails or is
// destroyed removes its new file. Failures come back as error codes with the
// step that failed (step()), for the caller to report.
class save_file {
public:
  save_file() = default;
  ~save_file();
  save_file(const save_file&) = delete;
  save_file& operator=(const save_file&) = delete;

  // Resolves `target` through symbolic links (the link stays a link and the
  // file it points at is replaced) and creates the new file beside it. An
  // existing target must be a regular file its permission bits let us
  // write; its mode, and its owner where we may give files away, carry over.
  std::error_code open(const std::filesystem::path& target);
  // Writes all of `size` bytes at `offset` of the new file.
  std::error_code write(const char* data, std::int64_t size, std::int64_t offset);
  std::error_code commit();
  void discard() noexcept;

  bool is_open() const noexcept { return fd_ != -1; }
  // Where the rename lands: the target with its links followed.
  const std::filesystem::path& destination() const noexcept { return destination_; }
  // What the last failure was doing, as a phrase for a message.
  std::string_view step() const noexcept { return step_; }

private:
  std::error_code fail(std::string_view step, int error) noexcept;

  int fd_ = -1;
  std::filesystem::path destination_;
  std::filesystem::path temporary_;
  std::string_view step_;
};

// The file a chain of symbolic links ends at (the path itself when it is no
// link); empty for a loop or a chain longer than the kernel would follow.
std::filesystem::path resolve_links(std::filesystem::path path);

}  // namespace details

struct io_save_file_pimpl : io_device_pimpl {
  details::save_file file;
  std::filesystem::path target;
  std::int64_t position = 0;
  std::int64_t size = 0;
};

}  // namespace norvane
