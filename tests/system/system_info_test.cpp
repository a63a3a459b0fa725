#include "support/test_support.hpp"
#include "system/host_info.hpp"

#include <norvane/system_info.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

namespace norvane {
namespace {

// The handles are plain pointers: copying one must cost nothing and keep
// pointing at the same description.
static_assert(std::is_trivially_copyable_v<system_cpu>);
static_assert(std::is_trivially_copyable_v<system_os>);
static_assert(std::is_trivially_copyable_v<system_ram>);
static_assert(sizeof(system_cpu) == sizeof(void*));
static_assert(!std::is_default_constructible_v<system_info>);

TEST(BytesToMiB, ScalesByTwoToTheMinusTwentyWithoutRounding) {
  EXPECT_EQ(bytes_to_MiB(1048576), 1.0);
  EXPECT_EQ(bytes_to_MiB(1), 0.00000095367431640625);
  EXPECT_EQ(bytes_to_MiB(-1), -0.00000095367431640625);
  EXPECT_EQ(bytes_to_MiB(0), 0.0);
  EXPECT_EQ(bytes_to_MiB(1572864), 1.5);
  EXPECT_EQ(bytes_to_MiB(1048577), 1.00000095367431640625);
  EXPECT_EQ(bytes_to_MiB(1LL << 40), 1048576.0);
}

TEST(SystemValues, HandlesReportTheirDescriptionUnchanged) {
  details::host_cpu cpu;
  cpu.id = 3;
  cpu.model_name = "Model X";
  cpu.physical_cores = 12;
  cpu.regular_frequency_mhz = 2400;
  const system_cpu handle(&cpu);
  EXPECT_EQ(handle.id(), 3);
  EXPECT_EQ(&handle.model_name(), &cpu.model_name);
  EXPECT_EQ(handle.num_physical_cores(), 12);
  EXPECT_EQ(handle.regular_frequency_mhz(), 2400);

  system_cpu copy;
  copy = handle;
  const system_cpu moved(std::move(copy));
  EXPECT_EQ(&moved.model_name(), &cpu.model_name);

  details::host_os os;
  os.name = "Debian GNU/Linux";
  const system_os os_handle(&os);
  EXPECT_EQ(os_handle.type(), "Debian GNU/Linux");
  EXPECT_EQ(os_handle.version(), "<unknown>");

  // The total is the sum of the modules; the free count is the fixed -1 bytes.
  details::host_ram ram;
  ram.modules.resize(2);
  ram.modules[0].total_bytes = 8LL << 30;
  ram.modules[1].total_bytes = 512LL << 20;
  const system_ram ram_handle(&ram);
  EXPECT_EQ(ram_handle.total_MiB(), 8192.0 + 512.0);
  EXPECT_EQ(ram_handle.free_MiB(), -0.00000095367431640625);

  ram.modules.clear();
  EXPECT_EQ(ram_handle.total_MiB(), 0.0);
}

// What the test itself reads from /proc/cpuinfo, independently of the layer.
struct cpuinfo_summary {
  std::string first_model;
  std::set<std::pair<std::string, std::string>> cores;
  std::set<std::string> packages;
};

cpuinfo_summary summarise_cpuinfo() {
  cpuinfo_summary summary;
  std::istringstream in(test::read_file("/proc/cpuinfo"));
  std::string line;
  std::string physical = "0";
  auto value_of = [](const std::string& l) {
    auto v = l.substr(l.find(':') + 1);
    v.erase(0, v.find_first_not_of(" \t"));
    return v;
  };
  while (std::getline(in, line)) {
    if (line.rfind("model name", 0) == 0 && summary.first_model.empty()) {
      summary.first_model = value_of(line);
    } else if (line.rfind("physical id", 0) == 0) {
      physical = value_of(line);
      summary.packages.insert(physical);
    } else if (line.rfind("core id", 0) == 0) {
      summary.cores.emplace(physical, value_of(line));
    }
  }
  return summary;
}

std::string os_release_field(const std::string& key) {
  auto text = test::read_file("/etc/os-release");
  if (text.empty()) {
    text = test::read_file("/usr/lib/os-release");
  }
  std::istringstream in(text);
  std::string line;
  std::string value;
  while (std::getline(in, line)) {
    if (line.rfind(key + "=", 0) == 0) {
      value = line.substr(key.size() + 1);
      if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'')) {
        value = value.substr(1, value.size() - 2);
      }
    }
  }
  return value;
}

TEST(SystemInfoOnThisHost, CpusMatchProcCpuinfo) {
  const auto summary = summarise_cpuinfo();
  const auto cpus = system_info::all_cpus();
  ASSERT_FALSE(cpus.empty());
  EXPECT_EQ(cpus.size(), std::max<std::size_t>(1, summary.packages.size()));
  EXPECT_EQ(cpus[0].model_name(), summary.first_model.empty() ? "<unknown>" : summary.first_model);

  int physical = 0;
  for (const auto& cpu : cpus) {
    physical += cpu.num_physical_cores();
  }
  if (summary.cores.empty()) {
    EXPECT_EQ(physical, -static_cast<int>(cpus.size()));
  } else {
    EXPECT_EQ(physical, static_cast<int>(summary.cores.size()));
  }

  const auto base = test::read_file("/sys/devices/system/cpu/cpu0/cpufreq/base_frequency");
  EXPECT_EQ(cpus[0].regular_frequency_mhz(), base.empty() ? -1 : std::stoll(base) / 1000);

  // Later calls hand out new handles on the same descriptions.
  const auto again = system_info::all_cpus();
  ASSERT_EQ(again.size(), cpus.size());
  EXPECT_EQ(&again[0].model_name(), &cpus[0].model_name());
}

TEST(SystemInfoOnThisHost, OsMatchesOsRelease) {
  const auto name = os_release_field("NAME");
  const auto version = os_release_field("VERSION_ID");
  const auto os = system_info::os();
  EXPECT_EQ(os.type(), name.empty() ? "Linux" : name);
  EXPECT_EQ(os.version(), version.empty() ? "<unknown>" : version);
}

TEST(SystemInfoOnThisHost, RamMatchesProcMeminfo) {
  std::istringstream in(test::read_file("/proc/meminfo"));
  std::string key;
  long long kib = -1;
  while (in >> key) {
    if (key == "MemTotal:") {
      in >> kib;
      break;
    }
  }
  ASSERT_GT(kib, 0);
  const auto ram = system_info::ram();
  EXPECT_EQ(ram.total_MiB(), static_cast<double>(kib) / 1024.0);
  EXPECT_EQ(ram.free_MiB(), -0.00000095367431640625);
  // Whatever container this runs in, its figures stay within the machine's.
  EXPECT_GT(ram.limit_MiB(), 0.0);
  EXPECT_LE(ram.limit_MiB(), ram.total_MiB());
  EXPECT_GT(ram.available_MiB(), 0.0);
  EXPECT_LE(ram.available_MiB(), ram.total_MiB());
}

}  // namespace
}  // namespace norvane
