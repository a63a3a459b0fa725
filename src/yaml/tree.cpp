// The YAML tree: node pool, text arena, deep copy, and seed application.
#include "yaml/tree_record.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

namespace norvane::yaml {

namespace {

// Small documents fit the first block; later blocks grow with the arena.
constexpr std::size_t first_arena_block_bytes = 4096;

std::uint32_t checked_length(std::string_view text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("yaml scalar longer than 4 GiB");
  }
  return static_cast<std::uint32_t>(text.size());
}

}  // namespace

node_id node_pool::push(const node_data& n) {
  if (size_ == capacity_) {
    reserve(capacity_ < 16 ? 16 : capacity_ * 2);
  }
  nodes_[size_] = n;
  return static_cast<node_id>(size_++);
}

void node_pool::reserve(std::size_t count) {
  if (count <= capacity_) {
    return;
  }
  if (count >= none) {
    throw std::length_error("yaml tree with more than 4 billion nodes");
  }
  void* grown = std::realloc(nodes_, count * sizeof(node_data));
  if (grown == nullptr) {
    throw std::bad_alloc();
  }
  nodes_ = static_cast<node_data*>(grown);
  capacity_ = count;
}

void node_pool::resize_uninitialised(std::size_t count) {
  reserve(count);
  size_ = count;
}

void node_pool::swap(node_pool& other) noexcept {
  std::swap(nodes_, other.nodes_);
  std::swap(size_, other.size_);
  std::swap(capacity_, other.capacity_);
}

char* text_arena::alloc(std::size_t length) {
  if (!blocks_.empty()) {
    arena_block& last = blocks_.back();
    if (last.capacity - last.used >= length) {
      char* p = last.bytes.get() + last.used;
      last.used += length;
      return p;
    }
  }
  std::size_t capacity = blocks_.empty() ? first_arena_block_bytes : blocks_.back().capacity * 2;
  capacity = std::max(capacity, length);
  blocks_.push_back(arena_block{std::make_unique_for_overwrite<char[]>(capacity), capacity, length});
  return blocks_.back().bytes.get();
}

char* text_arena::alloc_exact(std::size_t length) {
  // Kept before the last block so that later small allocations still find
  // room in a block with spare capacity.
  arena_block block{std::make_unique_for_overwrite<char[]>(length == 0 ? 1 : length), length, length};
  char* p = block.bytes.get();
  blocks_.insert(blocks_.empty() ? blocks_.end() : blocks_.end() - 1, std::move(block));
  return p;
}

std::size_t text_arena::size() const noexcept {
  std::size_t total = 0;
  for (const auto& b : blocks_) {
    total += b.used;
  }
  return total;
}

node_id tree::record::append_child(node_id parent) {
  const node_id c = nodes.push(empty_node(parent));
  node_data& p = nodes[parent];
  if (p.last_child == none) {
    p.first_child = c;
  } else {
    nodes[p.last_child].next_sibling = c;
  }
  p.last_child = c;
  ++p.num_children;
  return c;
}

void tree::record::reset_to_root() {
  nodes.clear();
  arena.clear();
  nodes.push(empty_node(none));
}

void tree::record::copy_from(const record& other) {
  // All of the other arena's text goes into one block; scalars are moved by
  // the distance between their old block and its place in the new one.
  // Views that lie outside the arena (keys written from a caller's seed)
  // are kept as they are.
  struct span {
    const char* begin;
    const char* end;
    char* target;
  };
  std::vector<span> spans;
  const std::size_t total = other.arena.size();
  text_arena copied;
  char* out = total > 0 ? copied.alloc_exact(total) : nullptr;
  for (const auto& b : other.arena.blocks()) {
    if (b.used == 0) {
      continue;
    }
    std::memcpy(out, b.bytes.get(), b.used);
    spans.push_back(span{b.bytes.get(), b.bytes.get() + b.used, out});
    out += b.used;
  }
  std::sort(spans.begin(), spans.end(), [](const span& a, const span& b) { return a.begin < b.begin; });
  auto rebase = [&spans](const char* p) -> const char* {
    if (p == nullptr || spans.empty()) {
      return p;
    }
    auto it = std::upper_bound(spans.begin(), spans.end(), p,
                               [](const char* q, const span& s) { return q < s.begin; });
    if (it == spans.begin()) {
      return p;
    }
    --it;
    // An empty scalar may sit right at the end of a block.
    if (p > it->end) {
      return p;
    }
    return it->target + (p - it->begin);
  };

  node_pool pool;
  pool.resize_uninitialised(other.nodes.size());
  for (std::size_t i = 0; i < other.nodes.size(); ++i) {
    node_data n = other.nodes[static_cast<node_id>(i)];
    n.key_ptr = rebase(n.key_ptr);
    n.val_ptr = rebase(n.val_ptr);
    pool[static_cast<node_id>(i)] = n;
  }
  nodes.swap(pool);
  arena = std::move(copied);
  error_callbacks = other.error_callbacks;
}

