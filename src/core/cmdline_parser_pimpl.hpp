// The parser's private record, shared by the parsing code and the writer of
// completion scripts.
#pragma once

#include <norvane/cmdline.hpp>

#include <cxxopts.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace norvane {

namespace details {

enum option_kind : std::int32_t { flag = 1, integer = 2, real = 3, text = 4 };

struct declared_option {
  std::string name;
  std::int32_t kind;
  std::string short_name;
  std::string description;
  std::vector<std::string> choices;
};

struct declared_command {
  std::vector<std::string> path;
  std::string description;
  std::vector<std::string> option_names;
  bool takes_files;
};

struct parsed_value {
  std::uint64_t count;
  std::string value;
};

// Lets count() and value() look names up without building a std::string.
struct name_hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const noexcept { return std::hash<std::string_view>{}(name); }
};

}  // namespace details

class cmdline_parser::pimpl {
public:
  pimpl(std::string program, std::string description) : options(std::move(program), std::move(description)) {
    options.allow_unrecognised_options();
  }

  void declare(std::string_view short_name, std::string_view long_name, std::string_view description,
               std::int32_t kind, std::shared_ptr<cxxopts::Value> value) {
    declared.push_back({std::string(long_name), kind, std::string(short_name), std::string(description), {}});
    options.add_option("", std::string(short_name), std::string(long_name), std::string(description), value,
                       "");
  }

  void convert(const cxxopts::ParseResult& result);

  cxxopts::Options options;
  std::string positional_name;
  std::vector<details::declared_option> declared;
  std::unordered_map<std::string, details::parsed_value, details::name_hash, std::equal_to<>> parsed;
  // Only the completion scripts read these.
  std::vector<details::declared_command> commands;
};

}  // namespace norvane
