// Shell completion scripts written from the parser's declarations, so that
// what the shell offers cannot drift from what the program accepts. The
// three scripts share one walk: find the command path the words so far
// name, then offer an option's value, the options of that path, or what
// follows the path (command words or file names).
#include "core/cmdline_parser_pimpl.hpp"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

namespace norvane {
namespace {

using details::declared_command;
using details::declared_option;

enum class value_completion { none, files, choices };

value_completion value_of(const declared_option& option) {
  if (!option.choices.empty()) {
    return value_completion::choices;
  }
  return option.kind == details::text ? value_completion::files : value_completion::none;
}

std::string join(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const auto& word : words) {
    text += (text.empty() ? "" : separator) + word;
  }
  return text;
}

// Single quotes for bash and zsh: nothing inside them is special but the
// quote itself.
std::string sh_quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

// fish's single quotes take \' and \\ as escapes.
std::string fish_quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') {
      quoted += '\\';
    }
    quoted += c;
  }
  return quoted + "'";
}

// The first sentence, without its full stop: fish shows it beside the word.
std::string summary(const std::string& description) {
  auto first = description.substr(0, description.find(". "));
  if (first.ends_with('.')) {
    first.pop_back();
  }
  return first;
}

// The declarations seen as a tree of command paths ("" is the program).
class completion_model {
public:
  explicit completion_model(const cmdline_parser::pimpl& impl) : impl_(impl) {
    paths_.emplace_back();
    for (const auto& command : impl.commands) {
      paths_.push_back(join(command.path, " "));
    }
  }

  const std::string& program() const { return impl_.options.program(); }
  // A shell function name made of the program name.
  std::string function() const {
    std::string name = "_";
    for (const char c : program()) {
      name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    }
    return name;
  }
  const std::vector<std::string>& paths() const { return paths_; }
  const std::vector<declared_option>& options() const { return impl_.declared; }

  std::vector<std::string> command_paths() const { return {paths_.begin() + 1, paths_.end()}; }

  // The words that may follow `path`, with their descriptions.
  std::vector<std::pair<std::string, std::string>> children(const std::string& path) const {
    std::vector<std::pair<std::string, std::string>> words;
    for (const auto& command : impl_.commands) {
      const auto parent = join({command.path.begin(), command.path.end() - 1}, " ");
      if (parent == path) {
        words.emplace_back(command.path.back(), command.description);
      }
    }
    return words;
  }

  std::vector<std::string> child_words(const std::string& path) const {
    std::vector<std::string> words;
    for (const auto& [word, description] : children(path)) {
      words.push_back(word);
    }
    return words;
  }

  bool takes_files(const std::string& path) const {
    if (!children(path).empty()) {
      return false;
    }
    if (path.empty()) {
      return !impl_.positional_name.empty();
    }
    const auto* command = find(path);
    return command != nullptr && command->takes_files;
  }

  // The options of `path`: those no command names, and those named by the
  // path or a command above it.
  std::vector<const declared_option*> options_at(const std::string& path) const {
    std::vector<const declared_option*> found;
    for (const auto& option : impl_.declared) {
      const auto naming = commands_naming(option);
      const bool here = std::any_of(naming.begin(), naming.end(), [&path](const std::string& at) {
        return path == at || path.starts_with(at + " ");
      });
      if (naming.empty() || here) {
        found.push_back(&option);
      }
    }
    return found;
  }

  // The paths of the commands whose own options include `option`.
  std::vector<std::string> commands_naming(const declared_option& option) const {
    std::vector<std::string> paths;
    for (const auto& command : impl_.commands) {
      if (std::find(command.option_names.begin(), command.option_names.end(), option.name) !=
          command.option_names.end()) {
        paths.push_back(join(command.path, " "));
      }
    }
    return paths;
  }

  // "--name" and "-s" of each option.
  static std::vector<std::string> spellings(const declared_option& option) {
    std::vector<std::string> names{"--" + option.name};
    if (!option.short_name.empty()) {
      names.push_back("-" + option.short_name);
    }
    return names;
  }

  std::vector<std::string> spellings_at(const std::string& path) const {
    std::vector<std::string> names;
    for (const auto* option : options_at(path)) {
      const auto more = spellings(*option);
      names.insert(names.end(), more.begin(), more.end());
    }
    return names;
  }

  std::vector<std::string> value_options() const {
    std::vector<std::string> names;
    for (const auto& option : impl_.declared) {
      if (option.kind != details::flag) {
        const auto more = spellings(option);
        names.insert(names.end(), more.begin(), more.end());
      }
    }
    return names;
  }

private:
  const declared_command* find(const std::string& path) const {
    for (const auto& command : impl_.commands) {
      if (join(command.path, " ") == path) {
        return &command;
      }
    }
    return nullptr;
  }

