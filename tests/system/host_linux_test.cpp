// The host descriptions read from trees laid out as the kernel shows them.
#include "support/test_support.hpp"
#include "system/host_info.hpp"

#include <norvane/system_info.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace norvane::details {
namespace {

namespace fs = std::filesystem;

// Writes the files named that have content (null: no file).
void put(const test::temp_dir& root, std::initializer_list<std::pair<const char*, const char*>> files) {
  for (const auto& [relative, content] : files) {
    if (content != nullptr) fs::create_directories((root / relative).parent_path());
    if (content != nullptr) test::write_file(root / relative, content);
  }
}

// One logical processor the way x86 kernels print it.
std::string block(int processor, int physical_id, int core_id, const std::string& model = "Xeon") {
  return "processor\t: " + std::to_string(processor) + "\nvendor_id\t: GenuineIntel\nmodel name\t: " + model +
         "\ncpu MHz\t\t: 2095.078\nphysical id\t: " + std::to_string(physical_id) +
         "\ncore id\t\t: " + std::to_string(core_id) + "\ncpu cores\t: 2\n\n";
}

TEST(HostCpus, PackagesCoresAndClocksFromCpuinfoAndCpufreq) {
  const std::string ht = block(0, 0, 0) + block(1, 0, 1) + block(2, 0, 0) + block(3, 0, 1);
  // Kernels interleave the packages; core ids repeat in each package.
  const std::string two = block(0, 1, 0, "B") + block(1, 0, 0, "A") + block(2, 1, 1, "B") +
                          block(3, 0, 1, "A") + block(4, 1, 0, "B") + block(5, 0, 0, "A");
  const struct {
    std::string cpuinfo;                         // "<none>": no file
    const char *cpu0_khz, *cpu1_khz, *expected;  // expected: id/model/cores/MHz per package
  } cases[] = {
      {ht, nullptr, nullptr, "0/Xeon/2/-1"},
      // Clocks come from each package's first processor.
      {two, "2000000\n", "3000000\n", "0/A/2/3000 1/B/2/2000"},
      {"<none>", nullptr, nullptr, "0/<unknown>/-1/-1"},
      {"processor\t: 0\nmodel name\t: AMD EPYC\nphysical id\t: 0\ncore id", nullptr, nullptr,
       "0/AMD EPYC/-1/-1"},
      // Ids that are not numbers count no core; a bad processor number drops its block.
      {"processor : 0\nphysical id : one\ncore id : -3\nmodel name : A\n\nprocessor : 1\nphysical id : 0\n"
       "core id : 5x\n\nprocessor : x\nphysical id : 7\nmodel name : Gone\n\nprocessor : 99999999999\n"
       "physical id : 8\n",
       nullptr, nullptr, "0/A/-1/-1"},
      // Blocks split by "processor" lines only, CRLF, ARM's trailing block without one.
      {"processor : 0\r\ncore id : 0\r\nprocessor : 1\r\ncore id : 1\r\n\r\nHardware : BCM2835\n", nullptr,
       nullptr, "0/<unknown>/2/-1"},
      {ht, "999\n", nullptr, "0/Xeon/2/0"},
      {ht, "fast\n", nullptr, "0/Xeon/2/-1"},
  };
  for (const auto& c : cases) {
    test::temp_dir root;
    put(root, {{"proc/cpuinfo", c.cpuinfo == "<none>" ? nullptr : c.cpuinfo.c_str()},
               {"sys/devices/system/cpu/cpu0/cpufreq/base_frequency", c.cpu0_khz},
               {"sys/devices/system/cpu/cpu1/cpufreq/base_frequency", c.cpu1_khz}});
    std::string got;
    for (const auto& cpu : read_host_cpus(root.path())) {
      got += (got.empty() ? "" : " ") + std::to_string(cpu.id) + "/" + cpu.model_name + "/" +
             std::to_string(cpu.physical_cores) + "/" + std::to_string(cpu.regular_frequency_mhz);
    }
    EXPECT_EQ(got, c.expected) << c.cpuinfo;
  }
}

TEST(HostText, MeminfoFieldsAndOsReleaseValues) {
  const std::string meminfo = "MemTotal:       24684096 kB\nHugePages_Total:       5\nBogus:  12 MB\n";
  std::string got;
  for (const char* key : {"MemTotal", "HugePages_Total", "Bogus", "Mem"}) {
    got += std::to_string(meminfo_bytes(meminfo, key)) + " ";
  }
  for (const char* line :
       {"MemTotal:", "MemTotal 1024 kB", "MemTotal: 9007199254740992 kB", "MemTotal: 9007199254740991 kB"}) {
    got += std::to_string(meminfo_bytes(line, "MemTotal")) + " ";
  }
  EXPECT_EQ(got, "25276514304 5 -1 -1 -1 -1 -1 9223372036854774784 ");
  const std::string text =
      "# by hand\nPRETTY_NAME=\"Debian 12 (bookworm)\"\nNAME='Debian GNU/Linux'\nVERSION_ID=12\n"
      "VERSION=\"12 \\\"bookworm\\\" \\\\ \\$HOME\"\nID=debian\nID=ubuntu\r\nEMPTY=\nBROKEN=\"never closed\n";
  // As in a shell, the last assignment wins.
  std::string values;
  for (const char* key :
       {"NAME", "PRETTY_NAME", "VERSION_ID", "VERSION", "ID", "EMPTY", "BROKEN", "ID_LIKE"}) {
    values += os_release_value(text, key) + "|";
  }
  EXPECT_EQ(values, "Debian GNU/Linux|Debian 12 (bookworm)|12|12 \"bookworm\" \\ $HOME|ubuntu||||");
}

TEST(HostOsAndRam, FromOsReleaseAndMeminfoWithFallbacks) {
  const struct {
    const char *etc, *usr_lib, *os, *meminfo;  // null: no such file
    std::int64_t total_bytes, available_bytes;
  } cases[] = {
      {"NAME=\"Fedora Linux\"\nVERSION_ID=39\n", "NAME=Other\nVERSION_ID=1\n", "Fedora Linux 39",
       "MemTotal: 16318504 kB\nMemFree: 1000000 kB\nMemAvailable: 8000000 kB\n",
       std::int64_t{16318504} * 1024, std::int64_t{8000000} * 1024},
      // Distributions that ship only the vendor copy.
      {nullptr, "NAME=Arch Linux\n", "Arch Linux <unknown>", nullptr, -1, -1},
      {nullptr, nullptr, "Linux <unknown>", "", -1, -1},
      {"", nullptr, "Linux <unknown>", "MemTotal: sixteen kB\nMemAvailable:", -1, -1},
      {"NAME=\"Debian GNU/Li\nVERSION_ID=\"12", nullptr, "Linux <unknown>", nullptr, -1, -1},
  };
  for (const auto& c : cases) {
    test::temp_dir root;
    put(root, {{"etc/os-release", c.etc}, {"usr/lib/os-release", c.usr_lib}, {"proc/meminfo", c.meminfo}});
    const auto os = read_host_os(root.path());
    const auto ram = read_host_ram(root.path());
    EXPECT_EQ(std::tuple(os.name + " " + os.version, ram.modules.size(), ram.modules.at(0).total_bytes,
                         available_memory_bytes(root.path())),
              std::tuple(std::string(c.os), 1u, c.total_bytes, c.available_bytes));
    // MemFree is not the free count of the description: that stays -1 bytes.
    EXPECT_EQ(system_ram(&ram).free_MiB(), -0.00000095367431640625);
  }
  // The total is the sum of the modules, scaled by 2^-20 without rounding.
  host_ram two;
  two.modules = {{8LL << 30}, {1048577}};
  EXPECT_EQ(system_ram(&two).total_MiB(), 8193.00000095367431640625);
}

}  // namespace
}  // namespace norvane::details
