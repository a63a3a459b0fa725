// A typed command-line parser: declare options of four kinds and at most one
// positional parameter, parse once, then read every declared option back as
// a count and a text value.
#pragma once

#include <norvane/export.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace norvane {

class NORVANE_API cmdline_parser {
public:
  class pimpl;

  // Unknown options on the command line are ignored, not errors.
  cmdline_parser(std::string program, std::string description);
  ~cmdline_parser();
  cmdline_parser(const cmdline_parser&) = delete;
  cmdline_parser& operator=(const cmdline_parser&) = delete;

  // Declares an option under a short name (may be empty) and a long name,
  // which is the name count() and value() take. Declaring the same name
  // twice, or a malformed name, is a programming error and ends the process.
  //
  // A flag: given bare it means true.
  void add_option(std::string_view short_name, std::string_view long_name, std::string_view description,
                  bool default_value) noexcept;
  void add_option(std::string_view short_name, std::string_view long_name, std::string_view description,
                  int default_value) noexcept;
  void add_option(std::string_view short_name, std::string_view long_name, std::string_view description,
                  double default_value) noexcept;
  void add_option(std::string_view short_name, std::string_view long_name, std::string_view description,
                  std::string_view default_value) noexcept;
  // Without this overload a string literal default would silently pick the
  // flag overload (pointer to bool beats the conversion to string_view).
  void add_option(std::string_view short_name, std::string_view long_name, std::string_view description,
                  const char* default_value) noexcept {
    add_option(short_name, long_name, description, std::string_view(default_value));
  }
  // The positional parameter: every argument that is not an option. A second
  // declaration replaces the name the values are filed under.
  void add_option(std::string_view name) noexcept;

  // `arguments` starts with the program name, as argv does. False, with one
  // error logged through the library logger, on a malformed command line (a
  // value of the wrong type, a missing value). Reals are read as a stream
  // reads them, so "1.5x" is 1.5. An empty vector parses as no arguments.
  bool parse(const std::vector<std::string>& arguments);

  // How often the option was given; 0 for a name not declared or not parsed.
  std::size_t count(std::string_view name) const;
  // The value as text: "true"/"false" for flags, decimal for integers,
  // reals with trailing zeros dropped but the point kept ("2." for 2.0, "1.5"),
  // positional values joined with ",". Empty for a name without an entry.
  std::string value(std::string_view name) const;

  // The usage line followed by every declared option.
  std::string help() const;

  // Shell completion. The script offers the declared long and short names
  // after a "-", the choices of an option when its value is completed (file
  // names for a text option without choices, nothing for a number), and
  // file names where the positional parameter goes.
  enum class shell { bash, zsh, fish };

  // The values offered for option `long_name`, such as algorithm names.
  void set_choices(std::string_view long_name, std::vector<std::string> values);
  // A command word of a program with commands ("hash"), or a word under one
  // ("yaml check"): completion offers it where it may stand and, after it,
  // the options named in `option_names` (long names) besides the options
  // no command names. File names follow a command only when `takes_files`
  // and it has no words under it.
  void add_command(std::string_view path, std::string_view description, std::vector<std::string> option_names,
                   bool takes_files);
  // A script that, loaded by `target`, completes the program's command
  // lines: bash `source`s it, zsh needs compinit first, fish reads it from
  // its completions directory.
  std::string completion_script(shell target) const;

private:
  std::unique_ptr<pimpl> impl_;
};

}  // namespace norvane
