// Trimming ASCII whitespace off either end of a view.
#include <norvane/strings.hpp>

namespace norvane {
namespace {

// Plain ASCII test: isspace() would depend on the locale, and a byte of
// 0x80 or above must never count as space.
bool is_space(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

std::size_t remove_leading_whitespace(std::string_view& text) noexcept {
  std::size_t n = 0;
  while (n < text.size() && is_space(text[n])) {
    ++n;
  }
  text.remove_prefix(n);
  return n;
}

std::size_t remove_trailing_whitespace(std::string_view& text) noexcept {
  std::size_t n = 0;
  while (n < text.size() && is_space(text[text.size() - 1 - n])) {
    ++n;
  }
  text.remove_suffix(n);
  return n;
}

}  // namespace norvane
