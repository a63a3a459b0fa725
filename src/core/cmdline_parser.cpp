// The command-line parser over cxxopts: declarations go straight to
// cxxopts, results are converted to text once, right after parsing.
#include "core/cmdline_parser_pimpl.hpp"

#include <norvane/log.hpp>

#include <algorithm>
#include <exception>

namespace norvane {

namespace {

// std::to_string's six decimals minus the trailing zeros; the point stays,
// so 2.0 reads "2." (callers may rely on telling reals from integers).
std::string real_text(double value) {
  auto text = std::to_string(value);
  while (!text.empty() && text.back() == '0') {
    text.pop_back();
  }
  return text;
}

std::string join(const std::vector<std::string>& values) {
  std::string joined;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i != 0) {
      joined += ',';
    }
    joined += values[i];
  }
  return joined;
}

std::string text_of(const cxxopts::OptionValue& value, std::int32_t kind) {
  switch (kind) {
    case details::flag:
      return value.as<bool>() ? "true" : "false";
    case details::integer:
      return std::to_string(value.as<int>());
    case details::real:
      return real_text(value.as<double>());
    case details::text:
      return value.as<std::string>();
    default:
      return {};
  }
}

}  // namespace

void cmdline_parser::pimpl::convert(const cxxopts::ParseResult& result) {
  for (const auto& option : declared) {
    // One lookup serves both the count and the value.
    const auto& value = result[option.name];
    parsed.try_emplace(option.name, details::parsed_value{value.count(), text_of(value, option.kind)});
  }
  if (!positional_name.empty()) {
    const auto count = result.count(positional_name);
    if (count != 0) {
      parsed.try_emplace(
          positional_name,
          details::parsed_value{count, join(result[positional_name].as<std::vector<std::string>>())});
    }
  }
}

cmdline_parser::cmdline_parser(std::string program, std::string description)
    : impl_(new pimpl(std::move(program), std::move(description))) {}

cmdline_parser::~cmdline_parser() = default;

void cmdline_parser::add_option(std::string_view short_name, std::string_view long_name,
                                std::string_view description, bool default_value) noexcept {
  impl_->declare(
      short_name, long_name, description, details::flag,
      cxxopts::value<bool>()->default_value(default_value ? "true" : "false")->implicit_value("true"));
}

void cmdline_parser::add_option(std::string_view short_name, std::string_view long_name,
                                std::string_view description, int default_value) noexcept {
  impl_->declare(short_name, long_name, description, details::integer,
                 cxxopts::value<int>()->default_value(std::to_string(default_value)));
}

void cmdline_parser::add_option(std::string_view short_name, std::string_view long_name,
                                std::string_view description, double default_value) noexcept {
  impl_->declare(short_name, long_name, description, details::real,
                 cxxopts::value<double>()->default_value(std::to_string(default_value)));
}

void cmdline_parser::add_option(std::string_view short_name, std::string_view long_name,
                                std::string_view description, std::string_view default_value) noexcept {
  impl_->declare(short_name, long_name, description, details::text,
                 cxxopts::value<std::string>()->default_value(std::string(default_value)));
}

void cmdline_parser::add_option(std::string_view name) noexcept {
  const std::string positional(name);
  impl_->options.add_option("", "", positional, "", cxxopts::value<std::vector<std::string>>(), "");
  impl_->positional_name = positional;
  impl_->options.parse_positional({positional});
}

bool cmdline_parser::parse(const std::vector<std::string>& arguments) {
  impl_->parsed.clear();
  try {
    // cxxopts starts reading after argv[0] and runs past the end of an
    // empty argv, so an empty vector stands for a program without arguments.
    std::vector<const char*> argv;
    argv.reserve(arguments.size() + 2);
    for (const auto& argument : arguments) {
      argv.push_back(argument.c_str());
    }
    if (argv.empty()) {
      argv.push_back("");
    }
    const auto argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    const auto result = impl_->options.parse(argc, argv.data());
    impl_->convert(result);
    return true;
  } catch (const std::exception& e) {
    get_norvane_logger()->log(log_level::error, "{}", e.what());
  } catch (...) {
    get_norvane_logger()->log(log_level::error, "{}",
                              "Unknown exception when parsing command line arguments.");
  }
  return false;
}

std::size_t cmdline_parser::count(std::string_view name) const {
  const auto it = impl_->parsed.find(name);
  return it == impl_->parsed.end() ? 0 : it->second.count;
}

std::string cmdline_parser::value(std::string_view name) const {
  const auto it = impl_->parsed.find(name);
  return it == impl_->parsed.end() ? std::string() : it->second.value;
}

std::string cmdline_parser::help() const { return impl_->options.help({}, true); }

void cmdline_parser::set_choices(std::string_view long_name, std::vector<std::string> values) {
  const auto found = std::find_if(impl_->declared.begin(), impl_->declared.end(),
                                  [long_name](const auto& option) { return option.name == long_name; });
  if (found == impl_->declared.end()) {
    get_norvane_logger()->log(log_level::error, "Choices for the undeclared option '{}'.", long_name);
    return;
  }
  found->choices = std::move(values);
}

void cmdline_parser::add_command(std::string_view path, std::string_view description,
                                 std::vector<std::string> option_names, bool takes_files) {
  details::declared_command command{{}, std::string(description), std::move(option_names), takes_files};
  for (std::size_t start = 0; start < path.size();) {
    const auto end = std::min(path.find(' ', start), path.size());
    if (end > start) {
      command.path.emplace_back(path.substr(start, end - start));
    }
    start = end + 1;
  }
  impl_->commands.push_back(std::move(command));
}

}  // namespace norvane
