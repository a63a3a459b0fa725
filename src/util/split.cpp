// Splitting text at delimiter characters into views.
#include <norvane/strings.hpp>

#include <array>
#include <cstring>

namespace norvane {
namespace {

// Finds the next delimiter from `start`: memchr for the usual single
// delimiter, a byte table for a set (find_first_of would rescan the set
// for every character).
class delimiter_finder {
public:
  explicit delimiter_finder(std::string_view delimiters) : delimiters_(delimiters) {
    if (delimiters.size() > 1) {
      for (const char c : delimiters) {
        table_[static_cast<unsigned char>(c)] = true;
      }
    }
  }

  std::size_t find(std::string_view text, std::size_t start) const {
    if (delimiters_.empty()) {
      return std::string_view::npos;
    }
    if (delimiters_.size() == 1) {
      const void* hit = std::memchr(text.data() + start, delimiters_[0], text.size() - start);
      return hit == nullptr ? std::string_view::npos
                            : static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
    }
    for (std::size_t i = start; i < text.size(); ++i) {
      if (table_[static_cast<unsigned char>(text[i])]) {
        return i;
      }
    }
    return std::string_view::npos;
  }

private:
  std::string_view delimiters_;
  std::array<bool, 256> table_{};
};

}  // namespace

std::vector<std::string_view> split(std::string_view text, std::string_view delimiters) {
  std::vector<std::string_view> pieces;
  if (text.empty()) {
    return pieces;
  }
  if (text.size() >= 2) {
    pieces.reserve(text.size() / 2);
  }
  const delimiter_finder finder(delimiters);
  std::size_t start = 0;
  for (;;) {
    const std::size_t stop = finder.find(text, start);
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
