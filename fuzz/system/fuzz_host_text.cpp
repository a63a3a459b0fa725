// Arbitrary bytes as the host's text files: the parsers skip what they
// cannot read, never crash, never read out of bounds, and keep their
// invariants (processor numbers known, sizes -1 or non-negative).
#include "system/host_info.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

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
  if (cache_size_bytes(text) < -1) {
    std::abort();
  }
  // A value never holds a line break: it is read from one line.
  for (const auto* key : {"NAME", "VERSION_ID"}) {
    if (os_release_value(text, key).find('\n') != std::string::npos) {
      std::abort();
    }
  }
  return 0;
}
