// Helpers for tests that put the library under faults the operating system
// produces: a file-size limit, a full or read-only file system, missing
// permissions. Each fault is set up in a forked child, so that limits,
// dropped capabilities and mounts never reach the test process itself.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>

namespace norvane::test {

// The exit code with which a child says that the machine does not allow
// the fault it was asked to set up; its report then holds the reason.
inline constexpr int child_cannot_set_up = 77;

struct child_outcome {
  int exit_code = -1;  // -1 when the child did not exit by itself
  int signal = 0;      // the signal that ended it, 0 when it exited
  std::string report;  // what the body returned
  std::string errors;  // everything the child wrote to its standard error
  long peak_resident_KiB = 0;

  bool exited_cleanly() const { return signal == 0 && exit_code == 0; }
  bool could_not_set_up() const { return signal == 0 && exit_code == child_cannot_set_up; }
  // One line for failure messages: how the child ended and what it said.
  std::string describe() const;
};

// Runs `body` in a forked child. The child exits with 0 after the body
// returns, after sending the returned report to the parent; it exits with
// child_cannot_set_up when the body throws fault_unavailable, and with 70
// for any other exception. A child that runs longer than `seconds` is
// killed by SIGALRM, so a hang shows up as a signal rather than a stuck suite.
// With `exit_normally` the child leaves through std::exit, running the
// process's exit handlers and static destructors as an application would;
// otherwise through _exit.
child_outcome run_in_child(const std::function<std::string()>& body, unsigned seconds = 60,
                           bool exit_normally = false);

// Thrown inside a child when the fault cannot be set up on this machine.
struct fault_unavailable {
  std::string reason;
};

// In a child: writes beyond `bytes` fail with EFBIG instead of raising
// SIGXFSZ, which would kill the process.
void limit_file_size(rlim_t bytes);

// In a child: makes permission bits apply to the process. Root gives up
// CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH (keeping its uid, so it still
// owns the files it made); any other user has nothing to give up.
void obey_permission_bits();

// In a child: a mount namespace of its own (inside a new user namespace
// when not root), with every mount private, so mounts made afterwards are
// seen by this process alone and vanish with it.
void enter_private_mounts();

// In a child, after enter_private_mounts(): a tmpfs of `bytes` on
// `directory`.
void mount_tmpfs(const std::filesystem::path& directory, std::size_t bytes);
// Makes the file system mounted on `directory` read-only; it must have no
// file open for writing.
void remount_read_only(const std::filesystem::path& directory);

// Fills the file system holding `directory` with one file named `name`
// until a write fails with ENOSPC; returns how many bytes went in.
std::size_t fill_file_system(const std::filesystem::path& directory, const std::string& name = "filler");

// The names in a directory, sorted, joined with spaces.
std::string directory_listing(const std::filesystem::path& directory);

}  // namespace norvane::test
