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

// A fake host: files written below a temporary root, as the host layer
// would find them below "/".
class host_tree {
public:
  const fs::path& root() const { return dir_.path(); }

  void put(const fs::path& relative, const std::string& content) const {
    fs::create_directories((dir_ / relative).parent_path());
    test::write_file(dir_ / relative, content);
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

void expect_unknown_package(const std::vector<host_cpu>& cpus) {
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].id, 0);
  EXPECT_EQ(cpus[0].model_name, "<unknown>");
  EXPECT_EQ(cpus[0].physical_cores, -1);
  EXPECT_EQ(cpus[0].regular_frequency_mhz, -1);
}

TEST(HostCpus, CoresCountDistinctCoreIdsWithAndWithoutHyperThreading) {
  host_tree tree;
  tree.put("proc/cpuinfo", cpu_block(0, 0, 0) + cpu_block(1, 0, 1) + cpu_block(2, 0, 0) + cpu_block(3, 0, 1));
  auto cpus = read_host_cpus(tree.root());
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].id, 0);
  EXPECT_EQ(cpus[0].model_name, "Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz");
  EXPECT_EQ(cpus[0].physical_cores, 2);

  tree.put("proc/cpuinfo", cpu_block(0, 0, 0) + cpu_block(1, 0, 1) + cpu_block(2, 0, 2) + cpu_block(3, 0, 3));
  cpus = read_host_cpus(tree.root());
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].physical_cores, 4);
}

TEST(HostCpus, TwoPhysicalIdsGiveTwoPackagesInIdOrder) {
  host_tree tree;
  // Kernels interleave the packages; core ids repeat in each package.
  tree.put("proc/cpuinfo", cpu_block(0, 1, 0, "Second") + cpu_block(1, 0, 0, "First") +
                               cpu_block(2, 1, 1, "Second") + cpu_block(3, 0, 1, "First") +
                               cpu_block(4, 1, 0, "Second") + cpu_block(5, 0, 0, "First") +
                               cpu_block(6, 0, 1, "First"));
  // Clocks come from each package's first processor: cpu1 for package 0,
  // cpu0 for package 1.
  tree.put(host_tree::cpu_dir(0) / "cpufreq" / "base_frequency", "2000000\n");
  tree.put(host_tree::cpu_dir(1) / "cpufreq" / "base_frequency", "3000000\n");

  const auto cpus = read_host_cpus(tree.root());
  ASSERT_EQ(cpus.size(), 2u);
  EXPECT_EQ(cpus[0].id, 0);
  EXPECT_EQ(cpus[0].model_name, "First");
  EXPECT_EQ(cpus[0].physical_cores, 2);
  EXPECT_EQ(cpus[0].regular_frequency_mhz, 3000);
  EXPECT_EQ(cpus[1].id, 1);
  EXPECT_EQ(cpus[1].model_name, "Second");
  EXPECT_EQ(cpus[1].physical_cores, 2);
  EXPECT_EQ(cpus[1].regular_frequency_mhz, 2000);
}

TEST(HostCpus, MissingEmptyOrUnreadableCpuinfoGivesOneUnknownPackage) {
  host_tree missing;
  expect_unknown_package(read_host_cpus(missing.root()));

  host_tree empty;
  empty.put("proc/cpuinfo", "");
  expect_unknown_package(read_host_cpus(empty.root()));

  host_tree directory;
  fs::create_directories(directory.root() / "proc" / "cpuinfo");
  expect_unknown_package(read_host_cpus(directory.root()));
}

TEST(HostCpus, TruncatedAndNonNumericLinesFallBack) {
  host_tree tree;
  // The file ends inside the "core id" line.
  tree.put("proc/cpuinfo", "processor\t: 0\nmodel name\t: AMD EPYC 7B13\nphysical id\t: 0\ncore id");
  auto cpus = read_host_cpus(tree.root());
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].model_name, "AMD EPYC 7B13");
  EXPECT_EQ(cpus[0].physical_cores, -1);

  // Ids that are not numbers put the processor in package 0 and count no
  // core; a block whose processor number is unreadable is dropped whole.
  tree.put("proc/cpuinfo",
           "processor : 0\nphysical id : one\ncore id : -3\nmodel name : A\n\n"
           "processor : 1\nphysical id : 0\ncore id : 5x\n\n"
           "processor : x\nphysical id : 7\ncore id : 0\nmodel name : Dropped\n\n"
           "processor : 99999999999\nphysical id : 8\n\n");
  cpus = read_host_cpus(tree.root());
  ASSERT_EQ(cpus.size(), 1u);
  EXPECT_EQ(cpus[0].id, 0);
  EXPECT_EQ(cpus[0].model_name, "A");
  EXPECT_EQ(cpus[0].physical_cores, -1);
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

