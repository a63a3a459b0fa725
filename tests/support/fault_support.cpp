#include "support/fault_support.hpp"

#include "support/test_support.hpp"

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

void check(bool ok, const std::string& what) {
  if (!ok) throw fault_unavailable{what + ": " + std::strerror(errno)};
}

void write_proc_file(const char* path, const std::string& text) {
  const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
  check(fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
        std::string("writing ") + path);
  ::close(fd);
}

// The memory files stay readable through /proc after the child has gone.
std::string read_and_close(int fd) {
  auto text = read_file("/proc/self/fd/" + std::to_string(fd));
  ::close(fd);
  return text;
}

}  // namespace

std::string child_outcome::describe() const {
  return (signal != 0 ? "killed by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")"
                      : "exited with " + std::to_string(exit_code)) +
         "; report: \"" + report + "\"; standard error: \"" + errors + "\"";
}

child_outcome run_in_child(const std::function<std::string()>& body, unsigned seconds, bool exit_normally) {
  // Files in memory rather than pipes, so a talkative child never blocks.
  const int report_fd = ::memfd_create("report", MFD_CLOEXEC),
            error_fd = ::memfd_create("errors", MFD_CLOEXEC);
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
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
          read_and_close(report_fd), read_and_close(error_fd), usage.ru_maxrss};
}

void limit_file_size(rlim_t bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};  // the soft limit only: the child lifts it to send its report
  ::getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes;
  check(::setrlimit(RLIMIT_FSIZE, &limit) == 0, "setrlimit(RLIMIT_FSIZE)");
}

void obey_permission_bits() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  constexpr unsigned drop = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH);  // both in word 0
  check(::syscall(SYS_capget, &header, data) == 0, "capget");
  for (auto* set : {&data[0].effective, &data[0].permitted, &data[0].inheritable}) *set &= ~drop;
  check(::syscall(SYS_capset, &header, data) == 0, "capset");
}

void enter_private_mounts() {
  if (::unshare(CLONE_NEWNS) != 0) {
    // Not privileged: a user namespace mapping our ids onto themselves.
    const auto uid = std::to_string(::geteuid()), gid = std::to_string(::getegid());
    check(::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "unshare(CLONE_NEWUSER | CLONE_NEWNS)");
    write_proc_file("/proc/self/setgroups", "deny");
    write_proc_file("/proc/self/uid_map", uid + " " + uid + " 1");
    write_proc_file("/proc/self/gid_map", gid + " " + gid + " 1");
  }
  // Empty texts rather than null pointers keep valgrind quiet.
  check(::mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0, "making / private");
}

void mount_tmpfs(const std::filesystem::path& directory, std::size_t bytes) {
  const std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
  check(::mount("tmpfs", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) == 0,
        "mounting a tmpfs");
}

void remount_read_only(const std::filesystem::path& directory) {
  check(::mount("", directory.c_str(), "", MS_REMOUNT | MS_RDONLY, nullptr) == 0, "remounting read-only");
}

std::size_t fill_file_system(const std::filesystem::path& directory, const std::string& name) {
  const auto path = directory / name;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const std::vector<char> block(4096, 'f');
  std::size_t total = 0;
  for (ssize_t n; fd >= 0 && (n = ::write(fd, block.data(), block.size())) > 0;)
    total += static_cast<std::size_t>(n);
  const int error = errno;
  if (fd < 0 || error != ENOSPC)
    throw std::runtime_error("filling " + path.string() + ": " + std::strerror(error));
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
  for (const auto& name : names) text += (text.empty() ? "" : " ") + name;
  return text;
}

}  // namespace norvane::test
