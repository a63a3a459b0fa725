// UTF-8 validation: a word at a time through ASCII, byte by byte elsewhere.
#include "util/utf8.hpp"

#include <cstdint>
#include <cstring>

namespace norvane::details {

namespace {

// A well-formed multi-byte sequence at `s`, with its length in `length`.
bool is_sequence(const unsigned char* s, std::size_t available, std::size_t& length) noexcept {
  const unsigned char c = s[0];
  std::size_t extra = 0;
  std::uint32_t cp = 0;
  if (c >= 0xC2 && c <= 0xDF) {
    extra = 1;
    cp = c & 0x1F;
  } else if (c >= 0xE0 && c <= 0xEF) {
    extra = 2;
    cp = c & 0x0F;
  } else if (c >= 0xF0 && c <= 0xF4) {
    extra = 3;
    cp = c & 0x07;
  } else {
    return false;
  }
  if (extra >= available) {
    return false;
  }
  for (std::size_t k = 1; k <= extra; ++k) {
    if ((s[k] & 0xC0) != 0x80) {
      return false;
    }
    cp = (cp << 6) | (s[k] & 0x3F);
  }
  const bool overlong = (extra == 2 && cp < 0x800) || (extra == 3 && cp < 0x10000);
  const bool surrogate = cp >= 0xD800 && cp <= 0xDFFF;
  length = extra + 1;
  return !overlong && !surrogate && cp <= 0x10FFFF;
}

}  // namespace

utf8_fault find_utf8_fault(std::string_view text) noexcept {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  constexpr std::uint64_t high = 0x8080808080808080ull;
  constexpr std::uint64_t ones = 0x0101010101010101ull;
  std::size_t i = 0;
  while (i < n) {
    if (i + 8 <= n) {
      std::uint64_t w;
      std::memcpy(&w, s + i, 8);
      // Eight ASCII bytes, none of them zero.
      if ((w & high) == 0 && ((w - ones) & ~w & high) == 0) {
        i += 8;
        continue;
      }
    }
    if (s[i] == 0) {
      return {utf8_fault_kind::nul_byte, i};
    }
    if (s[i] < 0x80) {
      ++i;
      continue;
    }
    std::size_t length = 0;
    if (!is_sequence(s + i, n - i, length)) {
      return {utf8_fault_kind::invalid_sequence, i};
    }
    i += length;
  }
  return {};
}

}  // namespace norvane::details
