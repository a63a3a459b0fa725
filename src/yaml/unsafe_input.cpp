#include "yaml/unsafe_input.hpp"

namespace norvane::yaml::details {

namespace {

bool is_blank(char c) noexcept { return c == ' ' || c == '\t'; }
bool is_blank_or_end(std::string_view text, std::size_t i) noexcept {
  return i >= text.size() || is_blank(text[i]) || text[i] == '\n' || text[i] == '\r';
}

}  // namespace

std::size_t find_tab_before_block_indicator(std::string_view text) noexcept {
  bool explicit_key_seen = false;
  bool key_on_line = false;  // something other than blanks and indicators before, on this line
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\n' || c == '\r') {
      key_on_line = false;
      continue;
    }
    if (c == '?' && is_blank_or_end(text, i + 1)) {
      explicit_key_seen = true;
    } else if (c == ':' && explicit_key_seen && key_on_line) {
      std::size_t j = i + 1;
      std::size_t tab = std::string_view::npos;
      for (; j < text.size() && is_blank(text[j]); ++j) {
        if (text[j] == '\t' && tab == std::string_view::npos) {
          tab = j;
        }
      }
      if (tab != std::string_view::npos && j < text.size()) {
        const char next = text[j];
        const bool indicator = next == '?' || next == ':' || next == '|' || next == '>' ||
                               (next == '-' && is_blank_or_end(text, j + 1));
        if (indicator) {
          return tab;
        }
      }
    }
    const bool indicator_here = (c == '?' || c == '-' || c == ':') && is_blank_or_end(text, i + 1);
    if (!is_blank(c) && !indicator_here) {
      key_on_line = true;
    }
  }
  return std::string_view::npos;
}

}  // namespace norvane::yaml::details
