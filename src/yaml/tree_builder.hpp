// The event-to-tree builder: turns libfyaml's event stream into the nodes
// of a tree, with an explicit stack of open containers instead of
// recursion, resolving aliases and merge keys as it goes.
#pragma once

#include "yaml/tree_record.hpp"

#include <libfyaml.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace norvane::yaml::details {

// Nodes that aliases may copy in one read: an alias copies its anchored
// subtree, so nested aliases grow exponentially ("billion laughs") and need a
// fixed ceiling; 1M nodes is about 48 MiB of tree.
inline constexpr std::size_t max_alias_nodes = std::size_t{1} << 20;

// Deeper documents are refused: no legitimate configuration nests this far,
// and the bound keeps the builder's own stack of open containers small.
inline constexpr std::size_t max_nesting_depth = 1000;

// A fault found by the builder; libfyaml's own come from its diagnostics.
struct build_error {
  std::string message;
  fy_mark mark{0, 0, 0};
};

class tree_builder {
public:
  // `text` is the parsed text, already in the tree's arena: scalars that
  // are their source bytes are viewed in place.
  tree_builder(tree::record& rec, std::string_view text, bool merge_keys);
  ~tree_builder();
  tree_builder(const tree_builder&) = delete;
  tree_builder& operator=(const tree_builder&) = delete;

  // False with `error` set when the event breaks one of the reader's rules.
  bool on_event(fy_event* e, build_error& error);
  // Where the innermost flow sequence or map still open was opened; null
  // when none is open. A missing closing bracket is best reported there.
  const fy_mark* open_flow(bool& is_map) const noexcept;

private:
  class impl;
  std::unique_ptr<impl> impl_;
};

}  // namespace norvane::yaml::details
