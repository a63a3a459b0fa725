// Reading back what the log sinks wrote.
#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace norvane::test {

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

// spdlog's default layout: "[2026-11-21 23:59:59.123] [name] [level] message".
inline bool is_default_layout(const std::string& line, const std::string& name, const std::string& level,
                              const std::string& message) {
  static const std::regex stamp(R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] )");
  std::smatch m;
  if (!std::regex_search(line, m, stamp)) {
    return false;
  }
  return line.substr(m.length()) == "[" + name + "] [" + level + "] " + message;
}

}  // namespace norvane::test
