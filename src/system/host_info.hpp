// The host descriptions behind system_cpu, system_os and system_ram, and the
// platform layer that fills them. Each platform has its own host_<os>.cpp.
#pragma once

#include <norvane/export.hpp>

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
  std::string vendor = unknown_text;
  std::string model_name = unknown_text;
  std::int64_t l1_cache_bytes = -1;
  std::int64_t l2_cache_bytes = -1;
  std::int64_t l3_cache_bytes = -1;
  int physical_cores = -1;
  int logical_cores = -1;
  std::int64_t max_frequency_mhz = -1;
  std::int64_t regular_frequency_mhz = -1;
};

struct host_os {
  std::string name;
  std::string version = unknown_text;
  // Kernel type and release joined by a blank, for instance "Linux 6.1.0-18-amd64".
  std::string kernel;
  bool is_32bit = false;
  bool is_64bit = false;
  bool is_big_endian = false;
  bool is_little_endian = false;
};

struct host_memory_module {
  int id = 0;
  std::string vendor = unknown_text;
  std::string name = unknown_text;
  std::string serial_number = unknown_text;
  std::string model = unknown_text;
  std::int64_t total_bytes = -1;
  std::int64_t frequency_hz = -1;
};

struct host_ram {
  std::vector<host_memory_module> modules;
  // Neither host layer fills it: the public free_MiB() reports -1 bytes on
  // every host.
  std::int64_t free_bytes = -1;
  // What the kernel estimates is available to new programs; kept, not exposed.
  std::int64_t available_bytes = -1;
};

// What one logical processor of /proc/cpuinfo says; -1 or empty where it
// says nothing usable.
struct cpuinfo_entry {
  int processor = -1;
  int physical_id = -1;
  int core_id = -1;
  std::string vendor;
  std::string model_name;
};

// The Linux text formats, parsed without touching the file system. They
// accept any bytes: lines they cannot read are skipped.
NORVANE_API std::vector<cpuinfo_entry> parse_cpuinfo(std::string_view text);
// The value of `key` in an os-release file, unquoted; empty when absent.
NORVANE_API std::string os_release_value(std::string_view text, std::string_view key);
// The size in bytes of a /proc/meminfo field given in kB; -1 when absent,
// not a number or too large.
NORVANE_API std::int64_t meminfo_bytes(std::string_view text, std::string_view key);
// A sysfs cache size such as "32K", "1024K" or "16M" in bytes; -1 otherwise.
NORVANE_API std::int64_t cache_size_bytes(std::string_view text);

// The host descriptions, read from the files under `root` ("/" on a real
// host; tests point it at fixture trees). `online_cpus` is the system's count
// of online logical processors, -1 when unknown.
NORVANE_API std::vector<host_cpu> read_host_cpus(const std::filesystem::path& root, int online_cpus);
NORVANE_API host_os read_host_os(const std::filesystem::path& root);
NORVANE_API host_ram read_host_ram(const std::filesystem::path& root);

// The same for the running host, as system_info builds them.
std::vector<host_cpu> current_host_cpus();
host_os current_host_os();
host_ram current_host_ram();

}  // namespace norvane::details
