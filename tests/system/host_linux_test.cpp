#include "support/test_support.hpp"
#include "system/host_info.hpp"

#include <norvane/system_info.hpp>

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>

namespace norvane::details {
namespace {

namespace fs = std::filesystem;

// A fake host: files written below a temporary root, as the host layer
// would find them below "/".
class host_tree {
public:
  const fs::path& root() const { return dir_.path(); }

  void put(const fs::path& relative, const std::string& content) const {
    fs::create_directories((dir_ / relative).parent_path());
    test::write_file(dir_ / relative, content);
  }

  void put_cache(int cpu, int index, const std::string& level, const std::string& type,
                 const std::string& size) const {
    const auto dir = cpu_dir(cpu) / "cache" / ("index" + std::to_string(index));
    put(dir / "level", level + "\n");
    put(dir / "type", type + "\n");
    put(dir / "size", size + "\n");
  }

  static fs::path cpu_dir(int cpu) {
    return fs::path("sys/devices/system/cpu") / ("cpu" + std::to_string(cpu));
  }

private:
  test::temp_dir dir_;
};

// One logical processor the way x86 kernels print it.
std::string cpu_block(int processor, int physical_id, int core_id,
                      const std::string& model = "Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz") {
  return "processor\t: " + std::to_string(processor) +
         "\nvendor_id\t: GenuineIntel\ncpu family\t: 6\nmodel\t\t: 85\nmodel name\t: " + model +
         "\ncpu MHz\t\t: 2095.078\ncache size\t: 22528 KB\nphysical id\t: " + std::to_string(physical_id) +
         "\nsiblings\t: 4\ncore id\t\t: " + std::to_string(core_id) +
         "\ncpu cores\t: 2\nflags\t\t: fpu vme de pse tsc\n\n";
}

void expect_unknown_package(const host_cpu& cpu) {
  EXPECT_EQ(cpu.id, 0);
  EXPECT_EQ(cpu.vendor, "<unknown>");
  EXPECT_EQ(cpu.model_name, "<unknown>");
  EXPECT_EQ(cpu.physical_cores, -1);
  EXPECT_EQ(cpu.l1_cache_bytes, -1);
  EXPECT_EQ(cpu.l2_cache_bytes, -1);
  EXPECT_EQ(cpu.l3_cache_bytes, -1);
  EXPECT_EQ(cpu.max_frequency_mhz, -1);
  EXPECT_EQ(cpu.regular_frequency_mhz, -1);
}

TEST(HostCpus, CoresCountDistinctCoreIdsWithAndWithoutHyperThreading) {
  host_tree tree;
  tree.put("proc/cpuinfo", cpu_block(0, 0, 0) + cpu_block(1, 0, 1) + cpu_block(2, 0, 0) + cpu_block(3, 0, 1));
  auto cpus = read_host_cpus(tree.root(), 4);
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].id, 0);
  EXPECT_EQ(cpus[0].vendor, "GenuineIntel");
  EXPECT_EQ(cpus[0].model_name, "Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz");
  EXPECT_EQ(cpus[0].physical_cores, 2);
  EXPECT_EQ(cpus[0].logical_cores, 4);
  // The system's online count wins for a single package (a processor may
  // have gone offline since), and cpuinfo stands in when the count is unknown.
  EXPECT_EQ(read_host_cpus(tree.root(), 3)[0].logical_cores, 3);
  EXPECT_EQ(read_host_cpus(tree.root(), -1)[0].logical_cores, 4);

  tree.put("proc/cpuinfo", cpu_block(0, 0, 0) + cpu_block(1, 0, 1) + cpu_block(2, 0, 2) + cpu_block(3, 0, 3));
  cpus = read_host_cpus(tree.root(), 4);
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].physical_cores, 4);
  EXPECT_EQ(cpus[0].logical_cores, 4);
}

