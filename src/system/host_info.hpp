// The host descriptions behind system_cpu, system_os and system_ram, and the
// platform layer that fills them. Each platform has its own host_<os>.cpp;
// the container limits of Linux live in cgroup_linux.cpp.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace norvane::details {

inline constexpr const char* unknown_text = "<unknown>";

// One processor package.
struct host_cpu {
  int id = 0;
  std::string model_name = unknown_text;
  int physical_cores = -1;
  std::int64_t regular_frequency_mhz = -1;
};

struct host_os {
  std::string name;
  std::string version = unknown_text;
};

struct host_memory_module {
  std::int64_t total_bytes = -1;
};

struct host_ram {
  std::vector<host_memory_module> modules;
  // Neither host layer fills it: the public free_MiB() reports -1 bytes on
  // every host.
  std::int64_t free_bytes = -1;
};

// What one logical processor of /proc/cpuinfo says; -1 or empty where it
// says nothing usable.
struct cpuinfo_entry {
  int processor = -1;
  int physical_id = -1;
  int core_id = -1;
  std::string model_name;
};

// The Linux text formats, parsed without touching the file system. They
// accept any bytes: lines they cannot read are skipped.
std::vector<cpuinfo_entry> parse_cpuinfo(std::string_view text);
// The value of `key` in an os-release file, unquoted; empty when absent.
std::string os_release_value(std::string_view text, std::string_view key);
// The size in bytes of a /proc/meminfo field given in kB; -1 when absent,
// not a number or too large.
std::int64_t meminfo_bytes(std::string_view text, std::string_view key);

// The host descriptions, read from the files under `root` ("/" on a real
// host; tests point it at fixture trees).
std::vector<host_cpu> read_host_cpus(const std::filesystem::path& root);
host_os read_host_os(const std::filesystem::path& root);
host_ram read_host_ram(const std::filesystem::path& root);

// The same for the running host, as system_info builds them.
std::vector<host_cpu> current_host_cpus();
host_os current_host_os();
host_ram current_host_ram();

// Where one cgroup controller of this process keeps its files: the
// directories from the process's own cgroup up to the root of the mounted
// hierarchy (leaf first, as paths of the mount table), and whether that
// hierarchy is the unified one (cgroup v2), whose file names differ.
struct cgroup_directories {
  std::vector<std::string> leaf_to_root;
  bool unified = false;
};

// The directories of `controller` ("cpu", "memory") from the texts of
// /proc/self/cgroup and /proc/self/mountinfo. A v1 hierarchy that carries
// the controller wins over the unified one, as the kernel lets only one of
// them govern it; empty when neither is mounted.
cgroup_directories find_cgroup(std::string_view proc_cgroup, std::string_view mountinfo,
                               std::string_view controller);
// The CPUs a quota allows, rounded up: cpu.max ("max 100000", "50000
// 100000"), or cpu.cfs_quota_us over cpu.cfs_period_us. -1 for no limit and
// for anything that is not a positive quota over a positive period.
std::int64_t cpu_max_cores(std::string_view cpu_max);
std::int64_t cfs_quota_cores(std::string_view quota, std::string_view period);
// A positive byte limit from memory.max or memory.limit_in_bytes; -1 for
// "max", "-1", 0 and anything that is not a positive count.
std::int64_t cgroup_memory_bytes(std::string_view text);

// The figures a process inside a container should plan with, from the files
// under `root`. `affinity_cpus` is how many CPUs the process may run on; the
// result is that, cut by the tightest CPU quota of its cgroup and the
// cgroups above it, and never below 1.
int usable_cores(const std::filesystem::path& root, int affinity_cpus);
// The tightest memory limit of the process's cgroups when it is below
// `total_bytes` (or the total is unknown, -1), else `total_bytes`.
std::int64_t memory_limit_bytes(const std::filesystem::path& root, std::int64_t total_bytes);
// MemAvailable of /proc/meminfo; -1 when the kernel does not report it.
std::int64_t available_memory_bytes(const std::filesystem::path& root);

// The CPUs of this process's affinity mask, or the online count when the
// mask cannot be read.
int affinity_cpus();

}  // namespace norvane::details
