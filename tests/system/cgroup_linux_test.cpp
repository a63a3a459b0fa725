#include "support/test_support.hpp"
#include "system/host_info.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace norvane::details {
namespace {

namespace fs = std::filesystem;

// Where a host keeps the cgroup of this process, as the kernel shows it:
// /proc/self/cgroup (null: none), mountinfo, the process's own cpu and
// memory directories, and whether the hierarchy is the unified one.
struct cgroup_layout {
  const char *name, *proc_cgroup, *mountinfo, *cpu_dir, *memory_dir;
  bool unified;
};

const cgroup_layout v2{
    "v2",
    "0::/app.slice/job\n",
    "24 1 8:1 / / rw - ext4 /dev/sda1 rw\n30 24 0:26 / /sys/fs/cgroup rw,nosuid shared:4 - "
    "cgroup2 cgroup2 rw,nsdelegate\n",
    "sys/fs/cgroup/app.slice/job",
    "sys/fs/cgroup/app.slice/job",
    true};
const cgroup_layout v1{"v1",
                       "12:memory:/job\n5:cpu,cpuacct:/job\n4:cpuset:/job\n1:name=systemd:/job\n",
                       "33 30 0:29 / /sys/fs/cgroup/cpuset rw - cgroup cgroup rw,cpuset\n34 30 0:30 / "
                       "/sys/fs/cgroup/cpu,cpuacct rw shared:9 - cgroup cgroup rw,cpu,cpuacct\n35 30 0:31 / "
                       "/sys/fs/cgroup/memory rw - cgroup cgroup rw,memory\n",
                       "sys/fs/cgroup/cpu,cpuacct/job",
                       "sys/fs/cgroup/memory/job",
                       false};
// The v1 controllers beside a unified hierarchy that governs none of them:
// what that hierarchy says must not count.
const cgroup_layout hybrid{"hybrid",
                           "0::/job\n12:memory:/job\n5:cpu,cpuacct:/job\n",
                           "30 24 0:26 / /sys/fs/cgroup/unified rw - cgroup2 cgroup2 rw\n34 30 0:30 / "
                           "/sys/fs/cgroup/cpu,cpuacct rw - cgroup cgroup rw,cpu,cpuacct\n35 30 0:31 / "
                           "/sys/fs/cgroup/memory rw - cgroup cgroup rw,memory\n",
                           "sys/fs/cgroup/cpu,cpuacct/job",
                           "sys/fs/cgroup/memory/job",
                           false};
// A container without a cgroup namespace: each hierarchy is mounted from
// the container's own directory, at a path with an escaped blank.
const cgroup_layout docker{"docker",
                           "4:memory:/docker/abc\n3:cpuacct,cpu:/docker/abc\n",
                           "40 30 0:35 /docker/abc /sys/fs/cgroup/cpu\\040acct ro - cgroup cgroup "
                           "rw,cpuacct,cpu\n41 30 0:36 /docker/abc /sys/fs/cgroup/memory ro - cgroup cgroup "
                           "rw,memory\n",
                           "sys/fs/cgroup/cpu acct",
                           "sys/fs/cgroup/memory",
                           false};
const cgroup_layout no_cgroup{"none", nullptr, nullptr, "sys/fs/cgroup/job", "sys/fs/cgroup/job", true};

constexpr std::int64_t total = std::int64_t{8} << 30;
constexpr const char* unreadable = "<directory>";

struct cgroup_case {
  const cgroup_layout& layout;
  // Written into the process's cgroups (v2: cpu.max; v1: cpu.cfs_quota_us
  // beside cpu.cfs_period_us) and the ones above them; null: no file.
  const char *cpu, *period, *memory, *parent_cpu, *parent_memory;
  int affinity, cores;
  std::int64_t limit;
};

// Garbage in either file, a missing or unreadable file, a zero or negative
// figure: no limit. A quota rounds up to whole cores.
const cgroup_case cases[] = {
    {v2, "max 100000", nullptr, "max", nullptr, nullptr, 8, 8, total},
    {v2, "50000 100000", nullptr, "1073741824", nullptr, nullptr, 8, 1, std::int64_t{1} << 30},
    {v2, "150000 100000\n", nullptr, "0", nullptr, nullptr, 8, 2, total},
    {v2, "-1 100000", nullptr, "-1", nullptr, nullptr, 8, 8, total},
    {v2, "0 100000", nullptr, "99999999999999999999", nullptr, nullptr, 8, 8, total},
    {v2, "400000 100000", nullptr, "17179869184", nullptr, nullptr, 2, 2, total},
    {v2, "lots of cpu", nullptr, "1G", nullptr, nullptr, 8, 8, total},
    {v2, "100000", nullptr, "plenty", nullptr, nullptr, 0, 1, total},
    {v2, unreadable, nullptr, unreadable, nullptr, nullptr, 8, 8, total},
    {v2, "max 100000", nullptr, "max", "200000 100000", "2147483648", 8, 2, std::int64_t{2} << 30},
    {v2, "100000 100000", nullptr, "1048576", "300000 100000", "2147483648", 8, 1, 1048576},
    {v1, "200000", "100000", "536870912", nullptr, nullptr, 8, 2, std::int64_t{512} << 20},
    {v1, "50000", "100000", "9223372036854771712", nullptr, nullptr, 8, 1, total},
    {v1, "-1", "100000", "text", nullptr, nullptr, 8, 8, total},
    {v1, "50000", "0", "0", nullptr, nullptr, 8, 8, total},
    {v1, "50000", nullptr, "-1", nullptr, nullptr, 8, 8, total},
    {v1, "-1", "100000", "max", "100000", "4294967296", 8, 1, std::int64_t{4} << 30},
    {hybrid, "300000", "100000", "1073741824", "100000 100000", "1048576", 8, 3, std::int64_t{1} << 30},
    {docker, "250000", "100000", "268435456", nullptr, nullptr, 8, 3, std::int64_t{256} << 20},
    {no_cgroup, "100000 100000", nullptr, "1048576", nullptr, nullptr, 8, 8, total},
};

void put(const test::temp_dir& root, const fs::path& relative, const char* content) {
  if (content != nullptr)
    fs::create_directories(root / (content == unreadable ? relative : relative.parent_path()));
  if (content != nullptr && content != unreadable) test::write_file(root / relative, content);
}

void build_tree(const test::temp_dir& root, const cgroup_case& c) {
  const auto& layout = c.layout;
  const fs::path cpu = layout.cpu_dir, memory = layout.memory_dir;
  put(root, "proc/self/cgroup", layout.proc_cgroup);
  put(root, "proc/self/mountinfo", layout.mountinfo);
  put(root, cpu / (layout.unified ? "cpu.max" : "cpu.cfs_quota_us"), c.cpu);
  put(root, cpu / "cpu.cfs_period_us", c.period);
  put(root, memory / (layout.unified ? "memory.max" : "memory.limit_in_bytes"), c.memory);
  // A parent's quota is a v2 line in the unified layout and the hybrid's
  // unified hierarchy, a bare quota over a 100000 period in v1.
  const bool v2_parent = layout.unified || &layout == &hybrid;
  const fs::path parent = &layout == &hybrid ? fs::path("sys/fs/cgroup/unified/job") : cpu.parent_path();
  put(root, parent / (v2_parent ? "cpu.max" : "cpu.cfs_quota_us"), c.parent_cpu);
  put(root, parent / (v2_parent ? "memory.max" : "cpu.cfs_period_us"),
      v2_parent ? c.parent_memory : (c.parent_cpu ? "100000" : nullptr));
  if (!v2_parent) put(root, memory.parent_path() / "memory.limit_in_bytes", c.parent_memory);
}

TEST(ContainerLimits, CoresAndMemoryLimitFromEveryCgroupLayout) {
  for (const auto& c : cases) {
    test::temp_dir root;
    build_tree(root, c);
    // A known limit stands in for an unknown total.
    EXPECT_EQ(std::tuple(usable_cores(root.path(), c.affinity), memory_limit_bytes(root.path(), total),
                         c.limit == total ? total : memory_limit_bytes(root.path(), -1)),
              std::tuple(c.cores, c.limit, c.limit))
        << c.layout.name << " cpu " << (c.cpu ? c.cpu : "-") << " memory " << (c.memory ? c.memory : "-");
  }
  EXPECT_EQ(memory_limit_bytes(test::temp_dir().path(), -1), -1);
}

}  // namespace
}  // namespace norvane::details