TEST(HostCpus, TwoPhysicalIdsGiveTwoPackagesInIdOrder) {
  host_tree tree;
  // Kernels interleave the packages; core ids repeat in each package.
  tree.put("proc/cpuinfo", cpu_block(0, 1, 0, "Second") + cpu_block(1, 0, 0, "First") +
                               cpu_block(2, 1, 1, "Second") + cpu_block(3, 0, 1, "First") +
                               cpu_block(4, 1, 0, "Second") + cpu_block(5, 0, 0, "First") +
                               cpu_block(6, 0, 1, "First"));
  // Caches come from each package's first processor: cpu1 for package 0,
  // cpu0 for package 1.
  tree.put_cache(0, 3, "3", "Unified", "16M");
  tree.put_cache(1, 3, "3", "Unified", "32M");

  const auto cpus = read_host_cpus(tree.root(), 7);
  ASSERT_EQ(cpus.size(), 2u);
  EXPECT_EQ(cpus[0].id, 0);
  EXPECT_EQ(cpus[0].model_name, "First");
  EXPECT_EQ(cpus[0].physical_cores, 2);
  EXPECT_EQ(cpus[0].logical_cores, 4);
  EXPECT_EQ(cpus[0].l3_cache_bytes, 32 << 20);
  EXPECT_EQ(cpus[1].id, 1);
  EXPECT_EQ(cpus[1].model_name, "Second");
  EXPECT_EQ(cpus[1].physical_cores, 2);
  EXPECT_EQ(cpus[1].logical_cores, 3);
  EXPECT_EQ(cpus[1].l3_cache_bytes, 16 << 20);
}

TEST(HostCpus, MissingEmptyOrUnreadableCpuinfoGivesOneUnknownPackage) {
  host_tree missing;
  auto cpus = read_host_cpus(missing.root(), 6);
  ASSERT_EQ(cpus.size(), 1u);
  expect_unknown_package(cpus[0]);
  EXPECT_EQ(cpus[0].logical_cores, 6);
  EXPECT_EQ(read_host_cpus(missing.root(), -1)[0].logical_cores, -1);

  host_tree empty;
  empty.put("proc/cpuinfo", "");
  cpus = read_host_cpus(empty.root(), -1);
  ASSERT_EQ(cpus.size(), 1u);
  expect_unknown_package(cpus[0]);
  EXPECT_EQ(cpus[0].logical_cores, -1);

  host_tree directory;
  fs::create_directories(directory.root() / "proc" / "cpuinfo");
  cpus = read_host_cpus(directory.root(), 2);
  ASSERT_EQ(cpus.size(), 1u);
  expect_unknown_package(cpus[0]);
  EXPECT_EQ(cpus[0].logical_cores, 2);
}

TEST(HostCpus, TruncatedAndNonNumericLinesFallBack) {
  host_tree tree;
  // The file ends inside the "core id" line; the vendor line lost its value.
  tree.put("proc/cpuinfo",
           "processor\t: 0\nvendor_id\t:\nmodel name\t: AMD EPYC 7B13\nphysical id\t: 0\ncore id");
  auto cpus = read_host_cpus(tree.root(), -1);
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].vendor, "<unknown>");
  EXPECT_EQ(cpus[0].model_name, "AMD EPYC 7B13");
  EXPECT_EQ(cpus[0].physical_cores, -1);
  EXPECT_EQ(cpus[0].logical_cores, 1);

  // Ids that are not numbers put the processor in package 0 and count no
  // core; a block whose processor number is unreadable is dropped whole.
  tree.put("proc/cpuinfo",
           "processor : 0\nphysical id : one\ncore id : -3\nmodel name : A\n\n"
           "processor : 1\nphysical id : 0\ncore id : 5x\n\n"
           "processor : x\nphysical id : 7\ncore id : 0\nmodel name : Dropped\n\n"
           "processor : 99999999999\nphysical id : 8\n\n");
  cpus = read_host_cpus(tree.root(), -1);
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].id, 0);
  EXPECT_EQ(cpus[0].model_name, "A");
  EXPECT_EQ(cpus[0].physical_cores, -1);
  EXPECT_EQ(cpus[0].logical_cores, 2);
}

