// Input shared by the hash tests.
#pragma once

#include <string>

namespace norvane::test {

// Byte i is (i * 131 + 17) mod 256: easy to reproduce in the tool that gives the expected values.
inline std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>((i * 131 + 17) & 0xff);
  }
  return bytes;
}

}  // namespace norvane::test