TEST(HostCpus, RegularClockFromCpufreqInKilohertz) {
  const struct {
    const char* base_frequency;
    std::int64_t mhz;
  } cases[] = {{"2100000\n", 2100}, {"999\n", 0}, {"fast\n", -1}, {"", -1}, {"-2100000", -1}};
  for (const auto& c : cases) {
    host_tree tree;
    tree.put("proc/cpuinfo", cpu_block(0, 0, 0));
    tree.put(host_tree::cpu_dir(0) / "cpufreq" / "base_frequency", c.base_frequency);
    EXPECT_EQ(read_host_cpus(tree.root())[0].regular_frequency_mhz, c.mhz) << c.base_frequency;
  }
}

TEST(HostText, MeminfoFields) {
  const std::string meminfo =
      "MemTotal:       24684096 kB\nMemFree:        22890324 kB\nHugePages_Total:       5\n"
      "Bogus:  12 MB\nMemAvailable: lots kB\n";
  const struct {
    std::string_view text;
    const char* key;
    std::int64_t bytes;
  } cases[] = {
      {meminfo, "MemTotal", std::int64_t{24684096} * 1024},
      {meminfo, "HugePages_Total", 5},
      {meminfo, "Bogus", -1},
      {meminfo, "MemAvailable", -1},
      {meminfo, "Mem", -1},
      {"MemTotal:", "MemTotal", -1},
      {"MemTotal 1024 kB", "MemTotal", -1},
      {"MemTotal: 9007199254740992 kB", "MemTotal", -1},
      {"MemTotal: 9007199254740991 kB", "MemTotal", std::int64_t{9007199254740991} * 1024},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(meminfo_bytes(c.text, c.key), c.bytes) << c.key << " in " << c.text;
  }
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

TEST(HostOs, NameAndVersionFromOsReleaseWithFallbacks) {
  const struct {
    const char* etc;  // null: no such file
    const char* usr_lib;
    const char* name;
    const char* version;
  } cases[] = {
      {"NAME=\"Fedora Linux\"\nVERSION_ID=39\n", "NAME=Other\nVERSION_ID=1\n", "Fedora Linux", "39"},
      // Distributions that ship only the vendor copy.
      {nullptr, "NAME=Arch Linux\n", "Arch Linux", "<unknown>"},
      {nullptr, nullptr, "Linux", "<unknown>"},
      {"", nullptr, "Linux", "<unknown>"},
      {"NAME=\"Debian GNU/Li\nVERSION_ID=\"12", nullptr, "Linux", "<unknown>"},
  };
  for (const auto& c : cases) {
    host_tree tree;
    if (c.etc != nullptr) {
      tree.put("etc/os-release", c.etc);
    }
    if (c.usr_lib != nullptr) {
      tree.put("usr/lib/os-release", c.usr_lib);
    }
    const auto os = read_host_os(tree.root());
    EXPECT_EQ(os.name, c.name);
    EXPECT_EQ(os.version, c.version);
  }
}

TEST(HostRam, OneModuleWithTheTotalOfMeminfo) {
  const struct {
    const char* meminfo;  // null: no such file
    std::int64_t total_bytes;
    std::int64_t available_bytes;
  } cases[] = {
      {"MemTotal:       16318504 kB\nMemFree:         1000000 kB\nMemAvailable:    8000000 kB\n",
       std::int64_t{16318504} * 1024, std::int64_t{8000000} * 1024},
      {nullptr, -1, -1},
      {"", -1, -1},
      {"MemTotal:       sixteen kB\nMemAvailable:", -1, -1},
  };
  for (const auto& c : cases) {
    host_tree tree;
    if (c.meminfo != nullptr) {
      tree.put("proc/meminfo", c.meminfo);
    }
    const auto ram = read_host_ram(tree.root());
    ASSERT_EQ(ram.modules.size(), 1u);
    EXPECT_EQ(ram.modules[0].total_bytes, c.total_bytes);
    // MemFree is not the free byte count of the description: that stays unknown.
    EXPECT_EQ(ram.free_bytes, -1);
    EXPECT_EQ(system_ram(&ram).total_MiB(), bytes_to_MiB(c.total_bytes));
    EXPECT_EQ(available_memory_bytes(tree.root()), c.available_bytes);
  }
}

}  // namespace
}  // namespace norvane::details
