// The Linux host layer: processor packages from /proc/cpuinfo and sysfs, the
// distribution from os-release, memory from /proc/meminfo. Every file is
// read below a root directory so that fixture trees can stand in for the
// host; whatever a file does not say keeps the description's fallback.
#include "system/host_info.hpp"
#include "system/host_text.hpp"

#include <norvane/strings.hpp>

#include <algorithm>
#include <charconv>
#include <climits>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <system_error>

namespace norvane::details {

std::string read_text(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return {};
  }
  std::ostringstream content;
  content << in.rdbuf();
  return std::move(content).str();
}

std::string_view trimmed(std::string_view text) noexcept {
  remove_leading_whitespace(text);
  remove_trailing_whitespace(text);
  return text;
}

std::int64_t parse_count(std::string_view text) noexcept {
  std::int64_t value = 0;
  const auto* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc{} || ptr != end || value < 0) {
    return -1;
  }
  return value;
}

namespace {

int parse_small_count(std::string_view s) {
  const auto value = parse_count(s);
  return value <= INT_MAX ? static_cast<int>(value) : -1;
}

std::int64_t read_count(const std::filesystem::path& path) { return parse_count(trimmed(read_text(path))); }

// The package's nominal clock from cpufreq, in kHz there. The "cpu MHz" line
// of /proc/cpuinfo is left alone: it is the momentary speed of one logical
// processor and changes with load.
std::int64_t regular_frequency_mhz(const std::filesystem::path& cpu_dir) {
  const auto khz = read_count(cpu_dir / "cpufreq" / "base_frequency");
  return khz < 0 ? -1 : khz / 1000;
}

host_cpu describe_package(int id, const std::vector<cpuinfo_entry>& entries) {
  host_cpu cpu;
  cpu.id = id;
  std::set<int> cores;
  for (const auto& entry : entries) {
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
  return cpu;
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
      if (trimmed(line).empty()) {
        finish_block();
      }
      return;
    }
    const auto key = trimmed(line.substr(0, colon));
    const auto value = trimmed(line.substr(colon + 1));
    if (key == "processor") {
      // Some kernels separate blocks by this line only.
      finish_block();
      current.processor = parse_small_count(value);
    } else if (key == "physical id") {
      current.physical_id = parse_small_count(value);
    } else if (key == "core id") {
      current.core_id = parse_small_count(value);
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
    line = trimmed(line);
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
    if (colon == std::string_view::npos || trimmed(line.substr(0, colon)) != key) {
      return;
    }
    auto value = trimmed(line.substr(colon + 1));
    const auto digits_end = value.find_first_not_of("0123456789");
    const auto unit =
        digits_end == std::string_view::npos ? std::string_view{} : trimmed(value.substr(digits_end));
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

std::vector<host_cpu> read_host_cpus(const std::filesystem::path& root) {
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
    cpus.back().regular_frequency_mhz = regular_frequency_mhz(cpu_dir / "cpu0");
  }
  for (const auto& [id, members] : packages) {
    cpus.push_back(describe_package(id, members));
    int first = members.front().processor;
    for (const auto& member : members) {
      first = std::min(first, member.processor);
    }
    cpus.back().regular_frequency_mhz = regular_frequency_mhz(cpu_dir / ("cpu" + std::to_string(first)));
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
  return os;
}

host_ram read_host_ram(const std::filesystem::path& root) {
  host_ram ram;
  ram.modules.push_back({meminfo_bytes(read_text(root / "proc" / "meminfo"), "MemTotal")});
  return ram;
}

std::vector<host_cpu> current_host_cpus() { return read_host_cpus("/"); }

host_os current_host_os() { return read_host_os("/"); }

host_ram current_host_ram() { return read_host_ram("/"); }

}  // namespace norvane::details
