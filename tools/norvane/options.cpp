// The program's command and option tables, and everything read from them:
// the declarations, the split of positional words from options (so that
// file names keep their commas, which the parser would join on), the
// per-command check, the help pages and the completion scripts.
#include "command.hpp"

#include <algorithm>
#include <iostream>
#include <sstream>

namespace norvane_tool {
namespace {

constexpr std::string_view every_command = "*";

enum class value_kind { none, integer, text };

// One row per option; adding an option is adding a row.
struct option_row {
  std::string_view name;
  std::string_view short_name;
  std::string_view description;
  // The default in text form; empty when there is none worth showing.
  std::string_view default_value;
  // none: a flag. integer and text options take a value.
  value_kind takes;
  std::string_view value_name;
  // Space-separated command names, or "*" for every command.
  std::string_view commands;
  // Space-separated values the shell offers when completing the value.
  std::string_view choices;
};

constexpr command_row command_table[] = {
    {"info", "[--json]", "Describes the library's build, this host and the program's locations.", "", false,
     run_info},
    {"hash", "[--algo ALGO] FILE...\n[--algo ALGO] --check [--quiet | --status] LIST...",
     "Hashes files or verifies digest lists. Prints one line per FILE in the layout of sha256sum ('-' is "
     "standard input), hashing several files at once. With --check, verifies the digest lines of each LIST "
     "(sha256sum, sha1sum and xxhsum "
     "lines) and prints 'path: OK' or 'path: FAILED'.",
     "", true, run_hash},
    {"uuid", "[-n N] [--v7]",
     "Prints N identifiers, one a line: random (version 4), or ordered by creation time (version 7) with "
     "--v7.",
     "", false, run_uuid},
    {"yaml", "check FILE...\nget FILE [PATH] [--yaml]",
     "Checks YAML files and reads nodes from them. check: reports each parse error as path:line:column: "
     "message. get: prints the node at a dotted path such as jobs.build.steps.0.name (the whole document "
     "without one): a scalar's text, a map or sequence as compact JSON, or as block YAML with --yaml.",
     "check get", true, run_yaml},
    {"settings", "list | get KEY | set KEY JSON | remove KEY",
     "Reads and changes the program's settings store; values are JSON text.", "list get set remove", false,
     run_settings},
    {"completion", "bash | zsh | fish", "Prints the shell completion script of the program.", "bash zsh fish",
     false, run_completion},
    {"help", "[COMMAND]", "Describes the program, or one command.",
     "info hash uuid yaml settings completion help", false, run_help},
};

constexpr option_row option_table[] = {
    {"help", "h", "Print the help of the program or the command, and exit", "", value_kind::none, "",
     every_command, ""},
    {"version", "", "Print the program's version and exit", "", value_kind::none, "", every_command, ""},
    {"log-level", "", "Lowest level of the library's log lines", "critical", value_kind::text, "LEVEL",
     every_command, "trace debug info warning error critical off"},
    {"log-file", "", "Append log lines to this file instead of standard error", "", value_kind::text, "PATH",
     every_command, ""},
    {"json", "", "Print the description as JSON", "", value_kind::none, "", "info", ""},
    {"algo", "", "Digest algorithm", "sha256", value_kind::text, "ALGO", "hash", "sha1 sha256 xxh64 xxh128"},
    {"check", "c", "Verify the digest lines of each LIST instead of hashing", "", value_kind::none, "",
     "hash", ""},
    {"quiet", "", "With --check: no line for a file that verifies", "", value_kind::none, "", "hash", ""},
    {"status", "", "With --check: print nothing, the exit code tells", "", value_kind::none, "", "hash", ""},
    {"yaml", "", "With get: print a map or sequence as block YAML instead of JSON", "", value_kind::none, "",
     "yaml", ""},
    {"v7", "", "Time-ordered identifiers (version 7) instead of random ones (version 4)", "",
     value_kind::none, "", "uuid", ""},
    {"count", "n", "How many identifiers", "1", value_kind::integer, "N", "uuid", ""},
    {"file", "", "The store's file name", "settings.json", value_kind::text, "NAME", "settings", ""},
};

const option_row* find_option(std::string_view name, bool is_long) {
  for (const auto& option : option_table) {
    if ((is_long ? option.name : option.short_name) == name) {
      return &option;
    }
  }
  return nullptr;
}

std::vector<std::string_view> words_of(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t start = 0; start < text.size();) {
    const auto end = std::min(text.find(' ', start), text.size());
    if (end > start) {
      words.push_back(text.substr(start, end - start));
    }
    start = end + 1;
  }
  return words;
}

bool is_global(const option_row& option) { return option.commands == every_command; }

// Whether `option` may be given to `command` (global options to any).
bool applies_to(const option_row& option, std::string_view command) {
  const auto names = words_of(option.commands);
  return is_global(option) || std::find(names.begin(), names.end(), command) != names.end();
}

std::string option_label(const option_row& option) {
  std::string label =
      option.short_name.empty() ? "      --" : "  -" + std::string(option.short_name) + ", --";
  label += option.name;
  if (option.takes != value_kind::none) {
    label += " " + std::string(option.value_name);
  }
  return label;
}

std::string option_meaning(const option_row& option) {
  std::string meaning(option.description);
  if (!option.choices.empty()) {
    const auto choices = words_of(option.choices);
    meaning += ": ";
    for (std::size_t i = 0; i < choices.size(); ++i) {
      meaning += std::string(i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + std::string(choices[i]);
    }
  }
  if (!option.default_value.empty()) {
    meaning += " (default: " + std::string(option.default_value) + ")";
  }
  return meaning;
}

void write_options(std::ostream& out, const char* heading, const std::vector<const option_row*>& rows) {
  std::size_t width = 0;
  for (const auto* row : rows) {
    width = std::max(width, option_label(*row).size());
  }
  out << '\n' << heading << '\n';
  for (const auto* row : rows) {
    const auto label = option_label(*row);
    out << label << std::string(width - label.size() + 2, ' ') << option_meaning(*row) << '\n';
  }
}

std::vector<const option_row*> options_where(bool global, std::string_view command) {
  std::vector<const option_row*> rows;
  for (const auto& option : option_table) {
    if (global ? is_global(option) : !is_global(option) && applies_to(option, command)) {
      rows.push_back(&option);
    }
  }
  return rows;
}

std::string program_help() {
  std::ostringstream out;
  out << "Usage: norvane [OPTION...] COMMAND [ARGUMENT...]\n\n"
         "Inspects the host, hashes files, makes UUIDs, reads YAML and keeps settings.\n\nCommands:\n";
  for (const auto& command : command_table) {
    // The first sentence is the summary.
    const auto summary = command.description.substr(0, command.description.find(". "));
    out << "  " << command.name << std::string(12 - command.name.size(), ' ') << summary
        << (summary.ends_with('.') ? "" : ".") << '\n';
  }
  write_options(out, "Options of every command:", options_where(true, ""));
  out << "\n'norvane help COMMAND' or 'norvane COMMAND --help' describes one command.\n"
         "Exit codes: 0 success, 1 failure, 2 usage error.\n";
  return out.str();
}

std::string command_help(const command_row& command) {
  std::ostringstream out;
  const auto forms = command.synopsis;
  std::string_view lead = "Usage: ";
  for (std::size_t start = 0; start <= forms.size();) {
    const auto end = std::min(forms.find('\n', start), forms.size());
    out << lead << "norvane " << command.name << ' ' << forms.substr(start, end - start) << '\n';
    lead = "       ";
    start = end + 1;
  }
  out << '\n' << command.description << '\n';
  const auto own = options_where(false, command.name);
  if (!own.empty()) {
    write_options(out, "Options:", own);
  }
  write_options(out, "Options of every command:", options_where(true, ""));
  return out.str();
}

}  // namespace

const command_row* find_command(std::string_view name) {
  const auto found = std::find_if(std::begin(command_table), std::end(command_table),
                                  [name](const command_row& c) { return c.name == name; });
  return found == std::end(command_table) ? nullptr : found;
}

void declare_options(norvane::cmdline_parser& parser) {
  for (const auto& option : option_table) {
    switch (option.takes) {
      case value_kind::none:
        parser.add_option(option.short_name, option.name, option.description, false);
        break;
      case value_kind::integer:
        parser.add_option(option.short_name, option.name, option.description,
                          std::stoi(std::string(option.default_value)));
        break;
      case value_kind::text:
        parser.add_option(option.short_name, option.name, option.description, option.default_value);
        break;
    }
  }
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
    const auto* option = find_option(name, is_long);
    if (option == nullptr) {
      throw usage_error("unknown option '" + std::string(arg) + "'");
    }
    const bool value_attached = is_long ? equals != std::string_view::npos : body.size() > 1;
    if (option->takes != value_kind::none && !value_attached) {
      if (i + 1 == arguments.size()) {
        throw usage_error("option '" + std::string(arg) + "' needs a value");
      }
      ++i;
    }
  }
  return words;
}

