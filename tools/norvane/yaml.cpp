// norvane yaml check|get: parse errors with their positions, and the node
// at a dotted path: a scalar as its text, a map or sequence as compact JSON
// or block YAML.
#include "command.hpp"

#include <norvane/yaml.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <utility>

namespace norvane_tool {
namespace {

// The whole file, or the reason it cannot be read ("path: No such file or
// directory").
std::optional<std::string> read_text(const std::string& path, std::string& why) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    why = path + ": " + std::strerror(EISDIR);
    return std::nullopt;
  }
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    why = path + ": " + std::strerror(errno != 0 ? errno : EIO);
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
    std::string why;
    const auto text = read_text(path, why);
    if (!text) {
      report(why);
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

using norvane::yaml::ryml_wrapper;

void write_json_string(std::ostream& out, std::string_view text) {
  out << '"';
  for (const char c : text) {
    switch (c) {
      case '"':
        out << "\\\"";
        break;
      case '\\':
        out << "\\\\";
        break;
      case '\n':
        out << "\\n";
        break;
      case '\t':
        out << "\\t";
        break;
      case '\r':
        out << "\\r";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
          out << escaped;
        } else {
          out << c;
        }
    }
  }
  out << '"';
}

// A float whose whole text is a finite number, in its shortest JSON form;
// empty for text that only starts like one ("1.2.3", "8080:80").
std::string json_float(const std::string& text) {
  double value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return {};
  }
  char buf[32];
  return std::string(buf, std::to_chars(buf, buf + sizeof buf, value).ptr);
}

// Quoted text stays a string whatever it looks like; the rest is typed as
// the library classifies it.
void write_json_scalar(std::ostream& out, const ryml_wrapper& node) {
  const std::string text = node.value_or<std::string>("");
  if (!node.has_value()) {
    out << "null";
  } else if (node.is_quoted() || node.is_string()) {
    write_json_string(out, text);
  } else if (node.is_boolean()) {
    out << (node.as<bool>() ? "true" : "false");
  } else if (node.is_number_integer()) {
    out << node.as<long long>();
  } else if (const std::string number = json_float(text); !number.empty()) {
    out << number;
  } else {
    write_json_string(out, text);
  }
}

void write_json(std::ostream& out, const ryml_wrapper& node) {
  if (node.is_object()) {
    out << '{';
    const char* separator = "";
    for (const auto& [key, value] : node) {
      out << separator;
      write_json_string(out, key);
      out << ':';
      write_json(out, value);
      separator = ",";
    }
    out << '}';
  } else if (node.is_array()) {
    out << '[';
    const char* separator = "";
    for (const auto& item : node) {
      out << separator;
      write_json(out, item);
      separator = ",";
    }
    out << ']';
  } else {
    write_json_scalar(out, node);
  }
}

bool is_null_word(std::string_view text) {
  return text == "~" || text == "null" || text == "Null" || text == "NULL";
}

// Plain when the text reads back as itself, else double-quoted (JSON's
// escapes are valid in YAML's double-quoted style).
void write_yaml_text(std::ostream& out, std::string_view text, bool must_quote) {
  constexpr std::string_view indicators = "-?:,[]{}#&*!|>'\"%@` ";
  const bool plain =
      !must_quote && !text.empty() && indicators.find(text.front()) == std::string_view::npos &&
      text.back() != ' ' && text.back() != ':' && text.find(": ") == std::string_view::npos &&
      text.find(" #") == std::string_view::npos && !is_null_word(text) &&
      std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
  if (plain) {
    out << text;
  } else {
    write_json_string(out, text);
  }
}

void write_yaml_scalar(std::ostream& out, const ryml_wrapper& node) {
  if (!node.has_value()) {
    out << "null";
  } else {
    // Quoted text that would read back as a number or a boolean keeps its quotes.
    write_yaml_text(out, node.value_or<std::string>(""), node.is_quoted() && !node.is_string());
  }
}

bool is_nested(const ryml_wrapper& node) { return node.is_structured() && node.size() > 0; }

// Block YAML at `indent` spaces; the first line's indentation is already
// written when the node follows a sequence dash.
void write_yaml(std::ostream& out, const ryml_wrapper& node, std::size_t indent, bool after_dash) {
  bool first = true;
  const auto start_line = [&] {
    if (!(first && after_dash)) {
      out << std::string(indent, ' ');
    }
    first = false;
  };
  if (node.is_object()) {
    for (const auto& [key, value] : node) {
      start_line();
      write_yaml_text(out, key, false);
      out << ':';
      if (is_nested(value)) {
        out << '\n';
        write_yaml(out, value, indent + 2, false);
      } else {
        out << ' ';
        write_yaml(out, value, 0, true);
      }
    }
  } else if (node.is_array()) {
    for (const auto& item : node) {
      start_line();
      out << "- ";
      write_yaml(out, item, indent + 2, true);
    }
  } else {
    start_line();
    write_yaml_scalar(out, node);
    out << '\n';
  }
  if (node.is_structured() && node.size() == 0) {
    start_line();
    out << (node.is_object() ? "{}" : "[]") << '\n';
  }
}

bool is_index(const std::string& segment) {
  return !segment.empty() && segment.find_first_not_of("0123456789") == std::string::npos;
}

int get(const std::string& path, const std::string& dotted, bool as_yaml) {
  std::string why;
  const auto text = read_text(path, why);
  if (!text) {
    report(why);
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
  if (!node.is_structured()) {
    std::cout << node.value_or<std::string>("") << '\n';
  } else if (as_yaml) {
    write_yaml(std::cout, node, 0, false);
  } else {
    write_json(std::cout, node);
    std::cout << '\n';
  }
  return exit_ok;
}

}  // namespace

int run_yaml(const invocation& call) {
  const auto& words = call.words;
  if (words.empty()) {
    throw usage_error("yaml needs 'check FILE...' or 'get FILE [PATH]'");
  }
  if (words[0] == "check") {
    if (call.given("yaml")) {
      throw usage_error("--yaml goes with yaml get, not yaml check");
    }
    return check({words.begin() + 1, words.end()});
  }
  if (words[0] == "get") {
    if (words.size() < 2 || words.size() > 3) {
      throw usage_error("yaml get needs FILE and at most one PATH");
    }
    return get(words[1], words.size() == 3 ? words[2] : std::string(), call.given("yaml"));
  }
  throw usage_error("unknown yaml command '" + words[0] + "'");
}

}  // namespace norvane_tool
