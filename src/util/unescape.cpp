// Decoding C backslash escapes, in place or into another string.
#include <norvane/strings.hpp>

#include "util/hex_digit.hpp"

#include <cstdint>

namespace norvane {
namespace {

bool is_octal(char c) noexcept { return c >= '0' && c <= '7'; }

bool fail(std::string* error_message, std::string message) {
  if (error_message != nullptr) {
    *error_message = std::move(message);
  }
  return false;
}

char simple_escape(char c) noexcept {
  switch (c) {
    case '"':
      return '"';
    case '\'':
      return '\'';
    case '?':
      return '?';
    case '\\':
      return '\\';
    case 'a':
      return '\a';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 'v':
      return '\v';
    default:
      return '\0';
  }
}

}  // namespace

namespace details {

bool unescape_impl(std::string* out, std::size_t* out_length, std::string_view in,
                   std::string* error_message) {
  char* dst = out->data();
  std::size_t i = 0;
  std::size_t produced = 0;
  if (!in.empty() && in.data() == out->data()) {
    // In place: everything before the first backslash is already where it belongs.
    const std::size_t first = in.find('\\');
    if (first == std::string_view::npos) {
      *out_length = in.size();
      return true;
    }
    i = first;
    produced = first;
  }
  const std::size_t n = in.size();
  // The write position never passes the read position, so writing in place
  // never clobbers input that is still to be read.
  while (i < n) {
    const char c = in[i];
    if (c != '\\') {
      dst[produced++] = c;
      ++i;
      continue;
    }
    if (i + 1 == n) {
      return fail(error_message, "String cannot end with \\");
    }
    const char kind = in[i + 1];
    if (const char simple = simple_escape(kind); simple != '\0') {
      dst[produced++] = simple;
      i += 2;
    } else if (is_octal(kind)) {
      std::size_t end = i + 2;
      while (end < n && end < i + 4 && is_octal(in[end])) {
        ++end;
      }
      unsigned value = 0;
      for (std::size_t k = i + 1; k < end; ++k) {
        value = value * 8 + static_cast<unsigned>(in[k] - '0');
      }
      if (value > 0xff) {
        return fail(error_message,
                    "Value of \\" + std::string(in.substr(i + 1, end - i - 1)) + " exceeds 0xff");
      }
      dst[produced++] = static_cast<char>(value);
      i = end;
    } else if (kind == 'x' || kind == 'X') {
      if (i + 2 == n) {
        return fail(error_message, "String cannot end with \\x");
      }
      if (details::hex_digit(in[i + 2]) < 0) {
        return fail(error_message, "\\x cannot be followed by a non-hex digit");
      }
      // No digit limit, and a 32-bit accumulator: digits past the eighth push
      // the first ones out. Kept so that existing escaped text decodes as before.
      std::uint32_t value = 0;
      std::size_t end = i + 2;
      for (int digit; end < n && (digit = details::hex_digit(in[end])) >= 0; ++end) {
        value = (value << 4) | static_cast<std::uint32_t>(digit);
      }
      if (value > 0xff) {
        return fail(error_message,
                    "Value of \\" + std::string(in.substr(i + 1, end - i - 1)) + " exceeds 0xff");
      }
      dst[produced++] = static_cast<char>(value);
      i = end;
    } else {
      return fail(error_message, std::string("Unknown escape sequence: \\") + kind);
    }
  }
  *out_length = produced;
  return true;
}

}  // namespace details

bool unescape(std::string* out, std::string_view in, std::string* error_message) {
  // Resizing to the input's length never reallocates when `in` views `*out`,
  // so the in-place case keeps its buffer.
  out->resize(in.size());
  std::size_t length = 0;
  if (!details::unescape_impl(out, &length, in, error_message)) {
    return false;
  }
  out->erase(length);
  return true;
}

}  // namespace norvane