void check_options(const invocation& call, std::string_view command) {
  for (const auto& option : option_table) {
    if (!applies_to(option, command) && call.given(option.name)) {
      throw usage_error("option --" + std::string(option.name) + " does not apply to '" +
                        std::string(command) + "'");
    }
  }
}

std::string help_text(std::string_view command) {
  if (command.empty()) {
    return program_help();
  }
  const auto* row = find_command(command);
  if (row == nullptr) {
    throw usage_error("unknown command '" + std::string(command) + "'");
  }
  return command_help(*row);
}

std::string completion_text(std::string_view shell) {
  const std::pair<std::string_view, norvane::cmdline_parser::shell> shells[] = {
      {"bash", norvane::cmdline_parser::shell::bash},
      {"zsh", norvane::cmdline_parser::shell::zsh},
      {"fish", norvane::cmdline_parser::shell::fish},
  };
  const auto* chosen =
      std::find_if(std::begin(shells), std::end(shells), [shell](const auto& s) { return s.first == shell; });
  if (chosen == std::end(shells)) {
    throw usage_error("completion needs one shell: bash, zsh or fish");
  }
  norvane::cmdline_parser parser("norvane", "");
  declare_options(parser);
  for (const auto& option : option_table) {
    if (!option.choices.empty()) {
      const auto choices = words_of(option.choices);
      parser.set_choices(option.name, {choices.begin(), choices.end()});
    }
  }
  for (const auto& command : command_table) {
    std::vector<std::string> own;
    for (const auto* option : options_where(false, command.name)) {
      own.emplace_back(option->name);
    }
    const bool has_actions = !command.actions.empty();
    parser.add_command(command.name, command.description, own, command.takes_files && !has_actions);
    for (const auto action : words_of(command.actions)) {
      parser.add_command(std::string(command.name) + " " + std::string(action), "", {}, command.takes_files);
    }
  }
  return parser.completion_script(chosen->second);
}

int run_help(const invocation& call) {
  if (call.words.size() > 1) {
    throw usage_error("help takes at most one COMMAND");
  }
  std::cout << help_text(call.words.empty() ? std::string() : call.words.front());
  return exit_ok;
}

int run_completion(const invocation& call) {
  if (call.words.size() != 1) {
    throw usage_error("completion needs one shell: bash, zsh or fish");
  }
  std::cout << completion_text(call.words.front());
  return exit_ok;
}

void report(const std::string& reason) { std::cerr << "norvane: " << reason << '\n'; }

}  // namespace norvane_tool
