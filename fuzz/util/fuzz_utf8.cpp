// Arbitrary bytes through the UTF-8 check: no read past the text, the text
// before a fault is clean, the fault is where it says, and the eight-byte
// path agrees with the byte-by-byte one wherever the text starts.
#include "util/utf8.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

using norvane::details::find_utf8_fault;
using norvane::details::utf8_fault_kind;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size copy, so that reading one byte too far is caught.
  const auto exact = std::make_unique<char[]>(size);
  std::copy(data, data + size, exact.get());
  const std::string_view text(exact.get(), size);

  const auto fault = find_utf8_fault(text);
  if (fault.kind == utf8_fault_kind::none) {
    for (const char c : text) {
      const auto b = static_cast<unsigned char>(c);
      if (b == 0 || b == 0xC0 || b == 0xC1 || b >= 0xF5) {
        std::abort();
      }
    }
  } else {
    if (fault.offset >= size || find_utf8_fault(text.substr(0, fault.offset)).kind != utf8_fault_kind::none) {
      std::abort();
    }
    if ((fault.kind == utf8_fault_kind::nul_byte) != (text[fault.offset] == '\0')) {
      std::abort();
    }
  }
  for (std::size_t shift = 1; shift < 8; ++shift) {
    const std::string shifted = std::string(shift, 'x') + std::string(text);
    const auto moved = find_utf8_fault(shifted);
    if (moved.kind != fault.kind ||
        (fault.kind != utf8_fault_kind::none && moved.offset != fault.offset + shift)) {
      std::abort();
    }
  }
  return 0;
}
