// Offsets to positions and back. Continuation bytes of UTF-8 sequences do
// not count as columns, as in libfyaml's own positions.
#include "yaml/text_position.hpp"

namespace norvane::yaml::details {

location locate(std::string_view source_name, std::string_view text, std::size_t offset) {
  location loc{source_name, offset, 1, 1};
  const std::size_t end = offset < text.size() ? offset : text.size();
  for (std::size_t i = 0; i < end; ++i) {
    if (text[i] == '\n') {
      ++loc.line;
      loc.col = 1;
    } else if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
      ++loc.col;
    }
  }
  return loc;
}

std::size_t offset_of(std::string_view text, std::size_t line, std::size_t col) {
  std::size_t i = 0;
  for (std::size_t l = 1; l < line && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++l;
    }
  }
  for (std::size_t c = 1; c < col && i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
      ++c;
    }
    while (i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xC0) == 0x80) {
      ++i;
    }
  }
  return i;
}

// libfyaml places faults found at the end of the text one line past it.
location within(std::string_view source_name, std::string_view text, const location& loc) {
  if (text.empty() || loc.offset < text.size()) {
    return loc;
  }
  return locate(source_name, text, text.size() - 1);
}

}  // namespace norvane::yaml::details
