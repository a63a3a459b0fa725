// Bytes to hexadecimal text.
#include <norvane/hash.hpp>

#include "util/hex_digit.hpp"

namespace norvane {

void string_to_hex(std::string input, std::string& output, bool uppercase) {
  output.resize(input.size() * 2);
  details::bytes_to_hex(reinterpret_cast<const unsigned char*>(input.data()), input.size(), output.data(),
                        uppercase);
}

}  // namespace norvane
