// Faults the operating system produces (file-size limit, full or read-only
// file system, missing permissions), each set up in a forked child so that
// limits, dropped capabilities and mounts never reach the test process.
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
  int signal = 0;
  std::string report;  // what the body returned
  std::string errors;  // the child's standard error
  long peak_resident_KiB = 0;

  bool exited_cleanly() const { return signal == 0 && exit_code == 0; }
  bool could_not_set_up() const { return signal == 0 && exit_code == child_cannot_set_up; }
  std::string describe() const;
};

// Runs `body` in a forked child that reports its result and exits with 0,
// child_cannot_set_up on fault_unavailable, 70 on any other exception.
// SIGALRM ends it after `seconds`; `exit_normally` leaves through std::exit.
child_outcome run_in_child(const std::function<std::string()>& body, unsigned seconds = 60,
                           bool exit_normally = false);

struct fault_unavailable {
  std::string reason;
};

// Writes beyond `bytes` fail with EFBIG instead of raising SIGXFSZ.
void limit_file_size(rlim_t bytes);
// Root gives up CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH.
void obey_permission_bits();
// A private mount namespace (in a user namespace when not root).
void enter_private_mounts();
void mount_tmpfs(const std::filesystem::path& directory, std::size_t bytes);
void remount_read_only(const std::filesystem::path& directory);
// Writes one file until ENOSPC; returns how many bytes went in.
std::size_t fill_file_system(const std::filesystem::path& directory, const std::string& name = "filler");
// The names in a directory, sorted, joined with spaces.
std::string directory_listing(const std::filesystem::path& directory);

}  // namespace norvane::test
