// Container limits on Linux: the CPU quota and the memory limit of this
// process's cgroups, in the v1, v2 or hybrid layout, found through
// /proc/self/cgroup and /proc/self/mountinfo. Every file is read below a root
// directory so that fixture trees can stand in for the host; a file that is
// missing or says nothing usable means "no limit", never an error.
#include "system/host_info.hpp"
#include "system/host_text.hpp"

#include <norvane/strings.hpp>

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace norvane::details {
namespace {

namespace fs = std::filesystem;

// One line of /proc/self/mountinfo that mounts a cgroup hierarchy.
struct cgroup_mount {
  std::string root;         // the directory of the hierarchy that is mounted
  std::string mount_point;  // where it is mounted
  bool unified = false;
  std::string controllers;  // v1: the super options, which name the controllers
};

bool list_holds(std::string_view comma_list, std::string_view name) {
  const auto items = split(comma_list, ",");
  return std::find(items.begin(), items.end(), name) != items.end();
}

// The mount table escapes blanks, tabs, newlines and backslashes in paths
// as three octal digits.
bool decode_mount_path(std::string_view field, std::string& path) {
  return unescape(&path, field, nullptr) && !path.empty() && path.front() == '/';
}

std::vector<cgroup_mount> cgroup_mounts(std::string_view mountinfo) {
  std::vector<cgroup_mount> mounts;
  for_each_line(mountinfo, [&](std::string_view line) {
    // id parent major:minor root mount-point options [optional...] - type source super-options
    const auto fields = split(line, " ");
    const auto separator =
        std::find(fields.begin() + std::min<std::size_t>(fields.size(), 6), fields.end(), "-");
    if (separator == fields.end() || fields.end() - separator < 2) {
      return;
    }
    const auto type = separator[1];
    cgroup_mount mount;
    mount.unified = type == "cgroup2";
    if ((!mount.unified && type != "cgroup") || !decode_mount_path(fields[3], mount.root) ||
        !decode_mount_path(fields[4], mount.mount_point)) {
      return;
    }
    if (fields.end() - separator >= 4) {
      mount.controllers = separator[3];
    }
    mounts.push_back(std::move(mount));
  });
  return mounts;
}

// The directories from `cgroup_path` (as /proc/self/cgroup names it) up to
// the mount point. A path outside the mounted part of the hierarchy (a
// container that sees only its own subtree without a cgroup namespace)
// starts at the mount point itself.
std::vector<std::string> leaf_to_root(const cgroup_mount& mount, std::string_view cgroup_path) {
  std::string_view relative = cgroup_path;
  if (mount.root != "/") {
    const bool inside = relative.starts_with(mount.root) &&
                        (relative.size() == mount.root.size() || relative[mount.root.size()] == '/');
    relative = inside ? relative.substr(mount.root.size()) : std::string_view{};
  }
  auto parts = split(relative, "/");
  if (std::find(parts.begin(), parts.end(), "..") != parts.end()) {
    parts.clear();
  }
  std::vector<std::string> directories;
  std::string path = mount.mount_point;
  directories.push_back(path);
  for (const auto part : parts) {
    if (path.back() != '/') {
      path += '/';
    }
    path += part;
    directories.push_back(path);
  }
  std::reverse(directories.begin(), directories.end());
  return directories;
}

std::int64_t ceil_ratio(std::int64_t quota, std::int64_t period) {
  if (quota <= 0 || period <= 0) {
    return -1;
  }
  return quota / period + (quota % period != 0 ? 1 : 0);
}

// The smallest positive figure that `read_one` finds in the directories of
// `controller`, -1 when none has one.
template <typename ReadOne>
std::int64_t tightest_limit(const fs::path& root, std::string_view controller, ReadOne&& read_one) {
  const auto self = root / "proc" / "self";
  const auto cgroup = find_cgroup(read_text(self / "cgroup"), read_text(self / "mountinfo"), controller);
  std::int64_t tightest = -1;
  for (const auto& directory : cgroup.leaf_to_root) {
    const auto limit = read_one(root / fs::path(directory).relative_path(), cgroup.unified);
    if (limit > 0 && (tightest < 0 || limit < tightest)) {
      tightest = limit;
    }
  }
  return tightest;
}

}  // namespace

cgroup_directories find_cgroup(std::string_view proc_cgroup, std::string_view mountinfo,
                               std::string_view controller) {
  const auto mounts = cgroup_mounts(mountinfo);
  std::string_view unified_path;
  bool has_unified = false;
  cgroup_directories found;
  for_each_line(proc_cgroup, [&](std::string_view line) {
    // hierarchy-id:controllers:path; the path may itself hold colons.
    const auto first = line.find(':');
    const auto second = first == std::string_view::npos ? first : line.find(':', first + 1);
    if (second == std::string_view::npos || !found.leaf_to_root.empty()) {
      return;
    }
    const auto id = line.substr(0, first);
    const auto controllers = line.substr(first + 1, second - first - 1);
    const auto path = line.substr(second + 1);
    if (id == "0" && controllers.empty()) {
      unified_path = path;
      has_unified = true;
      return;
    }
    if (!list_holds(controllers, controller)) {
      return;
    }
    for (const auto& mount : mounts) {
      if (!mount.unified && list_holds(mount.controllers, controller)) {
        found.leaf_to_root = leaf_to_root(mount, path);
        return;
      }
    }
  });
  if (!found.leaf_to_root.empty() || !has_unified) {
    return found;
  }
  for (const auto& mount : mounts) {
    if (mount.unified) {
      found.leaf_to_root = leaf_to_root(mount, unified_path);
      found.unified = true;
      break;
    }
  }
  return found;
}

std::int64_t cpu_max_cores(std::string_view cpu_max) {
  const auto text = trimmed(cpu_max);
  const auto blank = text.find(' ');
  if (blank == std::string_view::npos) {
    return -1;
  }
  return ceil_ratio(parse_count(text.substr(0, blank)), parse_count(trimmed(text.substr(blank + 1))));
}

std::int64_t cfs_quota_cores(std::string_view quota, std::string_view period) {
  return ceil_ratio(parse_count(trimmed(quota)), parse_count(trimmed(period)));
}

std::int64_t cgroup_memory_bytes(std::string_view text) {
  const auto bytes = parse_count(trimmed(text));
  return bytes > 0 ? bytes : -1;
}

int usable_cores(const fs::path& root, int affinity_cpus) {
  const auto quota = tightest_limit(root, "cpu", [](const fs::path& directory, bool unified) {
    return unified ? cpu_max_cores(read_text(directory / "cpu.max"))
                   : cfs_quota_cores(read_text(directory / "cpu.cfs_quota_us"),
                                     read_text(directory / "cpu.cfs_period_us"));
  });
  const int cpus = affinity_cpus > 0 ? affinity_cpus : 1;
  return quota > 0 && quota < cpus ? static_cast<int>(quota) : cpus;
}

std::int64_t memory_limit_bytes(const fs::path& root, std::int64_t total_bytes) {
  const auto limit = tightest_limit(root, "memory", [](const fs::path& directory, bool unified) {
    return cgroup_memory_bytes(read_text(directory / (unified ? "memory.max" : "memory.limit_in_bytes")));
  });
  return limit > 0 && (total_bytes < 0 || limit < total_bytes) ? limit : total_bytes;
}

std::int64_t available_memory_bytes(const fs::path& root) {
  return meminfo_bytes(read_text(root / "proc" / "meminfo"), "MemAvailable");
}

int affinity_cpus() {
  // A fixed-size set covers 1024 CPUs; on larger machines the call fails and
  // the online count stands in.
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0) {
    return CPU_COUNT(&set);
  }
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 && online <= INT_MAX ? static_cast<int>(online) : -1;
}

}  // namespace norvane::details
