// The record behind lock_file. It reports failures as error codes without
// logging, so that the settings store can take the same lock and word its
// own messages.
#pragma once

#include <norvane/io.hpp>

#include <chrono>
#include <filesystem>
#include <system_error>

namespace norvane {

class lock_file::pimpl {
public:
  explicit pimpl(std::filesystem::path lock_path) : path(std::move(lock_path)) {}
  ~pimpl() { unlock(); }
  pimpl(const pimpl&) = delete;
  pimpl& operator=(const pimpl&) = delete;

  // Empty when the lock is held; std::errc::resource_unavailable_try_again
  // when another holder has it; the system's error otherwise.
  std::error_code try_lock();
  // As try_lock, waiting up to `timeout`: std::errc::timed_out when the
  // lock did not come in time.
  std::error_code lock(std::chrono::milliseconds timeout);
  void unlock() noexcept;
  holder_info holder() const;

  std::filesystem::path path;
  int fd = -1;
};

}  // namespace norvane