  const cmdline_parser::pimpl& impl_;
  std::vector<std::string> paths_;
};

std::string quoted_words(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) {
    text += (text.empty() ? "" : " ") + sh_quoted(word);
  }
  return text;
}

std::string case_patterns(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) {
    text += (text.empty() ? "" : "|") + sh_quoted(word);
  }
  return text;
}

// The loop bash and zsh share: the command path the words before the cursor
// name. `first` is the index of the first argument, `word` how a word is read.
void write_path_walk(std::ostream& out, const completion_model& model, const char* first, const char* end,
                     const char* word) {
  out << "  local cmd_path= word i\n"
      << "  for ((i = " << first << "; i < " << end << "; i++)); do\n"
      << "    word=" << word << "\n"
      << "    case $word in\n";
  if (!model.value_options().empty()) {
    // bash splits --name=value into three words; zsh never sees a lone "=".
    out << "      " << case_patterns(model.value_options()) << ") ((i++)); [[ " << word
        << " == = ]] && ((i++)) ;;\n";
  }
  out << "      -*) ;;\n";
  if (!model.command_paths().empty()) {
    out << "      *) case \"$cmd_path${cmd_path:+ }$word\" in\n"
        << "           " << case_patterns(model.command_paths())
        << ") cmd_path=\"$cmd_path${cmd_path:+ }$word\" ;;\n"
        << "         esac ;;\n";
  }
  out << "    esac\n"
      << "  done\n";
}

// How bash and zsh offer a list of words, file names, or nothing.
struct shell_actions {
  std::string (*offer)(const std::vector<std::string>& words);
  std::string_view files;
  std::string_view nothing;
};

const shell_actions bash_actions{
    [](const std::vector<std::string>& words) {
      return "COMPREPLY=($(compgen -W " + sh_quoted(join(words, " ")) + " -- \"$cur\"))";
    },
    "\n      compopt -o filenames 2>/dev/null\n      COMPREPLY=($(compgen -f -- \"$cur\"))", "COMPREPLY=()"};

const shell_actions zsh_actions{
    [](const std::vector<std::string>& words) { return "compadd -- " + quoted_words(words); }, " _files",
    "return 1"};

// The end of the bash and zsh functions: a word starting with '-' is one
// of the options of the command path typed so far, any other word one of
// its subcommands or, where it takes files, a file name.
void write_path_cases(std::ostringstream& out, const completion_model& model, const shell_actions& actions) {
  out << "  if [[ $cur == -* ]]; then\n"
      << "    case $cmd_path in\n";
  for (const auto& path : model.paths()) {
    out << "      " << sh_quoted(path) << ") " << actions.offer(model.spellings_at(path)) << " ;;\n";
  }
  out << "    esac\n"
      << "    return\n"
      << "  fi\n"
      << "  case $cmd_path in\n";
  for (const auto& path : model.paths()) {
    const auto words = model.child_words(path);
    if (!words.empty()) {
      out << "    " << sh_quoted(path) << ") " << actions.offer(words) << " ;;\n";
    } else if (model.takes_files(path)) {
      out << "    " << sh_quoted(path) << ")" << actions.files << " ;;\n";
    }
  }
  out << "    *) " << actions.nothing << " ;;\n"
      << "  esac\n"
      << "}\n";
}

std::string bash_script(const completion_model& model) {
  std::ostringstream out;
  const auto fn = model.function();
  out << "# bash completion for " << model.program() << "; load it with `source`.\n"
      << fn << "() {\n"
      << "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
      << "  # --name=value arrives as three words: --name, = and the value.\n"
      << "  if [[ $cur == = ]]; then cur=; elif [[ $prev == = ]]; then prev=${COMP_WORDS[COMP_CWORD-2]}; "
         "fi\n";
  write_path_walk(out, model, "1", "COMP_CWORD", "${COMP_WORDS[i]}");
  out << "  case $prev in\n";
  for (const auto& option : model.options()) {
    const auto how = value_of(option);
    if (option.kind == details::flag) {
      continue;
    }
    out << "    " << case_patterns(completion_model::spellings(option)) << ")\n";
    if (how == value_completion::choices) {
      out << "      COMPREPLY=($(compgen -W " << sh_quoted(join(option.choices, " ")) << " -- \"$cur\"))\n";
    } else if (how == value_completion::files) {
      out << "      compopt -o filenames 2>/dev/null\n"
          << "      COMPREPLY=($(compgen -f -- \"$cur\"))\n";
    } else {
      out << "      COMPREPLY=()\n";
    }
    out << "      return ;;\n";
  }
  out << "  esac\n";
  write_path_cases(out, model, bash_actions);
  out << "complete -F " << fn << ' ' << model.program() << '\n';
  return out.str();
}

