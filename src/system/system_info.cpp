// The value classes over the host descriptions, and the once-per-process
// construction of those descriptions.
#include <norvane/system_info.hpp>

#include "system/host_info.hpp"

namespace norvane {

double bytes_to_MiB(long long bytes) noexcept { return static_cast<double>(bytes) * 0x1p-20; }

int system_cpu::id() const noexcept { return cpu_->id; }

const std::string& system_cpu::model_name() const noexcept { return cpu_->model_name; }

int system_cpu::num_physical_cores() const noexcept { return cpu_->physical_cores; }

std::int64_t system_cpu::regular_frequency_mhz() const noexcept { return cpu_->regular_frequency_mhz; }

std::string system_os::type() const noexcept { return os_->name; }

std::string system_os::version() const noexcept { return os_->version; }

namespace {

long long total_bytes(const details::host_ram& ram) noexcept {
  long long total = 0;
  for (const auto& module : ram.modules) {
    total += module.total_bytes;
  }
  return total;
}

}  // namespace

double system_ram::total_MiB() const noexcept { return bytes_to_MiB(total_bytes(*ram_)); }

double system_ram::free_MiB() const noexcept { return bytes_to_MiB(ram_->free_bytes); }

double system_ram::limit_MiB() const noexcept {
  return bytes_to_MiB(details::memory_limit_bytes("/", total_bytes(*ram_)));
}

double system_ram::available_MiB() const noexcept {
  return bytes_to_MiB(details::available_memory_bytes("/"));
}

std::vector<system_cpu> system_info::all_cpus() {
  static const std::vector<details::host_cpu> cpus = details::current_host_cpus();
  std::vector<system_cpu> handles;
  handles.reserve(cpus.size());
  for (const auto& cpu : cpus) {
    handles.emplace_back(&cpu);
  }
  return handles;
}

system_os system_info::os() {
  static const details::host_os description = details::current_host_os();
  return system_os(&description);
}

system_ram system_info::ram() {
  static const details::host_ram description = details::current_host_ram();
  return system_ram(&description);
}

int system_info::usable_cores() noexcept { return details::usable_cores("/", details::affinity_cpus()); }

}  // namespace norvane
