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

// spdlog's default layout: "[2026-11-21 23:59:59.123] [name] [level] message".
inline bool is_default_layout(const std::string& line, const std::string& name, const std::string& level,
                              const std::string& message) {
  static const std::regex stamp(R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] )");
  std::smatch m;
  return std::regex_search(line, m, stamp) &&
         line.substr(m.length()) == "[" + name + "] [" + level + "] " + message;
}

// Logs `text` at error level through a fresh stream "s" on `sink`.
inline void log_one(std::shared_ptr<log_sink> sink, const std::string& text) {
  log_stream stream("s", std::move(sink));
  stream.set_level(log_level::trace);
  stream.log(log_level::error, "{}", text);
  stream.flush();
}

}  // namespace norvane::test
