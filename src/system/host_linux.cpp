// The Linux host layer: processor packages from /proc/cpuinfo and sysfs, the
// distribution from os-release, the kernel from uname, memory from
// /proc/meminfo. Every file is read below a root directory so that fixture
// trees can stand in for the host; whatever a file does not say keeps the
// description's fallback.
#include "system/host_info.hpp"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <climits>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <system_error>

namespace norvane::details {
namespace {

constexpr std::string_view blanks = " \t\r\n";

std::string_view trim(std::string_view s) {
  const auto first = s.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  const auto last = s.find_last_not_of(blanks);
  return s.substr(first, last - first + 1);
}

// A non-negative decimal that fills the whole text; -1 otherwise.
std::int64_t parse_count(std::string_view s) {
  std::int64_t value = 0;
  const auto* end = s.data() + s.size();
  const auto [ptr, ec] = std::from_chars(s.data(), end, value);
  if (s.empty() || ec != std::errc{} || ptr != end || value < 0) {
    return -1;
  }
  return value;
}

int parse_small_count(std::string_view s) {
  const auto value = parse_count(s);
  return value <= INT_MAX ? static_cast<int>(value) : -1;
}

// Calls `line_fn(line)` for each line of `text`, the last one even without
// its newline.
template <typename Fn>
void for_each_line(std::string_view text, Fn&& line_fn) {
  while (!text.empty()) {
    const auto end = text.find('\n');
    line_fn(text.substr(0, end));
    if (end == std::string_view::npos) {
      break;
    }
    text.remove_prefix(end + 1);
  }
}

// The whole file, or empty when it cannot be read (missing, a directory,
// no permission). /proc files report a size of 0, so this reads to the end.
std::string read_text(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return {};
  }
  std::ostringstream content;
  content << in.rdbuf();
  return std::move(content).str();
}

std::int64_t read_count(const std::filesystem::path& path) { return parse_count(trim(read_text(path))); }

std::int64_t khz_to_mhz(std::int64_t khz) { return khz < 0 ? -1 : khz / 1000; }

// The cache levels of one logical processor, from
// sys/devices/system/cpu/cpu<N>/cache/index<M>/{level,type,size}. Level 1
// reports the data cache, as the per-core figure that matters to code.
void read_caches(const std::filesystem::path& cpu_dir, host_cpu& cpu) {
  std::error_code ec;
  for (std::filesystem::directory_iterator it(cpu_dir / "cache", ec), end; !ec && it != end;
       it.increment(ec)) {
    const auto& index = it->path();
    if (index.filename().string().rfind("index", 0) != 0) {
      continue;
    }
    const auto type = std::string(trim(read_text(index / "type")));
    if (type != "Data" && type != "Unified") {
      continue;
    }
    const auto size = cache_size_bytes(read_text(index / "size"));
    switch (read_count(index / "level")) {
      case 1:
        cpu.l1_cache_bytes = size;
        break;
      case 2:
        cpu.l2_cache_bytes = size;
        break;
      case 3:
        cpu.l3_cache_bytes = size;
        break;
      default:
        break;
    }
  }
}

// Clock speeds from cpufreq, in kHz there. The "cpu MHz" line of
// /proc/cpuinfo is left alone: it is the momentary speed of one logical
// processor and changes with load.
void read_frequencies(const std::filesystem::path& cpu_dir, host_cpu& cpu) {
  cpu.max_frequency_mhz = khz_to_mhz(read_count(cpu_dir / "cpufreq" / "cpuinfo_max_freq"));
  cpu.regular_frequency_mhz = khz_to_mhz(read_count(cpu_dir / "cpufreq" / "base_frequency"));
}

host_cpu describe_package(int id, const std::vector<cpuinfo_entry>& entries) {
  host_cpu cpu;
  cpu.id = id;
  std::set<int> cores;
  for (const auto& entry : entries) {
    if (cpu.vendor == unknown_text && !entry.vendor.empty()) {
      cpu.vendor = entry.vendor;
    }
    if (cpu.model_name == unknown_text && !entry.model_name.empty()) {
      cpu.model_name = entry.model_name;
    }
    if (entry.core_id >= 0) {
      cores.insert(entry.core_id);
    }
  }
  if (!cores.empty()) {
    cpu.physical_cores = static_cast<int>(cores.size());
  }
  cpu.logical_cores = static_cast<int>(entries.size());
  return cpu;
}

std::string kernel_description() {
  utsname names{};
  if (uname(&names) != 0) {
    return "<unknown name> <unknown version>";
  }
  return std::string(names.sysname) + " " + names.release;
}

}  // namespace

std::vector<cpuinfo_entry> parse_cpuinfo(std::string_view text) {
  std::vector<cpuinfo_entry> entries;
  cpuinfo_entry current;
  // A block only counts once it names its processor number: the trailing
  // "Hardware" block of some ARM kernels names none.
  const auto finish_block = [&] {
    if (current.processor >= 0) {
      entries.push_back(std::move(current));
    }
    current = cpuinfo_entry{};
  };
  for_each_line(text, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) {
      if (trim(line).empty()) {
        finish_block();
      }
      return;
    }
    const auto key = trim(line.substr(0, colon));
    const auto value = trim(line.substr(colon + 1));
    if (key == "processor") {
      // Some kernels separate blocks by this line only.
      finish_block();
      current.processor = parse_small_count(value);
    } else if (key == "physical id") {
      current.physical_id = parse_small_count(value);
    } else if (key == "core id") {
      current.core_id = parse_small_count(value);
    } else if (key == "vendor_id") {
      current.vendor = value;
    } else if (key == "model name") {
      current.model_name = value;
    }
  });
  finish_block();
  return entries;
}