TEST(HostCpus, CpuinfoBlocksWithoutBlankLinesOrWithArmLayout) {
  // Blocks separated only by the next "processor" line, CRLF endings, and
  // the trailing "Hardware" block of ARM kernels that names no processor.
  const auto entries = parse_cpuinfo(
      "processor : 0\r\ncore id : 0\r\nprocessor : 1\r\ncore id : 1\r\n\r\n"
      "Hardware : BCM2835\nRevision : a02082\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].processor, 0);
  EXPECT_EQ(entries[0].core_id, 0);
  EXPECT_EQ(entries[1].processor, 1);
  EXPECT_EQ(entries[1].core_id, 1);
  EXPECT_EQ(entries[1].physical_id, -1);
  EXPECT_TRUE(entries[1].model_name.empty());
}

TEST(HostCpus, CachesAndClockSpeedsFromSysfs) {
  host_tree tree;
  tree.put("proc/cpuinfo", cpu_block(0, 0, 0) + cpu_block(1, 0, 1));
  // The instruction cache must not stand in for L1.
  tree.put_cache(0, 0, "1", "Data", "48K");
  tree.put_cache(0, 1, "1", "Instruction", "32K");
  tree.put_cache(0, 2, "2", "Unified", "1280K");
  tree.put_cache(0, 3, "3", "Unified", "1G");
  tree.put(host_tree::cpu_dir(0) / "cache" / "uevent", "");
  tree.put(host_tree::cpu_dir(0) / "cpufreq" / "cpuinfo_max_freq", "3700000\n");
  tree.put(host_tree::cpu_dir(0) / "cpufreq" / "base_frequency", "2100000\n");

  auto cpus = read_host_cpus(tree.root(), 2);
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].l1_cache_bytes, 48 * 1024);
  EXPECT_EQ(cpus[0].l2_cache_bytes, 1280 * 1024);
  EXPECT_EQ(cpus[0].l3_cache_bytes, std::int64_t{1} << 30);
  EXPECT_EQ(cpus[0].max_frequency_mhz, 3700);
  EXPECT_EQ(cpus[0].regular_frequency_mhz, 2100);

  // Garbage in sysfs leaves the fallbacks.
  tree.put_cache(0, 0, "1", "Data", "lots");
  tree.put_cache(0, 2, "two", "Unified", "1280K");
  tree.put(host_tree::cpu_dir(0) / "cpufreq" / "cpuinfo_max_freq", "fast\n");
  tree.put(host_tree::cpu_dir(0) / "cpufreq" / "base_frequency", "");
  cpus = read_host_cpus(tree.root(), 2);
  EXPECT_EQ(cpus[0].l1_cache_bytes, -1);
  EXPECT_EQ(cpus[0].l2_cache_bytes, -1);
  EXPECT_EQ(cpus[0].l3_cache_bytes, std::int64_t{1} << 30);
  EXPECT_EQ(cpus[0].max_frequency_mhz, -1);
  EXPECT_EQ(cpus[0].regular_frequency_mhz, -1);
}

TEST(HostText, CacheSizes) {
  EXPECT_EQ(cache_size_bytes("32K\n"), 32768);
  EXPECT_EQ(cache_size_bytes("16M"), 16 << 20);
  EXPECT_EQ(cache_size_bytes("512"), 512);
  EXPECT_EQ(cache_size_bytes(""), -1);
  EXPECT_EQ(cache_size_bytes("-1K"), -1);
  EXPECT_EQ(cache_size_bytes("32 K"), -1);
  EXPECT_EQ(cache_size_bytes("9223372036854775807K"), -1);
  EXPECT_EQ(cache_size_bytes("99999999999999999999"), -1);
}

TEST(HostText, MeminfoFields) {
  const std::string meminfo =
      "MemTotal:       24684096 kB\nMemFree:        22890324 kB\nHugePages_Total:       5\n"
      "Bogus:  12 MB\nMemAvailable: lots kB\n";
  EXPECT_EQ(meminfo_bytes(meminfo, "MemTotal"), std::int64_t{24684096} * 1024);
  EXPECT_EQ(meminfo_bytes(meminfo, "HugePages_Total"), 5);
  EXPECT_EQ(meminfo_bytes(meminfo, "Bogus"), -1);
  EXPECT_EQ(meminfo_bytes(meminfo, "MemAvailable"), -1);
  EXPECT_EQ(meminfo_bytes(meminfo, "Mem"), -1);
  EXPECT_EQ(meminfo_bytes("MemTotal:", "MemTotal"), -1);
  EXPECT_EQ(meminfo_bytes("MemTotal 1024 kB", "MemTotal"), -1);
  EXPECT_EQ(meminfo_bytes("MemTotal: 9007199254740992 kB", "MemTotal"), -1);
  EXPECT_EQ(meminfo_bytes("MemTotal: 9007199254740991 kB", "MemTotal"),
            std::int64_t{9007199254740991} * 1024);
}

TEST(HostText, OsReleaseValues) {
  const std::string text =
      "# written by hand\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nNAME='Debian GNU/Linux'\n"
      "VERSION_ID=12\nVERSION=\"12 \\\"bookworm\\\" \\\\ \\$HOME\"\nID=debian\nID=ubuntu\r\nEMPTY=\n"
      "BROKEN=\"never closed\n";
  EXPECT_EQ(os_release_value(text, "NAME"), "Debian GNU/Linux");
  EXPECT_EQ(os_release_value(text, "PRETTY_NAME"), "Debian GNU/Linux 12 (bookworm)");
  EXPECT_EQ(os_release_value(text, "VERSION_ID"), "12");
  EXPECT_EQ(os_release_value(text, "VERSION"), "12 \"bookworm\" \\ $HOME");
  // As in a shell, the last assignment wins.
  EXPECT_EQ(os_release_value(text, "ID"), "ubuntu");
  EXPECT_EQ(os_release_value(text, "EMPTY"), "");
  EXPECT_EQ(os_release_value(text, "BROKEN"), "");
  EXPECT_EQ(os_release_value(text, "VERSION_CODENAME"), "");
}

