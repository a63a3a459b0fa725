// Hexadecimal digits both ways: the value of one digit, and the two digits
// of a byte. The library's hex text, digests, UUIDs, escapes and YAML
// scalars all go through these two.
#pragma once

#include <cstddef>

namespace norvane::details {

// One hexadecimal digit's value in the POSIX locale, without consulting the
// current one (isxdigit would): -1 for anything else.
constexpr int hex_digit(char c) noexcept {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

// Writes two digits per byte of `bytes`, high nibble first, at `out`, which
// must have room for 2 * size characters.
constexpr void bytes_to_hex(const unsigned char* bytes, std::size_t size, char* out,
                            bool uppercase) noexcept {
  const char* digits = uppercase ? "0123456789ABCDEF" : "0123456789abcdef";
  for (std::size_t i = 0; i < size; ++i) {
    *out++ = digits[bytes[i] >> 4];
    *out++ = digits[bytes[i] & 0x0f];
  }
}

}  // namespace norvane::details
