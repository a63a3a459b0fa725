// Bytes to hexadecimal text.
#include <norvane/hash.hpp>

namespace norvane {

void string_to_hex(std::string input, std::string& output, bool uppercase) {
  const char* digits = uppercase ? "0123456789ABCDEF" : "0123456789abcdef";
  output.resize(input.size() * 2);
  for (std::size_t i = 0; i < input.size(); ++i) {
    const auto byte = static_cast<unsigned char>(input[i]);
    output[2 * i] = digits[byte >> 4];
    output[2 * i + 1] = digits[byte & 0x0f];
  }
}

}  // namespace norvane