std::string zsh_script(const completion_model& model) {
  std::ostringstream out;
  const auto fn = model.function();
  out << "#compdef " << model.program() << "\n"
      << "# zsh completion for " << model.program() << ": put it in a directory of $fpath as " << fn
      << ", or `source` it after compinit.\n"
      << fn << "() {\n"
      << "  local cur=${words[CURRENT]} prev=${words[CURRENT-1]}\n";
  write_path_walk(out, model, "2", "CURRENT", "${words[i]}");
  out << "  case $prev in\n";
  for (const auto& option : model.options()) {
    if (option.kind == details::flag) {
      continue;
    }
    const auto how = value_of(option);
    out << "    " << case_patterns(completion_model::spellings(option)) << ") ";
    if (how == value_completion::choices) {
      out << "compadd -- " << quoted_words(option.choices) << "; return ;;\n";
    } else if (how == value_completion::files) {
      out << "_files; return ;;\n";
    } else {
      out << "return 1 ;;\n";
    }
  }
  out << "  esac\n";
  write_path_cases(out, model, zsh_actions);
  out << "if [[ $zsh_eval_context[-1] == loadautofunc ]]; then\n"
      << "  " << fn << " \"$@\"\n"
      << "else\n"
      << "  compdef " << fn << ' ' << model.program() << "\n"
      << "fi\n";
  return out.str();
}

std::string fish_script(const completion_model& model) {
  std::ostringstream out;
  const auto prog = model.program();
  const auto base = "_" + model.function();
  const auto fn = base + "_path";
  const auto at = base + "_at";
  const auto under = base + "_under";
  out << "# fish completion for " << prog << ": save it as ~/.config/fish/completions/" << prog << ".fish.\n"
      << "function " << fn << "\n"
      << "    set -l cmd_path\n"
      << "    set -l skip 0\n"
      << "    for word in (commandline -opc)[2..-1]\n"
      << "        if test $skip = 1\n"
      << "            set skip 0\n"
      << "            continue\n"
      << "        end\n"
      << "        switch $word\n";
  if (!model.value_options().empty()) {
    out << "            case " << join(model.value_options(), " ") << "\n"
        << "                set skip 1\n";
  }
  out << "            case '-*'\n"
      << "            case '*'\n"
      << "                if contains -- \"$cmd_path $word\" " <<
      [&] {
        std::string list;
        for (const auto& path : model.command_paths()) {
          list += (list.empty() ? "" : " ") + fish_quoted(" " + path);
        }
        return list.empty() ? std::string("''") : list;
      }()
      << "\n"
      << "                    set cmd_path \"$cmd_path $word\"\n"
      << "                end\n"
      << "        end\n"
      << "    end\n"
      << "    string trim -- \"$cmd_path\"\n"
      << "end\n"
      << "function " << at << "\n"
      << "    set -l here (" << fn << ")\n"
      << "    test \"$here\" = \"$argv\"\n"
      << "end\n"
      << "function " << under << "\n"
      << "    set -l here (" << fn << ")\n"
      << "    test \"$here\" = \"$argv\"; or string match -q -- \"$argv *\" \"$here\"\n"
      << "end\n"
      << "complete -c " << prog << " -f\n";
  for (const auto& path : model.paths()) {
    const auto condition = " -n " + fish_quoted(at + " " + path);
    for (const auto& [word, description] : model.children(path)) {
      out << "complete -c " << prog << condition << " -a " << fish_quoted(word);
      if (!description.empty()) {
        out << " -d " << fish_quoted(summary(description));
      }
      out << '\n';
    }
    if (model.takes_files(path)) {
      out << "complete -c " << prog << condition << " -F\n";
    }
  }
  for (const auto& option : model.options()) {
    std::string condition;
    for (const auto& command : model.commands_naming(option)) {
      condition += (condition.empty() ? "" : "; or ") + under + " " + command;
    }
    if (!condition.empty()) {
      condition = " -n " + fish_quoted(condition);
    }
    out << "complete -c " << prog << condition;
    if (!option.short_name.empty()) {
      out << " -s " << option.short_name;
    }
    out << " -l " << option.name;
    switch (value_of(option)) {
      case value_completion::choices:
        out << " -x -a " << fish_quoted(join(option.choices, " "));
        break;
      case value_completion::files:
        out << " -r -F";
        break;
      case value_completion::none:
        out << (option.kind == details::flag ? "" : " -x");
        break;
    }
    if (!option.description.empty()) {
      out << " -d " << fish_quoted(option.description);
    }
    out << '\n';
  }
  return out.str();
}

}  // namespace

std::string cmdline_parser::completion_script(shell target) const {
  const completion_model model(*impl_);
  switch (target) {
    case shell::bash:
      return bash_script(model);
    case shell::zsh:
      return zsh_script(model);
    case shell::fish:
      return fish_script(model);
  }
  return {};
}

}  // namespace norvane
