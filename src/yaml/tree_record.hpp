// The private record of yaml::tree: a flat node pool and a text arena.
// Ids are 32 bits inside the pool to keep a node at 48 bytes, which is what
// bounds the memory of a large document.
#pragma once

#include <norvane/yaml.hpp>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace norvane::yaml {

using node_id = std::uint32_t;
inline constexpr node_id none = UINT32_MAX;

// Set on containers while the reader still fills them; never visible
// outside the reader.
inline constexpr node_type OPEN = 0x80000000u;
// Set on a map entry whose key is the merge key "<<" until the reader has
// merged the maps it names; never visible outside the reader either.
inline constexpr node_type MERGE = 0x40000000u;

struct node_data {
  const char* key_ptr;
  const char* val_ptr;
  std::uint32_t key_len;
  std::uint32_t val_len;
  node_type type;
  node_id parent;
  node_id first_child;
  node_id last_child;
  node_id next_sibling;
  std::uint32_t num_children;
};
static_assert(std::is_trivially_copyable_v<node_data>);

// Stored for empty scalars that are present (a quoted ""), so that their
// data pointer is not null and needs no arena space.
inline constexpr const char* empty_text = "";

// A growable array of nodes kept with realloc, which lets the allocator
// move a large pool without holding old and new copies at once.
class node_pool {
public:
  node_pool() = default;
  node_pool(const node_pool&) = delete;
  node_pool& operator=(const node_pool&) = delete;
  ~node_pool() { std::free(nodes_); }

  std::size_t size() const noexcept { return size_; }
  node_data& operator[](node_id id) noexcept { return nodes_[id]; }
  const node_data& operator[](node_id id) const noexcept { return nodes_[id]; }
  node_data* data() noexcept { return nodes_; }
  const node_data* data() const noexcept { return nodes_; }

  node_id push(const node_data& n);
  void reserve(std::size_t count);
  void resize_uninitialised(std::size_t count);
  void clear() noexcept { size_ = 0; }
  void swap(node_pool& other) noexcept;

private:
  node_data* nodes_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

struct arena_block {
  std::unique_ptr<char[]> bytes;
  std::size_t capacity;
  std::size_t used;
};

class text_arena {
public:
  char* alloc(std::size_t length);
  std::size_t size() const noexcept;
  void clear() noexcept { blocks_.clear(); }
  const std::vector<arena_block>& blocks() const noexcept { return blocks_; }
  // One block holding exactly `length` bytes (the source text of a parse).
  char* alloc_exact(std::size_t length);

private:
  std::vector<arena_block> blocks_;
};

struct tree::record {
  node_pool nodes;
  text_arena arena;
  callbacks error_callbacks;

  node_data& at(std::size_t id) noexcept { return nodes[static_cast<node_id>(id)]; }
  const node_data& at(std::size_t id) const noexcept { return nodes[static_cast<node_id>(id)]; }
  bool contains(std::size_t id) const noexcept { return id < nodes.size(); }
  // Appends a new child without type bits as the last child of `parent`.
  node_id append_child(node_id parent);
  void reset_to_root();
  void copy_from(const record& other);
};

inline node_data empty_node(node_id parent) noexcept {
  return node_data{nullptr, nullptr, 0, 0, NOTYPE, parent, none, none, none, 0};
}

inline std::size_t to_public(node_id id) noexcept { return id == none ? npos : id; }

// Raises an error through `cb`, falling back to the library's defaults.
void raise_error(const callbacks& cb, std::string_view message, const location& loc);

}  // namespace norvane::yaml
