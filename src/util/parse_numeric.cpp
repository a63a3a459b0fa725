// Numbers from text through strtoll and strtod.
#include <norvane/strings.hpp>

#include <cstdlib>

namespace norvane {

bool parse_numeric(long long* out, std::string_view text) noexcept {
  if (text.data() == nullptr) {
    return false;
  }
  char* end = nullptr;
  const long long value = std::strtoll(text.data(), &end, 10);
  if (end == text.data()) {
    return false;
  }
  *out = value;
  return true;
}

// Unlike the integer form this writes even on failure (0.0); callers rely on
// getting a defined value either way.
bool parse_numeric(double* out, std::string_view text) noexcept {
  if (text.data() == nullptr) {
    *out = 0.0;
    return false;
  }
  char* end = nullptr;
  *out = std::strtod(text.data(), &end);
  return end != text.data();
}

}  // namespace norvane
