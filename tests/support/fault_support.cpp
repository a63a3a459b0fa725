#include "support/fault_support.hpp"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>
#include <stdexcept>
#include <vector>

namespace norvane::test {
namespace {

[[noreturn]] void unavailable(const std::string& what) {
  throw fault_unavailable{what + ": " + std::strerror(errno)};
}

void write_proc_file(const char* path, const std::string& text) {
  const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    unavailable(std::string("writing ") + path);
  }
  ::close(fd);
}

std::string read_and_close(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = ::pread(fd, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;) {
    text.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return text;
}

}  // namespace

std::string child_outcome::describe() const {
  const std::string how = signal != 0
                              ? "killed by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")"
                              : "exited with " + std::to_string(exit_code);
  return how + "; report: \"" + report + "\"; standard error: \"" + errors + "\"";
}

child_outcome run_in_child(const std::function<std::string()>& body, unsigned seconds, bool exit_normally) {
  // Files in memory rather than pipes: the parent reads them once the child
  // is gone, so a talkative child never blocks on a full pipe.
  const int report_fd = ::memfd_create("report", MFD_CLOEXEC);
  const int error_fd = ::memfd_create("errors", MFD_CLOEXEC);
  const pid_t pid = report_fd < 0 || error_fd < 0 ? -1 : ::fork();
  if (pid < 0) throw std::runtime_error("cannot start a child process");
  if (pid == 0) {
    ::dup2(error_fd, STDERR_FILENO);
    ::alarm(seconds);
    int code = 0;
    std::string report;
    try {
      report = body();
    } catch (const fault_unavailable& e) {
      report = e.reason;
      code = child_cannot_set_up;
    } catch (const std::exception& e) {
      report = std::string("exception: ") + e.what();
      code = 70;
    }
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    static_cast<void>(::write(report_fd, report.data(), report.size()));
    if (exit_normally) std::exit(code);
    ::_exit(code);
  }
  int status = 0;
  rusage usage{};
  while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  child_outcome outcome;
  outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  outcome.peak_resident_KiB = usage.ru_maxrss;
  outcome.report = read_and_close(report_fd);
  outcome.errors = read_and_close(error_fd);
  return outcome;
}

void limit_file_size(rlim_t bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  // The soft limit only: the child lifts it again to send its report.
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes;
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) unavailable("setrlimit(RLIMIT_FSIZE)");
}

void obey_permission_bits() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  // Both capabilities live in the first word.
  constexpr unsigned drop = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH);
  if (::syscall(SYS_capget, &header, data) != 0) unavailable("capget");
  data[0].effective &= ~drop;
  data[0].permitted &= ~drop;
  data[0].inheritable &= ~drop;
  if (::syscall(SYS_capset, &header, data) != 0) unavailable("capset");
}

void enter_private_mounts() {
  if (::unshare(CLONE_NEWNS) != 0) {
    // Not privileged here: a user namespace of our own, mapping our ids onto
    // themselves, grants what a mount namespace needs.
    const auto uid = std::to_string(::geteuid()), gid = std::to_string(::getegid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) unavailable("unshare(CLONE_NEWUSER | CLONE_NEWNS)");
    write_proc_file("/proc/self/setgroups", "deny");
    write_proc_file("/proc/self/uid_map", uid + " " + uid + " 1");
    write_proc_file("/proc/self/gid_map", gid + " " + gid + " 1");
  }
  // Empty texts rather than null pointers keep valgrind from reading them
  // as unaddressable; the kernel ignores them here.
  if (::mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0) unavailable("making / private");
}

void mount_tmpfs(const std::filesystem::path& directory, std::size_t bytes) {
  const std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
  if (::mount("tmpfs", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
    unavailable("mounting a tmpfs");
  }
}

void remount_read_only(const std::filesystem::path& directory) {
  if (::mount("", directory.c_str(), "", MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
    unavailable("remounting read-only");
  }
}

std::size_t fill_file_system(const std::filesystem::path& directory, const std::string& name) {
  const auto path = directory / name;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const std::vector<char> block(4096, 'f');
  std::size_t total = 0;
  for (ssize_t n; fd >= 0 && (n = ::write(fd, block.data(), block.size())) > 0;) {
    total += static_cast<std::size_t>(n);
  }
  const int error = errno;
  if (fd < 0 || error != ENOSPC) {
    throw std::runtime_error("filling " + path.string() + ": " + std::strerror(error));
  }
  ::close(fd);
  return total;
}

std::string directory_listing(const std::filesystem::path& directory) {
  std::set<std::string> names;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec)) {
    names.insert(it->path().filename().string());
  }
  std::string text;
  for (const auto& name : names) {
    text += (text.empty() ? "" : " ") + name;
  }
  return text;
}

}  // namespace norvane::test
