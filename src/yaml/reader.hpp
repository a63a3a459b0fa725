// Builds a yaml::tree from YAML text by walking libfyaml's event stream.
#pragma once

#include <norvane/yaml.hpp>

#include <cstddef>
#include <string_view>

namespace norvane::yaml::details {

// Node ids and scalar lengths are 32 bits in the tree.
inline constexpr std::size_t max_document_bytes = 0xFFFFFFFFu;

// Replaces the content of `t` with the document(s) in `text`, copying the
// text into the tree's arena first. On a syntax error (or a limit above)
// the error function of `cb` is called with the message and its position
// in `source_name`; when it returns, so does this, with false. With
// `merge_keys`, "<<" entries merge the maps they name (see read_options).
bool read_into(tree& t, std::string_view source_name, std::string_view text, const callbacks& cb,
               bool merge_keys);

}  // namespace norvane::yaml::details