void raise_error(const callbacks& cb, std::string_view message, const location& loc) {
  const callbacks effective = cb.error != nullptr ? cb : default_callbacks();
  effective.error(message.data(), message.size(), loc, effective.user_data);
}

tree::tree() : tree(yaml::get_callbacks()) {}

tree::tree(const callbacks& cb) : impl_(new record) {
  impl_->error_callbacks = cb;
  impl_->reset_to_root();
}

tree::tree(const tree& other) : impl_(new record) { impl_->copy_from(*other.impl_); }

tree& tree::operator=(const tree& other) {
  if (this != &other) {
    record copy;
    copy.copy_from(*other.impl_);
    impl_->nodes.swap(copy.nodes);
    impl_->arena = std::move(copy.arena);
    impl_->error_callbacks = copy.error_callbacks;
  }
  return *this;
}

tree::tree(tree&& other) noexcept : impl_(std::move(other.impl_)) {}

tree& tree::operator=(tree&& other) noexcept {
  impl_.swap(other.impl_);
  return *this;
}

tree::~tree() = default;

void tree::clear() { impl_->reset_to_root(); }

std::size_t tree::size() const noexcept { return impl_->nodes.size(); }
std::size_t tree::arena_size() const noexcept { return impl_->arena.size(); }
const callbacks& tree::get_callbacks() const noexcept { return impl_->error_callbacks; }

node_type tree::type(std::size_t id) const noexcept {
  return impl_->contains(id) ? impl_->at(id).type & ~OPEN : NOTYPE;
}

std::string_view tree::key(std::size_t id) const noexcept {
  if (!impl_->contains(id)) {
    return {};
  }
  const node_data& n = impl_->at(id);
  return {n.key_ptr, n.key_len};
}

std::string_view tree::val(std::size_t id) const noexcept {
  if (!impl_->contains(id)) {
    return {};
  }
  const node_data& n = impl_->at(id);
  return {n.val_ptr, n.val_len};
}

std::size_t tree::parent(std::size_t id) const noexcept {
  return impl_->contains(id) ? to_public(impl_->at(id).parent) : npos;
}
std::size_t tree::first_child(std::size_t id) const noexcept {
  return impl_->contains(id) ? to_public(impl_->at(id).first_child) : npos;
}
std::size_t tree::last_child(std::size_t id) const noexcept {
  return impl_->contains(id) ? to_public(impl_->at(id).last_child) : npos;
}
std::size_t tree::next_sibling(std::size_t id) const noexcept {
  return impl_->contains(id) ? to_public(impl_->at(id).next_sibling) : npos;
}
std::size_t tree::num_children(std::size_t id) const noexcept {
  return impl_->contains(id) ? impl_->at(id).num_children : 0;
}

std::size_t tree::child(std::size_t id, std::size_t pos) const noexcept {
  if (!impl_->contains(id) || pos >= impl_->at(id).num_children) {
    return npos;
  }
  node_id c = impl_->at(id).first_child;
  for (; pos > 0 && c != none; --pos) {
    c = impl_->nodes[c].next_sibling;
  }
  return to_public(c);
}

std::size_t tree::find_child(std::size_t id, std::string_view key) const noexcept {
  if (!impl_->contains(id)) {
    return npos;
  }
  for (node_id c = impl_->at(id).first_child; c != none; c = impl_->nodes[c].next_sibling) {
    const node_data& n = impl_->nodes[c];
    if (n.key_ptr != nullptr && std::string_view(n.key_ptr, n.key_len) == key) {
      return c;
    }
  }
  return npos;
}

std::size_t tree::append_child(std::size_t parent) {
  return impl_->append_child(static_cast<node_id>(parent));
}

void tree::set_key(std::size_t id, std::string_view key) {
  node_data& n = impl_->at(id);
  n.key_len = checked_length(key);
  n.key_ptr = key.data();
}

void tree::set_val(std::size_t id, std::string_view val) {
  node_data& n = impl_->at(id);
  n.val_len = checked_length(val);
  n.val_ptr = val.data();
}

void tree::add_flags(std::size_t id, node_type bits) noexcept { impl_->at(id).type |= bits; }
void tree::set_flags(std::size_t id, node_type bits) noexcept { impl_->at(id).type = bits; }

std::string_view tree::copy_to_arena(std::string_view text) {
  if (text.empty()) {
    return {empty_text, 0};
  }
  char* p = impl_->arena.alloc(text.size());
  std::memcpy(p, text.data(), text.size());
  return {p, text.size()};
}

char* tree::alloc_arena(std::size_t length) { return impl_->arena.alloc(length); }

void node_ref::apply_seed() {
  if (tree_ == nullptr || id_ == npos) {
    return;
  }
  if (seed_key_.data() != nullptr) {
    const std::size_t c = tree_->append_child(id_);
    tree_->set_key(c, seed_key_);
    tree_->add_flags(c, KEY);
    id_ = c;
  } else if (seed_index_ != npos) {
    // Whatever index was asked for, the new child goes last.
    id_ = tree_->append_child(id_);
  }
  seed_key_ = {};
  seed_index_ = npos;
}

}  // namespace norvane::yaml
