// The YAML tree under the handles of <norvane/yaml.hpp>: a pool of nodes
// and the references into it that the handle's constructor takes. Included
// by yaml.hpp; applications walk documents through handles instead.
#pragma once

#include <norvane/export.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace norvane::yaml {

struct callbacks;

namespace details {
// Reaches the private records of the tree and the handle from the
// library's own sources (defined in src/yaml/).
struct access;
}  // namespace details

// "No node": the id of a missing parent, child or sibling, and an unset seed index.
inline constexpr std::size_t npos = static_cast<std::size_t>(-1);

// Node type bits. A map entry is one node carrying both KEY and VAL (or KEY
// and MAP/SEQ); several documents hang as DOC children of a STREAM root.
using node_type = std::uint32_t;
inline constexpr node_type NOTYPE = 0;
inline constexpr node_type KEY = 1;
inline constexpr node_type VAL = 2;
inline constexpr node_type MAP = 4;
inline constexpr node_type SEQ = 8;
inline constexpr node_type DOC = 16;
inline constexpr node_type STREAM = 32 | SEQ;
inline constexpr node_type KEYQUO = 0x0400;  // the key was quoted or a block scalar in the source
inline constexpr node_type VALQUO = 0x0800;  // the value was quoted or a block scalar in the source
inline constexpr node_type KEYNIL = 0x1000;
inline constexpr node_type VALNIL = 0x2000;  // the value is an explicit null: empty, ~, null, Null, NULL

// A YAML document as a pool of nodes addressed by id (the root is id 0) and
// an arena that owns every scalar's text. Scalars are views: a null data
// pointer means the scalar is absent (a key-less node, a null value).
// Copying a tree copies its nodes and text.
class NORVANE_API tree {
public:
  struct record;

  // An empty tree holding only its root (no type bits). Errors raised on
  // this tree later go through the callbacks installed now.
  tree();
  explicit tree(const callbacks& cb);
  tree(const tree& other);
  tree& operator=(const tree& other);
  tree(tree&& other) noexcept;
  tree& operator=(tree&& other) noexcept;
  ~tree();

  // Back to a lone root without type bits; the arena is released.
  void clear();

  std::size_t root_id() const noexcept { return 0; }
  std::size_t size() const noexcept;        // number of nodes, root included
  std::size_t arena_size() const noexcept;  // bytes of text owned
  const callbacks& get_callbacks() const noexcept;

  node_type type(std::size_t id) const noexcept;
  bool has_any(std::size_t id, node_type bits) const noexcept { return (type(id) & bits) != 0; }
  std::string_view key(std::size_t id) const noexcept;
  std::string_view val(std::size_t id) const noexcept;

  std::size_t parent(std::size_t id) const noexcept;
  std::size_t first_child(std::size_t id) const noexcept;
  std::size_t last_child(std::size_t id) const noexcept;
  std::size_t next_sibling(std::size_t id) const noexcept;
  std::size_t num_children(std::size_t id) const noexcept;
  // The child at `pos`, or npos; walks the siblings.
  std::size_t child(std::size_t id, std::size_t pos) const noexcept;
  // The first child whose key equals `key`, or npos.
  std::size_t find_child(std::size_t id, std::string_view key) const noexcept;

  // Appends a new child without type bits and returns its id. Ids stay
  // valid; references into the pool do not.
  std::size_t append_child(std::size_t parent);
  // Scalars are stored as given: pass views into the arena (or text that
  // outlives the tree). A null data pointer stores an absent scalar.
  void set_key(std::size_t id, std::string_view key);
  void set_val(std::size_t id, std::string_view val);
  void add_flags(std::size_t id, node_type bits) noexcept;
  void set_flags(std::size_t id, node_type bits) noexcept;

  // Copies `text` into the arena; the view stays valid for the tree's life.
  std::string_view copy_to_arena(std::string_view text);
  // Reserves `length` bytes of the arena for the caller to fill.
  char* alloc_arena(std::size_t length);

private:
  friend struct details::access;
  std::unique_ptr<record> impl_;
};

// A reference to a node of a tree, or to a child that does not exist yet
// (a "seed": a key or a child index under the node `id`). Writing through
// a seed creates that child.
class NORVANE_API node_ref {
public:
  node_ref() = default;
  node_ref(tree* t, std::size_t id) noexcept : tree_(t), id_(id) {}
  node_ref(tree* t, std::size_t id, std::string_view seed_key) noexcept
      : tree_(t), id_(id), seed_key_(seed_key) {}
  node_ref(tree* t, std::size_t id, std::size_t seed_index) noexcept
      : tree_(t), id_(id), seed_index_(seed_index) {}

  tree* get_tree() const noexcept { return tree_; }
  std::size_t id() const noexcept { return id_; }
  std::string_view seed_key() const noexcept { return seed_key_; }
  std::size_t seed_index() const noexcept { return seed_index_; }

  bool is_seed() const noexcept { return seed_key_.data() != nullptr || seed_index_ != npos; }
  // True when this addresses an existing node rather than a seed or nothing.
  bool readable() const noexcept { return tree_ != nullptr && id_ != npos && !is_seed(); }

  // Creates the seeded child (a key seed gets the seed view as its key) and
  // addresses it; nothing for a reference that is not a seed.
  void apply_seed();

private:
  tree* tree_ = nullptr;
  std::size_t id_ = npos;
  std::string_view seed_key_;
  std::size_t seed_index_ = npos;
};

// A reference-counted handle on one node of a tree. Handles taken from one
// another share the tree and one counter; the last one frees the tree. The
// scalar is classified once, when the handle binds its node (integer,
// float, boolean or string), so queries are cheap; writing through a handle
// does not reclassify it, a fresh handle does.

}  // namespace norvane::yaml
