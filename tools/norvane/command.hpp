// What every subcommand of the norvane program shares: the parsed command
// line and the exit codes.
#pragma once

#include <norvane/cmdline.hpp>

#include <stdexcept>
#include <string>
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

  bool given(const char* name) const { return options.count(name) > 0; }
  std::string value(const char* name) const { return options.value(name); }
};

// Declares every option the program knows, global and per command.
void declare_options(norvane::cmdline_parser& parser);
// The words of `arguments` that are not options or option values, in
// order. Throws usage_error for an option the program does not declare:
// the parser itself lets unknown options pass silently.
std::vector<std::string> positional_words(const std::vector<std::string>& arguments);
// Throws usage_error when an option outside `allowed` was given.
void allow_only(const invocation& call, const std::string& command, const std::vector<const char*>& allowed);

// Writes "norvane: <reason>" on standard error.
void report(const std::string& reason);

int run_info(const invocation& call);
int run_hash(const invocation& call);
int run_uuid(const invocation& call);
int run_yaml(const invocation& call);
int run_settings(const invocation& call);

}  // namespace norvane_tool