std::string os_release_value(std::string_view text, std::string_view key) {
  std::string result;
  for_each_line(text, [&](std::string_view line) {
    line = trim(line);
    const auto equals = line.find('=');
    if (line.empty() || line.front() == '#' || equals == std::string_view::npos ||
        line.substr(0, equals) != key) {
      return;
    }
    auto raw = line.substr(equals + 1);
    if (raw.empty() || (raw.front() != '"' && raw.front() != '\'')) {
      result = raw;
      return;
    }
    // Shell quoting: a double-quoted value may escape \ " $ and `; a value
    // whose closing quote is missing is a truncated line and is ignored.
    const char quote = raw.front();
    std::string value;
    for (std::size_t i = 1; i < raw.size(); ++i) {
      const char c = raw[i];
      if (c == quote) {
        result = std::move(value);
        return;
      }
      if (quote == '"' && c == '\\' && i + 1 < raw.size()) {
        value += raw[++i];
      } else {
        value += c;
      }
    }
  });
  return result;
}

std::int64_t meminfo_bytes(std::string_view text, std::string_view key) {
  std::int64_t result = -1;
  for_each_line(text, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || trim(line.substr(0, colon)) != key) {
      return;
    }
    auto value = trim(line.substr(colon + 1));
    const auto digits_end = value.find_first_not_of("0123456789");
    const auto unit =
        digits_end == std::string_view::npos ? std::string_view{} : trim(value.substr(digits_end));
    const auto amount = parse_count(value.substr(0, digits_end));
    if (amount < 0) {
      result = -1;
    } else if (unit.empty()) {
      result = amount;
    } else if (unit == "kB" && amount <= std::numeric_limits<std::int64_t>::max() / 1024) {
      result = amount * 1024;
    } else {
      result = -1;
    }
  });
  return result;
}

std::int64_t cache_size_bytes(std::string_view text) {
  auto value = trim(text);
  std::int64_t scale = 1;
  if (!value.empty()) {
    switch (value.back()) {
      case 'K':
        scale = std::int64_t{1} << 10;
        break;
      case 'M':
        scale = std::int64_t{1} << 20;
        break;
      case 'G':
        scale = std::int64_t{1} << 30;
        break;
      default:
        break;
    }
    if (scale != 1) {
      value.remove_suffix(1);
    }
  }
  const auto amount = parse_count(value);
  if (amount < 0 || amount > std::numeric_limits<std::int64_t>::max() / scale) {
    return -1;
  }
  return amount * scale;
}

std::vector<host_cpu> read_host_cpus(const std::filesystem::path& root, int online_cpus) {
  const auto entries = parse_cpuinfo(read_text(root / "proc" / "cpuinfo"));
  // Without a physical id (single-package machines of some architectures,
  // most virtual machines of old) everything belongs to package 0.
  std::map<int, std::vector<cpuinfo_entry>> packages;
  for (const auto& entry : entries) {
    packages[entry.physical_id < 0 ? 0 : entry.physical_id].push_back(entry);
  }
  const auto cpu_dir = root / "sys" / "devices" / "system" / "cpu";
  std::vector<host_cpu> cpus;
  if (packages.empty()) {
    cpus.emplace_back();
    read_caches(cpu_dir / "cpu0", cpus.back());
    read_frequencies(cpu_dir / "cpu0", cpus.back());
  }
  for (const auto& [id, members] : packages) {
    cpus.push_back(describe_package(id, members));
    int first = members.front().processor;
    for (const auto& member : members) {
      first = std::min(first, member.processor);
    }
    const auto first_dir = cpu_dir / ("cpu" + std::to_string(first));
    read_caches(first_dir, cpus.back());
    read_frequencies(first_dir, cpus.back());
  }
  // The system's count of online processors is the authority for a single
  // package; with several packages it cannot be split, so each package
  // counts its own entries.
  if (cpus.size() == 1 && online_cpus > 0) {
    cpus.front().logical_cores = online_cpus;
  }
  return cpus;
}

host_os read_host_os(const std::filesystem::path& root) {
  auto text = read_text(root / "etc" / "os-release");
  if (text.empty()) {
    text = read_text(root / "usr" / "lib" / "os-release");
  }
  host_os os;
  os.name = os_release_value(text, "NAME");
  if (os.name.empty()) {
    os.name = "Linux";
  }
  auto version = os_release_value(text, "VERSION_ID");
  if (!version.empty()) {
    os.version = std::move(version);
  }
  os.kernel = kernel_description();
  os.is_64bit = sizeof(void*) == 8;
  os.is_32bit = sizeof(void*) == 4;
  os.is_big_endian = std::endian::native == std::endian::big;
  os.is_little_endian = std::endian::native == std::endian::little;
  return os;
}

host_ram read_host_ram(const std::filesystem::path& root) {
  const auto text = read_text(root / "proc" / "meminfo");
  host_ram ram;
  host_memory_module module;
  module.total_bytes = meminfo_bytes(text, "MemTotal");
  ram.modules.push_back(std::move(module));
  ram.available_bytes = meminfo_bytes(text, "MemAvailable");
  return ram;
}

std::vector<host_cpu> current_host_cpus() {
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return read_host_cpus("/", online > 0 && online <= INT_MAX ? static_cast<int>(online) : -1);
}

host_os current_host_os() { return read_host_os("/"); }

host_ram current_host_ram() { return read_host_ram("/"); }

}  // namespace norvane::details
