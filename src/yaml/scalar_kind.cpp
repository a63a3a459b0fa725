// Scalar classification: integers before floats before booleans, so that
// "0" and "1" are integers and "0x1F" is 31.
#include "yaml/scalar_kind.hpp"

#include "util/hex_digit.hpp"

#include <fast_float/fast_float.h>

#include <cmath>

namespace norvane::yaml::details {

namespace {

using norvane::details::hex_digit;

// YAML's own blanks: the public trim pair also strips \v and \f, which a
// quoted scalar may hold as text ("\v1" stays a string, not the number 1).
std::string_view trim(std::string_view s) noexcept {
  constexpr std::string_view blanks = " \t\n\r";
  const auto first = s.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return s.substr(0, 0);
  }
  return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

bool has_hex_prefix(std::string_view s) noexcept {
  return s.size() >= 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
}

bool parse_hex_float(std::string_view s, double& out) noexcept {
  double mantissa = 0;
  std::size_t i = 0;
  std::size_t digits = 0;
  for (; i < s.size() && hex_digit(s[i]) >= 0; ++i, ++digits) {
    mantissa = mantissa * 16 + hex_digit(s[i]);
  }
  int exponent = 0;
  if (i < s.size() && s[i] == '.') {
    for (++i; i < s.size() && hex_digit(s[i]) >= 0; ++i, ++digits) {
      mantissa = mantissa * 16 + hex_digit(s[i]);
      exponent -= 4;
    }
  }
  if (digits == 0) {
    return false;
  }
  if (i < s.size() && (s[i] == 'p' || s[i] == 'P')) {
    ++i;
    bool negative = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
      negative = s[i] == '-';
      ++i;
    }
    if (i == s.size()) {
      return false;
    }
    long e = 0;
    for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
      if (e < 100000) {
        e = e * 10 + (s[i] - '0');
      }
    }
    exponent += static_cast<int>(negative ? -e : e);
  }
  if (i != s.size()) {
    return false;
  }
  out = std::ldexp(mantissa, exponent);
  return true;
}

}  // namespace

bool parse_integer(std::string_view s, long long& out) noexcept {
  bool negative = false;
  if (!s.empty() && s[0] == '-') {
    negative = true;
    s.remove_prefix(1);
  }
  int base = 10;
  if (s.size() >= 2 && s[0] == '0') {
    switch (s[1]) {
      case 'b':
      case 'B':
        base = 2;
        break;
      case 'o':
      case 'O':
        base = 8;
        break;
      case 'x':
      case 'X':
        base = 16;
        break;
      default:
        break;
    }
    if (base != 10) {
      s.remove_prefix(2);
    }
  }
  if (s.empty()) {
    return false;
  }
  unsigned long long magnitude = 0;
  for (char c : s) {
    const int d = hex_digit(c);
    if (d < 0 || d >= base) {
      return false;
    }
    magnitude = magnitude * static_cast<unsigned>(base) + static_cast<unsigned>(d);
  }
  out = static_cast<long long>(negative ? 0ull - magnitude : magnitude);
  return true;
}

bool parse_float(std::string_view s, double& out) noexcept {
  std::string_view body = s;
  const bool negative = !body.empty() && body[0] == '-';
  if (negative) {
    body.remove_prefix(1);
  }
  if (has_hex_prefix(body)) {
    double v = 0;
    if (!parse_hex_float(body.substr(2), v)) {
      return false;
    }
    out = negative ? -v : v;
    return true;
  }
  double v = 0;
  const auto result =
      fast_float::from_chars(s.data(), s.data() + s.size(), v, fast_float::chars_format::general);
  if (result.ec != std::errc()) {
    return false;
  }
  out = v;
  return true;
}

bool parse_bool(std::string_view s, bool& out) noexcept {
  if (s == "true" || s == "True" || s == "TRUE") {
    out = true;
    return true;
  }
  if (s == "false" || s == "False" || s == "FALSE") {
    out = false;
    return true;
  }
  return false;
}

scalar_value classify(std::string_view text) noexcept {
  scalar_value v;
  v.kind = scalar_kind::string;
  v.text = {text.data(), text.size()};
  if (text.data() == nullptr || text.empty()) {
    return v;
  }
  const std::string_view t = trim(text);
  if (!t.empty() && t[0] == '+') {
    return v;
  }
  long long i = 0;
  double f = 0;
  bool b = false;
  if (parse_integer(t, i)) {
    v.kind = scalar_kind::integer;
    v.integer = i;
  } else if (parse_float(t, f)) {
    v.kind = scalar_kind::floating;
    v.floating = f;
  } else if (parse_bool(t, b)) {
    v.kind = scalar_kind::boolean;
    v.boolean = b;
  }
  return v;
}

}  // namespace norvane::yaml::details
