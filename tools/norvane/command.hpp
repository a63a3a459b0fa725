// What every subcommand of the norvane program shares: the command table,
// the parsed command line and the exit codes.
#pragma once

#include <norvane/cmdline.hpp>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace norvane_tool {

inline constexpr int exit_ok = 0;
inline constexpr int exit_failure = 1;
inline constexpr int exit_usage = 2;

// Thrown for a command line the program cannot act on; main turns it into
// one line on standard error and exit code 2.
struct usage_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct invocation {
  const norvane::cmdline_parser& options;
  // The words that are not options, the subcommand's own name removed.
  std::vector<std::string> words;

  bool given(std::string_view name) const { return options.count(name) > 0; }
  std::string value(std::string_view name) const { return options.value(name); }
};

struct command_row {
  std::string_view name;
  // What follows the name in the usage lines, one line per form.
  std::string_view synopsis;
  std::string_view description;
  // Words that may follow the name ("check get" for yaml), space-separated.
  std::string_view actions;
  // File names follow the name, or the action when there are actions.
  bool takes_files;
  int (*run)(const invocation&);
};

const command_row* find_command(std::string_view name);

// Declares every option of the table.
void declare_options(norvane::cmdline_parser& parser);
// The words of `arguments` that are not options or option values, in
// order. Throws usage_error for an option the program does not declare:
// the parser itself lets unknown options pass silently.
std::vector<std::string> positional_words(const std::vector<std::string>& arguments);
// Throws usage_error when an option given does not apply to `command`.
void check_options(const invocation& call, std::string_view command);

// The program's page (`command` empty) or one command's page.
std::string help_text(std::string_view command);
// The shell completion script that the program's table describes.
std::string completion_text(std::string_view shell);

// Writes "norvane: <reason>" on standard error.
void report(const std::string& reason);

int run_info(const invocation& call);
int run_hash(const invocation& call);
int run_uuid(const invocation& call);
int run_yaml(const invocation& call);
int run_settings(const invocation& call);
int run_completion(const invocation& call);
int run_help(const invocation& call);

}  // namespace norvane_tool
