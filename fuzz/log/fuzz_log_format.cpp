// Run-time format strings from untrusted input: log either writes one
// record or throws fmt::format_error; it never crashes or reads out of bounds.
#include <norvane/log.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto stream = [] {
    auto s = std::make_shared<norvane::log_stream>("fuzz", std::make_shared<norvane::log_sink_null>());
    s->set_level(norvane::log_level::trace);
    return s;
  }();
  const std::string_view format(reinterpret_cast<const char*>(data), size);
  // A width such as {:444444444} is honoured by fmt and only costs time and
  // memory; such inputs say nothing about correctness.
  int digits = 0;
  for (const char c : format) {
    digits = (c >= '0' && c <= '9') ? digits + 1 : 0;
    if (digits > 4) {
      return 0;
    }
  }
  try {
    stream->log(norvane::log_level::info, fmt::runtime(format), 42, -1.5, "text", 'c', true);
  } catch (const fmt::format_error&) {
  }
  return 0;
}
