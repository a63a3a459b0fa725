// Arbitrary bytes as the host's text files: the parsers skip what they
// cannot read, never crash, never read out of bounds, and keep their
// invariants (processor numbers known, sizes and limits -1 or positive,
// cgroup directories absolute and nested leaf first). For the cgroup
// lookup the input up to its first NUL byte stands for /proc/self/cgroup
// and the rest for /proc/self/mountinfo.
#include "system/host_info.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

void check_limit(std::int64_t value) {
  if (value == 0 || value < -1) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  using namespace norvane::details;

  for (const auto& entry : parse_cpuinfo(text)) {
    if (entry.processor < 0 || entry.physical_id < -1 || entry.core_id < -1) {
      std::abort();
    }
  }
  for (const auto* key : {"MemTotal", "MemAvailable"}) {
    if (meminfo_bytes(text, key) < -1) {
      std::abort();
    }
  }
  // A value never holds a line break: it is read from one line.
  for (const auto* key : {"NAME", "VERSION_ID"}) {
    if (os_release_value(text, key).find('\n') != std::string::npos) {
      std::abort();
    }
  }

  check_limit(cpu_max_cores(text));
  check_limit(cgroup_memory_bytes(text));
  const auto nul = text.find('\0');
  const auto first = text.substr(0, nul);
  const auto rest = nul == std::string_view::npos ? std::string_view{} : text.substr(nul + 1);
  check_limit(cfs_quota_cores(first, rest));
  for (const auto* controller : {"cpu", "memory"}) {
    const auto found = find_cgroup(first, rest, controller);
    for (std::size_t i = 0; i < found.leaf_to_root.size(); ++i) {
      const auto& directory = found.leaf_to_root[i];
      if (directory.empty() || directory.front() != '/' ||
          (i > 0 && found.leaf_to_root[i - 1].rfind(directory, 0) != 0)) {
        std::abort();
      }
    }
  }
  return 0;
}
