// The option table, and the scan that separates positional words from
// options so that file names keep their commas (the parser joins its
// positional values with ",").
#include "command.hpp"

#include <algorithm>
#include <iostream>
#include <string_view>

namespace norvane_tool {
namespace {

struct option_entry {
  std::string_view short_name;
  std::string_view long_name;
  bool takes_value;
};

constexpr option_entry known_options[] = {
    {"h", "help", false},   {"", "version", false}, {"", "log-level", true},
    {"", "log-file", true}, {"", "json", false},    {"", "algo", true},
    {"n", "count", true},   {"", "file", true},     {"", "yaml", false},
};

const option_entry* find_option(std::string_view name, bool is_long) {
  for (const auto& entry : known_options) {
    if ((is_long ? entry.long_name : entry.short_name) == name) {
      return &entry;
    }
  }
  return nullptr;
}

}  // namespace

void declare_options(norvane::cmdline_parser& parser) {
  parser.add_option("h", "help", "Print this help and exit", false);
  parser.add_option("", "version", "Print the version and exit", false);
  parser.add_option("", "log-level", "trace, debug, info, warning, error, critical or off", "warning");
  parser.add_option("", "log-file", "Append log lines to this file instead of standard output", "");
  parser.add_option("", "json", "info: print JSON", false);
  parser.add_option("", "algo", "hash: sha1, sha256, xxh64 or xxh128", "sha256");
  parser.add_option("n", "count", "uuid: how many identifiers", 1);
  parser.add_option("", "file", "settings: the store's file name", "settings.json");
  parser.add_option("", "yaml", "yaml get: print maps and sequences as block YAML, not JSON", false);
  parser.add_option("words");
}

std::vector<std::string> positional_words(const std::vector<std::string>& arguments) {
  std::vector<std::string> words;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string_view arg = arguments[i];
    if (arg == "--") {
      words.insert(words.end(), arguments.begin() + static_cast<long>(i) + 1, arguments.end());
      break;
    }
    if (arg.size() < 2 || arg[0] != '-') {
      words.emplace_back(arg);  // "-" alone is standard input, a word
      continue;
    }
    const bool is_long = arg[1] == '-';
    const auto body = arg.substr(is_long ? 2 : 1);
    const auto equals = body.find('=');
    const auto name = is_long ? body.substr(0, equals) : body.substr(0, 1);
    const auto* entry = find_option(name, is_long);
    if (entry == nullptr) {
      throw usage_error("unknown option '" + std::string(arg) + "'");
    }
    const bool value_attached = is_long ? equals != std::string_view::npos : body.size() > 1;
    if (entry->takes_value && !value_attached) {
      if (i + 1 == arguments.size()) {
        throw usage_error("option '" + std::string(arg) + "' needs a value");
      }
      ++i;
    }
  }
  return words;
}

void allow_only(const invocation& call, const std::string& command, const std::vector<const char*>& allowed) {
  for (const auto& entry : known_options) {
    const std::string name(entry.long_name);
    const bool global = name == "help" || name == "version" || name == "log-level" || name == "log-file";
    const bool listed = std::any_of(allowed.begin(), allowed.end(), [&](const char* a) { return name == a; });
    if (!global && !listed && call.given(name.c_str())) {
      throw usage_error("option --" + name + " does not apply to '" + command + "'");
    }
  }
}

void report(const std::string& reason) { std::cerr << "norvane: " << reason << '\n'; }

}  // namespace norvane_tool
