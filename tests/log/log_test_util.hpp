// Reading back what the log sinks wrote.
#pragma once

#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace norvane::test {

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The text with spdlog's default time stamp "[2026-11-21 23:59:59.123] " cut from each line.
inline std::string unstamped(const std::string& text) {
  static const std::regex stamp(R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] )", std::regex::multiline);
  return std::regex_replace(text, stamp, "");
}

}  // namespace norvane::test
