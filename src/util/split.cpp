// Splitting text at delimiter characters into views.
#include <norvane/strings.hpp>

namespace norvane {

std::vector<std::string_view> split(std::string_view text, std::string_view delimiters) {
  std::vector<std::string_view> pieces;
  if (text.empty()) {
    return pieces;
  }
  if (text.size() >= 2) {
    pieces.reserve(text.size() / 2);
  }
  std::size_t start = 0;
  for (;;) {
    // An empty delimiter set never matches, so the remainder is one piece.
    const std::size_t stop =
        delimiters.empty() ? std::string_view::npos : text.find_first_of(delimiters, start);
    const std::size_t end = stop == std::string_view::npos ? text.size() : stop;
    if (end > start) {
      pieces.push_back(text.substr(start, end - start));
    }
    if (stop == std::string_view::npos || stop + 1 == text.size()) {
      break;
    }
    start = stop + 1;
  }
  return pieces;
}

}  // namespace norvane
