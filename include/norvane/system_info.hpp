// A read-only summary of the host: its processor packages, operating system
// and memory. The host is described once per process, on first use; the
// value classes here are light handles on those descriptions.
#pragma once

#include <norvane/export.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace norvane {

namespace details {
struct host_cpu;
struct host_os;
struct host_ram;
}  // namespace details

// `bytes` times 2^-20, with no rounding: bytes_to_MiB(1048576) is 1.0 and
// bytes_to_MiB(-1), the value of an unknown size, is -0.00000095367431640625.
NORVANE_API double bytes_to_MiB(long long bytes) noexcept;

// One processor package. Numbers the host does not tell are -1 and texts
// "<unknown>". A default-constructed object points at nothing: calling an
// accessor on it is not allowed.
class NORVANE_API system_cpu {
public:
  system_cpu() noexcept = default;
  // Does not take ownership; the description must outlive the handle.
  explicit system_cpu(const details::host_cpu* cpu) noexcept : cpu_(cpu) {}

  int id() const noexcept;
  const std::string& model_name() const noexcept;
  int num_physical_cores() const noexcept;
  // The package's nominal clock; -1 where the host does not publish one.
  std::int64_t regular_frequency_mhz() const noexcept;

private:
  const details::host_cpu* cpu_ = nullptr;
};

// The operating system.
class NORVANE_API system_os {
public:
  system_os() noexcept = default;
  explicit system_os(const details::host_os* os) noexcept : os_(os) {}

  // The distribution's name, for instance "Debian GNU/Linux"; "Linux" when
  // the host does not name itself.
  std::string type() const noexcept;
  // The distribution's version, for instance "12"; "<unknown>" when absent.
  std::string version() const noexcept;

private:
  const details::host_os* os_ = nullptr;
};

// The installed memory.
class NORVANE_API system_ram {
public:
  system_ram() noexcept = default;
  explicit system_ram(const details::host_ram* ram) noexcept : ram_(ram) {}

  // The sum over all memory modules; a negative value when the size is unknown.
  double total_MiB() const noexcept;
  // The host description keeps no free byte count, so this is always
  // bytes_to_MiB(-1); kept so that callers on every host see one value.
  // available_MiB() is the figure to plan with.
  double free_MiB() const noexcept;
  // What this process may use: the tightest memory limit of its cgroups
  // (a container's limit) when it is below total_MiB(), else total_MiB().
  // Read at each call, as a container's limit can change while it runs.
  double limit_MiB() const noexcept;
  // The kernel's current estimate of the memory available to new work
  // (MemAvailable), read at each call; bytes_to_MiB(-1) when the kernel does
  // not report it. It describes the host: inside a container, also respect
  // limit_MiB().
  double available_MiB() const noexcept;

private:
  const details::host_ram* ram_ = nullptr;
};

// Entry points. Each description is gathered on the first call of its
// function (thread-safe) and lives until the process exits, so the handles
// stay valid for the whole run.
class NORVANE_API system_info {
public:
  system_info() = delete;

  // One handle per processor package, in ascending package id.
  static std::vector<system_cpu> all_cpus();
  static system_os os();
  static system_ram ram();

  // The processors this process may use at once: the CPUs of its affinity
  // mask (taskset, a container's cpuset), cut by the tightest CPU quota of
  // its cgroups rounded up, so 0.5 CPU counts as 1. Never below 1; read at
  // each call. This, not the installed core count, is the number of worker
  // threads to start.
  static int usable_cores() noexcept;
};

}  // namespace norvane
