// Classification of scalar text into the kinds a handle caches.
#pragma once

#include <cstdint>
#include <string_view>

namespace norvane::yaml::details {

enum class scalar_kind : std::uint32_t { none = 0, boolean = 1, integer = 2, floating = 3, string = 4 };

struct scalar_value {
  scalar_kind kind = scalar_kind::none;
  bool b = false;
  long long i = 0;
  double f = 0;
};

// Integers: optional '-', then 0b/0o/0x digits or decimal digits, every
// character a digit of the base; the magnitude wraps instead of failing.
bool parse_integer(std::string_view text, long long& out) noexcept;
// Hexadecimal floats ("0x1.8p3", optional '-'), else fast_float's general
// format, which accepts a number at the start of the text.
bool parse_float(std::string_view text, double& out) noexcept;
bool parse_bool(std::string_view text, bool& out) noexcept;

// The whole classification order: empty or null text is a string; a
// leading '+' makes a string; then integer, float, boolean, string.
scalar_value classify(std::string_view text) noexcept;

}  // namespace norvane::yaml::details
