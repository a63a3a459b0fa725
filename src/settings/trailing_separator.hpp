// Paths are handed out without a trailing separator, as the platforms'
// own path joining does, so that callers can append "/name" safely.
#pragma once

#include <string>

namespace norvane::details {

// "/a/b//" gives "/a/b"; "/" stays: there it is the root, not a trailing separator.
inline std::string without_trailing_separator(std::string text) {
  while (text.size() > 1 && text.back() == '/') {
    text.pop_back();
  }
  return text;
}

}  // namespace norvane::details
