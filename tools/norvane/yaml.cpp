// norvane yaml check|get: parse errors with their positions, and scalars at
// dotted paths.
#include "command.hpp"

#include <norvane/yaml.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <utility>

namespace norvane_tool {
namespace {

std::optional<std::string> read_text(const std::string& path) {
  std::error_code ignored;
  std::ifstream in(path, std::ios::binary);
  if (!in || std::filesystem::is_directory(path, ignored)) {
    return std::nullopt;
  }
  std::ostringstream text;
  text << in.rdbuf();  // an empty file sets failbit on `text`, harmlessly
  return text.str();
}

// The parser reports "file:LINE:COL (OFFSETB): message"; users and editors
// want "path:LINE:COL: message". An entry of another shape is kept whole.
std::string located(const std::string& path, const std::string& error) {
  const auto first = error.find(':');
  const auto second = first == std::string::npos ? first : error.find(':', first + 1);
  const auto offset = second == std::string::npos ? second : error.find(" (", second + 1);
  const auto message = offset == std::string::npos ? offset : error.find("): ", offset);
  if (message == std::string::npos) {
    return path + ": " + error;
  }
  return path + error.substr(first, offset - first) + ": " + error.substr(message + 3);
}

int check(const std::vector<std::string>& paths) {
  if (paths.empty()) {
    throw usage_error("yaml check needs at least one FILE");
  }
  int result = exit_ok;
  for (const auto& path : paths) {
    const auto text = read_text(path);
    if (!text) {
      report("cannot read '" + path + "'");
      result = exit_failure;
      continue;
    }
    std::vector<std::string> errors;
    norvane::yaml::read_yaml(*text, errors);
    for (const auto& error : errors) {
      std::cout << located(path, error) << '\n';
      result = exit_failure;
    }
  }
  return result;
}

bool is_index(const std::string& segment) {
  return !segment.empty() && segment.find_first_not_of("0123456789") == std::string::npos;
}

int get(const std::string& path, const std::string& dotted) {
  const auto text = read_text(path);
  if (!text) {
    report("cannot read '" + path + "'");
    return exit_failure;
  }
  std::vector<std::string> errors;
  auto node = norvane::yaml::read_yaml(*text, errors);
  if (!errors.empty()) {
    report(located(path, errors.front()));
    return exit_failure;
  }
  std::string walked;
  std::istringstream segments(dotted);
  for (std::string segment; std::getline(segments, segment, '.');) {
    walked += (walked.empty() ? "" : ".") + segment;
    // The const lookups: a missing child is an invalid handle, not a seed.
    const auto& here = std::as_const(node);
    auto next = here.is_array() && is_index(segment) ? here[std::stoul(segment)] : here[segment];
    node = std::move(next);
    if (!node.is_valid()) {
      report("'" + walked + "' does not exist in '" + path + "'");
      return exit_failure;
    }
  }
  if (node.is_structured()) {
    report("'" + dotted + "' in '" + path + "' is a " + (node.is_array() ? "sequence" : "map") +
           ", not a scalar");
    return exit_failure;
  }
  std::cout << node.value_or<std::string>("") << '\n';
  return exit_ok;
}

}  // namespace

int run_yaml(const invocation& call) {
  const auto& words = call.words;
  if (words.empty()) {
    throw usage_error("yaml needs 'check FILE...' or 'get FILE PATH'");
  }
  if (words[0] == "check") {
    return check({words.begin() + 1, words.end()});
  }
  if (words[0] == "get") {
    if (words.size() != 3) {
      throw usage_error("yaml get needs FILE and PATH");
    }
    return get(words[1], words[2]);
  }
  throw usage_error("unknown yaml command '" + words[0] + "'");
}

}  // namespace norvane_tool
