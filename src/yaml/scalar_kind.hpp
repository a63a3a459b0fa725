// Classification of scalar text into the kinds a handle caches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace norvane::yaml::details {

enum class scalar_kind : std::uint32_t { none = 0, boolean = 1, integer = 2, floating = 3, string = 4 };

// A classified scalar as a handle caches it: the kind says which member
// of the union holds the value (a string keeps a view of its text).
struct scalar_value {
  struct text_view {
    const char* data;
    std::size_t size;
  };

  scalar_kind kind = scalar_kind::none;
  union {
    text_view text{nullptr, 0};
    bool boolean;
    long long integer;
    double floating;
  };
};

// Integers: optional '-', then 0b/0o/0x digits or decimal digits, every
// character a digit of the base; the magnitude wraps instead of failing.
bool parse_integer(std::string_view text, long long& out) noexcept;
// Hexadecimal floats ("0x1.8p3", optional '-'), else fast_float's general
// format, which accepts a number at the start of the text.
bool parse_float(std::string_view text, double& out) noexcept;
bool parse_bool(std::string_view text, bool& out) noexcept;

// The whole classification order: empty or null text is a string; a
// leading '+' makes a string; then integer, float, boolean, string. A
// string's view is the text as given, untrimmed.
scalar_value classify(std::string_view text) noexcept;

}  // namespace norvane::yaml::details
