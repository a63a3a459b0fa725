// Byte offsets and line/column positions in a YAML text, for faults that
// libfyaml does not place itself or places past the end.
#pragma once

#include <norvane/yaml.hpp>

#include <cstddef>
#include <string_view>

namespace norvane::yaml::details {

// The line and column (from 1, columns in characters) of a byte offset.
location locate(std::string_view source_name, std::string_view text, std::size_t offset);

// The byte offset of a line and column counted from 1; the text's size
// when the position lies past its end.
std::size_t offset_of(std::string_view text, std::size_t line, std::size_t col);

// `loc`, or the text's last character when `loc` lies past the end.
location within(std::string_view source_name, std::string_view text, const location& loc);

}  // namespace norvane::yaml::details
