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

// The exit code of a child that the machine does not let set up its fault.
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

// Runs `body` in a forked child, which reports what the body returns and
// exits with 0, with child_cannot_set_up when it throws fault_unavailable,
// and with 70 for any other exception. SIGALRM ends a child running longer
// than `seconds`, so a hang shows as a signal. With `exit_normally` the
// child leaves through std::exit (exit handlers and static destructors run).
child_outcome run_in_child(const std::function<std::string()>& body, unsigned seconds = 60,
                           bool exit_normally = false);

// Thrown inside a child when the fault cannot be set up on this machine.
struct fault_unavailable {
  std::string reason;
};

// In a child: writes beyond `bytes` fail with EFBIG instead of raising SIGXFSZ;
// that holds for what the child writes to its standard error too.
void limit_file_size(rlim_t bytes);
// In a child: permission bits apply even to root, who gives up
// CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH but keeps its uid.
void obey_permission_bits();
// In a child: a private mount namespace (in a user namespace when not root),
// so mounts made afterwards vanish with the child.
void enter_private_mounts();
// After enter_private_mounts(): a tmpfs of `bytes` on `directory`.
void mount_tmpfs(const std::filesystem::path& directory, std::size_t bytes);
// Makes the mount on `directory` read-only; no file on it may be open for writing.
void remount_read_only(const std::filesystem::path& directory);
// Fills the file system of `directory` with one file `name` until ENOSPC;
// returns how many bytes went in.
std::size_t fill_file_system(const std::filesystem::path& directory, const std::string& name = "filler");
// The names in a directory, sorted, joined with spaces.
std::string directory_listing(const std::filesystem::path& directory);

}  // namespace norvane::test
