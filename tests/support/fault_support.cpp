#include "support/fault_support.hpp"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <vector>

namespace norvane::test {
namespace {

[[noreturn]] void unavailable(const std::string& what) {
  throw fault_unavailable{what + ": " + std::strerror(errno)};
}

void write_all(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

void write_proc_file(const char* path, const std::string& text) {
  const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) {
    unavailable(std::string("opening ") + path);
  }
  const bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(fd);
  if (!ok) {
    unavailable(std::string("writing ") + path);
  }
}

// Reads both pipes to their end at once, so that neither fills up and
// blocks the child while the other is waited for.
void drain(int report_fd, int error_fd, std::string& report, std::string& errors) {
  pollfd fds[2] = {{report_fd, POLLIN, 0}, {error_fd, POLLIN, 0}};
  std::string* into[2] = {&report, &errors};
  int open_fds = 2;
  char buffer[4096];
  while (open_fds > 0) {
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) {
        continue;
      }
      return;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) {
        continue;
      }
      const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        into[i]->append(buffer, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        fds[i].fd = -1;
        --open_fds;
      }
    }
  }
}

}  // namespace

std::string child_outcome::describe() const {
  std::string how = signal != 0
                        ? "killed by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")"
                        : "exited with " + std::to_string(exit_code);
  return how + "; report: \"" + report + "\"; standard error: \"" + errors + "\"";
}

child_outcome run_in_child(const std::function<std::string()>& body, unsigned seconds, bool exit_normally) {
  int report_pipe[2];
  int error_pipe[2];
  if (::pipe2(report_pipe, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe");
  }
  if (::pipe2(error_pipe, O_CLOEXEC) != 0) {
    ::close(report_pipe[0]);
    ::close(report_pipe[1]);
    throw std::runtime_error("pipe");
  }
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(report_pipe[0]);
    ::close(error_pipe[0]);
    ::dup2(error_pipe[1], STDERR_FILENO);
    ::close(error_pipe[1]);
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
    } catch (...) {
      report = "unknown exception";
      code = 71;
    }
    write_all(report_pipe[1], report);
    ::close(report_pipe[1]);
    if (exit_normally) {
      std::exit(code);
    }
    ::_exit(code);
  }
  ::close(report_pipe[1]);
  ::close(error_pipe[1]);
  child_outcome outcome;
  if (pid > 0) {
    drain(report_pipe[0], error_pipe[0], outcome.report, outcome.errors);
  }
  ::close(report_pipe[0]);
  ::close(error_pipe[0]);
  if (pid < 0) {
    throw std::runtime_error("fork");
  }
  int status = 0;
  rusage usage{};
  while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  outcome.peak_resident_KiB = usage.ru_maxrss;
  if (WIFEXITED(status)) {
    outcome.exit_code = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    outcome.signal = WTERMSIG(status);
  }
  return outcome;
}

void limit_file_size(rlim_t bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, bytes};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
    unavailable("setrlimit(RLIMIT_FSIZE)");
  }
}

void obey_permission_bits() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  if (::syscall(SYS_capget, &header, data) != 0) {
    unavailable("capget");
  }
  // Both capabilities live in the first word.
  constexpr unsigned drop = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH);
  if ((data[0].effective & drop) == 0) {
    return;
  }
  data[0].effective &= ~drop;
  data[0].permitted &= ~drop;
  data[0].inheritable &= ~drop;
  if (::syscall(SYS_capset, &header, data) != 0) {
    unavailable("capset");
  }
}

void enter_private_mounts() {
  if (::unshare(CLONE_NEWNS) != 0) {
    // Not privileged here: a user namespace of our own grants what a
    // mount namespace needs, mapping our ids onto themselves.
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
      unavailable("unshare(CLONE_NEWUSER | CLONE_NEWNS)");
    }
    write_proc_file("/proc/self/setgroups", "deny");
    write_proc_file("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1");
    write_proc_file("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1");
  }
  // The kernel ignores source and type here; empty texts rather than null
  // pointers keep valgrind from reading them as unaddressable.
  if (::mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0) {
    unavailable("making / private");
  }
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
  if (fd < 0) {
    throw std::runtime_error("cannot create " + path.string());
  }
  const std::vector<char> block(4096, 'f');
  std::size_t total = 0;
  for (;;) {
    const ssize_t n = ::write(fd, block.data(), block.size());
    if (n > 0) {
      total += static_cast<std::size_t>(n);
      continue;
    }
    const int error = errno;
    ::close(fd);
    if (n < 0 && error == ENOSPC) {
      return total;
    }
    throw std::runtime_error("filling " + path.string() + ": " + std::strerror(error));
  }
}

std::string directory_listing(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(directory, ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    names.push_back(it->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  std::string text;
  for (const auto& name : names) {
    text += (text.empty() ? "" : " ") + name;
  }
  return text;
}

}  // namespace norvane::test
