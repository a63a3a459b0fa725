// Builds a yaml::tree from YAML text by walking libfyaml's event stream.
#pragma once

#include <norvane/yaml.hpp>

#include <cstddef>
#include <string_view>

namespace norvane::yaml::details {

// Deeper documents are refused: no legitimate configuration nests this far,
// and the bound keeps the reader's own stack of open containers small.
inline constexpr std::size_t max_nesting_depth = 1000;

// Nodes that aliases may copy in one read: an alias copies its anchored
// subtree, so nested aliases grow exponentially ("billion laughs") and need a
// fixed ceiling; 1M nodes is about 48 MiB of tree.
inline constexpr std::size_t max_alias_nodes = std::size_t{1} << 20;

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
