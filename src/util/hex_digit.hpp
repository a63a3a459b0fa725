// One hexadecimal digit's value in the POSIX locale, without consulting the
// current one (isxdigit would): -1 for anything else.
#pragma once

namespace norvane::details {

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

}  // namespace norvane::details