std::string uname_kernel() {
  utsname names{};
  EXPECT_EQ(uname(&names), 0);
  return std::string(names.sysname) + " " + names.release;
}

TEST(HostOs, NameAndVersionFromOsRelease) {
  host_tree tree;
  tree.put("etc/os-release", "NAME=\"Fedora Linux\"\nVERSION_ID=39\n");
  tree.put("usr/lib/os-release", "NAME=Other\nVERSION_ID=1\n");
  const auto os = read_host_os(tree.root());
  EXPECT_EQ(os.name, "Fedora Linux");
  EXPECT_EQ(os.version, "39");
  EXPECT_EQ(os.kernel, uname_kernel());
  EXPECT_NE(os.is_32bit, os.is_64bit);
  EXPECT_NE(os.is_big_endian, os.is_little_endian);
#if defined(__x86_64__) || defined(__aarch64__)
  EXPECT_TRUE(os.is_64bit);
  EXPECT_TRUE(os.is_little_endian);
#endif
}

TEST(HostOs, FallbacksForMissingEmptyAndTruncatedOsRelease) {
  host_tree missing;
  auto os = read_host_os(missing.root());
  EXPECT_EQ(os.name, "Linux");
  EXPECT_EQ(os.version, "<unknown>");
  EXPECT_EQ(os.kernel, uname_kernel());

  // Distributions that ship only the vendor copy.
  host_tree vendor_only;
  vendor_only.put("usr/lib/os-release", "NAME=Arch Linux\n");
  os = read_host_os(vendor_only.root());
  EXPECT_EQ(os.name, "Arch Linux");
  EXPECT_EQ(os.version, "<unknown>");

  host_tree empty;
  empty.put("etc/os-release", "");
  os = read_host_os(empty.root());
  EXPECT_EQ(os.name, "Linux");
  EXPECT_EQ(os.version, "<unknown>");

  host_tree truncated;
  truncated.put("etc/os-release", "NAME=\"Debian GNU/Li\nVERSION_ID=\"12");
  os = read_host_os(truncated.root());
  EXPECT_EQ(os.name, "Linux");
  EXPECT_EQ(os.version, "<unknown>");
}

TEST(HostRam, OneModuleWithTheTotalOfMeminfo) {
  host_tree tree;
  tree.put("proc/meminfo",
           "MemTotal:       16318504 kB\nMemFree:         1000000 kB\nMemAvailable:    8000000 kB\n");
  const auto ram = read_host_ram(tree.root());
  ASSERT_EQ(ram.modules.size(), 1u);
  const auto& module = ram.modules[0];
  EXPECT_EQ(module.id, 0);
  EXPECT_EQ(module.vendor, "<unknown>");
  EXPECT_EQ(module.name, "<unknown>");
  EXPECT_EQ(module.serial_number, "<unknown>");
  EXPECT_EQ(module.model, "<unknown>");
  EXPECT_EQ(module.total_bytes, std::int64_t{16318504} * 1024);
  EXPECT_EQ(module.frequency_hz, -1);
  // MemFree is not the free byte count of the description: that stays unknown.
  EXPECT_EQ(ram.free_bytes, -1);
  EXPECT_EQ(ram.available_bytes, std::int64_t{8000000} * 1024);
  EXPECT_DOUBLE_EQ(system_ram(&ram).total_MiB(), 16318504.0 / 1024.0);
}

TEST(HostRam, MissingEmptyOrNonNumericMeminfoGivesAnUnknownTotal) {
  host_tree missing;
  host_tree empty;
  empty.put("proc/meminfo", "");
  host_tree garbage;
  garbage.put("proc/meminfo", "MemTotal:       sixteen kB\nMemAvailable:");
  for (const auto* tree : {&missing, &empty, &garbage}) {
    const auto ram = read_host_ram(tree->root());
    ASSERT_EQ(ram.modules.size(), 1u);
    EXPECT_EQ(ram.modules[0].total_bytes, -1);
    EXPECT_EQ(ram.available_bytes, -1);
    EXPECT_EQ(system_ram(&ram).total_MiB(), -0.00000095367431640625);
  }
}

}  // namespace
}  // namespace norvane::details
