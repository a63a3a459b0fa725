// The reference-counted node handle: sharing, deep copies, classification,
// queries, indexing, and reading and writing primitive values.
#include "yaml/ryml_wrapper_pimpl.hpp"

#include "yaml/tree_record.hpp"

#include <charconv>
#include <cmath>
#include <limits>

namespace norvane::yaml {

namespace {

using details::scalar_kind;

// Queries read through the handle's own tree; the node reference carries
// only the id and the seed.
bool addresses_node(const ryml_wrapper::pimpl* d) noexcept {
  return d != nullptr && d->shared_tree != nullptr && d->node.readable() &&
         d->node.id() < d->shared_tree->size();
}

node_type flags_of(const ryml_wrapper::pimpl* d) noexcept { return d->shared_tree->type(d->node.id()); }

bool has_val(const ryml_wrapper::pimpl* d) noexcept { return addresses_node(d) && (flags_of(d) & VAL) != 0; }

constexpr node_type container_bits = MAP | SEQ | 32;

// Gives up one share: the last owner frees the tree and stores 1 back
// into the counter, which therefore outlives the tree. A handle without a
// tree (cleared, or empty from a lookup) holds no share: releasing again
// would take another handle's share away and free the tree under it.
void release_share(ryml_wrapper::pimpl& d) noexcept {
  if (d.shared_tree == nullptr) {
    d.node = node_ref();
    return;
  }
  if (d.share_count->fetch_sub(1, std::memory_order_seq_cst) - 1 == 0) {
    delete d.shared_tree;
    d.share_count->store(1, std::memory_order_seq_cst);
  }
  d.node = node_ref();
  d.shared_tree = nullptr;
}

void free_counter_if_unused(ryml_wrapper::pimpl& d) noexcept {
  if (d.share_count->load(std::memory_order_seq_cst) <= 0) {
    details::free_share_counter(d.share_count);
    d.share_count = nullptr;
  }
}

node_ref rebind(const node_ref& n, tree* t) noexcept {
  if (n.seed_key().data() != nullptr) {
    return node_ref(t, n.id(), n.seed_key());
  }
  if (n.seed_index() != npos) {
    return node_ref(t, n.id(), n.seed_index());
  }
  return n.get_tree() == nullptr ? node_ref() : node_ref(t, n.id());
}

// Takes a deep copy of the source's tree as a new share of its own. The
// node keeps its id (and seed), which addresses the same place in the copy.
void copy_share(ryml_wrapper::pimpl& d, const ryml_wrapper::pimpl& src) {
  d.shared_tree = src.shared_tree != nullptr ? new tree(*src.shared_tree) : nullptr;
  d.share_count = details::new_share_counter(1);
  d.node = d.shared_tree != nullptr ? rebind(src.node, d.shared_tree) : node_ref();
}

// The result of a lookup that does not apply: no tree, a counter of its own.
// The same state as a default handle released at once, without building
// a tree only to free it.
ryml_wrapper empty_handle() { return ryml_wrapper(nullptr, node_ref(), details::new_share_counter(0)); }

// A child that does not exist yet is addressed through a seed (`selector`),
// so that writing through the handle creates it.
template <typename Selector>
ryml_wrapper child_or_seed(const ryml_wrapper::pimpl& d, std::size_t child, Selector selector) {
  tree* const owner = d.shared_tree;
  const node_ref target = child != npos ? node_ref(owner, child) : node_ref(owner, d.node.id(), selector);
  return ryml_wrapper(owner, target, d.share_count);
}

}  // namespace

ryml_wrapper::ryml_wrapper() : impl_(new pimpl) {
  impl_->shared_tree = new tree();
  impl_->node = node_ref(impl_->shared_tree, impl_->shared_tree->root_id());
  impl_->share_count = details::new_share_counter(1);
}

ryml_wrapper::ryml_wrapper(tree* t, node_ref node, std::atomic<long>* count) : impl_(new pimpl) {
  impl_->shared_tree = t;
  impl_->node = node;
  impl_->share_count = count;
  parse_value();
  impl_->add_share();
}

ryml_wrapper::ryml_wrapper(const ryml_wrapper& other) : impl_(new pimpl) {
  if (other.impl_ == nullptr) {
    impl_->share_count = details::new_share_counter(1);
    return;
  }
  copy_share(*impl_, *other.impl_);
  parse_value();
}

ryml_wrapper& ryml_wrapper::operator=(const ryml_wrapper& other) {
  if (this == &other) {
    return *this;
  }
  if (impl_ == nullptr) {
    impl_ = std::make_unique<pimpl>();
  } else {
    release_share(*impl_);
    free_counter_if_unused(*impl_);
  }
  if (other.impl_ == nullptr) {
    impl_->share_count = details::new_share_counter(1);
    impl_->value = details::scalar_value{};
    return *this;
  }
  copy_share(*impl_, *other.impl_);
  impl_->value = other.impl_->value;
  return *this;
}

ryml_wrapper::ryml_wrapper(ryml_wrapper&& other) noexcept : impl_(std::move(other.impl_)) {}

ryml_wrapper& ryml_wrapper::operator=(ryml_wrapper&& other) noexcept {
  impl_.swap(other.impl_);
  return *this;
}

ryml_wrapper::~ryml_wrapper() {
  if (impl_ == nullptr) {
    return;
  }
  release_share(*impl_);
  free_counter_if_unused(*impl_);
}

void ryml_wrapper::clear() {
  if (impl_ != nullptr) {
    release_share(*impl_);
  }
}

long ryml_wrapper::use_count() const {
  return impl_ != nullptr && impl_->share_count != nullptr
             ? impl_->share_count->load(std::memory_order_seq_cst)
             : 0;
}

void ryml_wrapper::parse_value() {
  if (impl_ == nullptr) {
    return;
  }
  impl_->value = has_val(impl_.get()) ? details::classify(impl_->shared_tree->val(impl_->node.id()))
                                      : details::scalar_value{};
}

bool ryml_wrapper::is_valid() const { return addresses_node(impl_.get()); }
bool ryml_wrapper::is_array() const {
  return addresses_node(impl_.get()) && (flags_of(impl_.get()) & SEQ) != 0;
}
bool ryml_wrapper::is_object() const {
  return addresses_node(impl_.get()) && (flags_of(impl_.get()) & MAP) != 0;
}
bool ryml_wrapper::is_structured() const {
  return addresses_node(impl_.get()) && (flags_of(impl_.get()) & container_bits) != 0;
}
bool ryml_wrapper::is_primitive() const { return has_val(impl_.get()); }
bool ryml_wrapper::is_null() const {
  return has_val(impl_.get()) && impl_->shared_tree->val(impl_->node.id()).data() == nullptr;
}
bool ryml_wrapper::is_boolean() const {
  return has_val(impl_.get()) && impl_->value.kind == scalar_kind::boolean;
}
bool ryml_wrapper::is_number_integer() const {
  return has_val(impl_.get()) && impl_->value.kind == scalar_kind::integer;
}
bool ryml_wrapper::is_number_unsigned() const {
  return has_val(impl_.get()) && impl_->value.kind == scalar_kind::integer && impl_->value.integer >= 0;
}
bool ryml_wrapper::is_number_float() const {
  return has_val(impl_.get()) && impl_->value.kind == scalar_kind::floating;
}
bool ryml_wrapper::is_number() const {
  return has_val(impl_.get()) &&
         (impl_->value.kind == scalar_kind::integer || impl_->value.kind == scalar_kind::floating);
}
bool ryml_wrapper::is_string() const {
  return has_val(impl_.get()) && impl_->value.kind == scalar_kind::string;
}

bool ryml_wrapper::has_value() const {
  return has_val(impl_.get()) && impl_->shared_tree->val(impl_->node.id()).data() != nullptr &&
         (flags_of(impl_.get()) & VALNIL) == 0;
}

bool ryml_wrapper::is_quoted() const { return has_val(impl_.get()) && (flags_of(impl_.get()) & VALQUO) != 0; }

std::size_t ryml_wrapper::size() const {
  if (!addresses_node(impl_.get())) {
    return 0;
  }
  const node_type f = flags_of(impl_.get());
  if ((f & VAL) != 0 && impl_->shared_tree->val(impl_->node.id()).data() == nullptr) {
    return 0;
  }
  if ((f & container_bits) == 0) {
    return 1;
  }
  return impl_->shared_tree->num_children(impl_->node.id());
}

std::string_view ryml_wrapper::key() const {
  if (!addresses_node(impl_.get()) || (flags_of(impl_.get()) & KEY) == 0) {
    return {};
  }
  return impl_->shared_tree->key(impl_->node.id());
}

ryml_wrapper ryml_wrapper::operator[](std::size_t index) {
  if (!addresses_node(impl_.get()) || (flags_of(impl_.get()) & container_bits) == 0) {
    return empty_handle();
  }
  return child_or_seed(*impl_, impl_->shared_tree->child(impl_->node.id(), index), index);
}

ryml_wrapper ryml_wrapper::operator[](std::size_t index) const {
  if (!addresses_node(impl_.get()) || (flags_of(impl_.get()) & container_bits) == 0 ||
      index >= impl_->shared_tree->num_children(impl_->node.id())) {
    return empty_handle();
  }
  return ryml_wrapper(impl_->shared_tree,
                      node_ref(impl_->shared_tree, impl_->shared_tree->child(impl_->node.id(), index)),
                      impl_->share_count);
}

ryml_wrapper ryml_wrapper::operator[](std::string_view key) {
  if (!addresses_node(impl_.get()) || (flags_of(impl_.get()) & MAP) == 0) {
    return empty_handle();
  }
  return child_or_seed(*impl_, impl_->shared_tree->find_child(impl_->node.id(), key), key);
}

ryml_wrapper ryml_wrapper::operator[](std::string_view key) const {
  if (!addresses_node(impl_.get()) || (flags_of(impl_.get()) & MAP) == 0) {
    return empty_handle();
  }
  const std::size_t c = impl_->shared_tree->find_child(impl_->node.id(), key);
  if (c == npos) {
    return empty_handle();
  }
  return ryml_wrapper(impl_->shared_tree, node_ref(impl_->shared_tree, c), impl_->share_count);
}

namespace {

// Materialises a seed and stores a copy of `text` in the tree's arena as
// the value (the caller's text may not outlive the handle). The cached
// classification is left alone on purpose.
void write_text(ryml_wrapper::pimpl* d, std::string_view text) {
  if (d == nullptr || d->shared_tree == nullptr || d->node.id() == npos) {
    return;
  }
  const std::string_view stored = d->shared_tree->copy_to_arena(text);
  d->node.apply_seed();
  const std::size_t id = d->node.id();
  d->shared_tree->set_val(id, stored);
  // A written value is never an explicit null any more.
  d->shared_tree->set_flags(id, (d->shared_tree->type(id) | VAL) & ~VALNIL);
}

// The shortest text that reads back to the same number.
template <typename Number>
void write_number(ryml_wrapper::pimpl* d, Number value) {
  char text[32];
  const char* const end = std::to_chars(text, text + sizeof text, value).ptr;
  write_text(d, std::string_view(text, static_cast<std::size_t>(end - text)));
}

}  // namespace

void ryml_wrapper::assign_primitive_impl(bool value) { write_text(impl_.get(), value ? "true" : "false"); }

void ryml_wrapper::assign_primitive_impl(long long value) { write_number(impl_.get(), value); }

void ryml_wrapper::assign_primitive_impl(double value) { write_number(impl_.get(), value); }

void ryml_wrapper::assign_primitive_impl(std::string_view value) { write_text(impl_.get(), value); }

void ryml_wrapper::extract_primitive_impl(bool& out) const {
  if (impl_ != nullptr && impl_->value.kind == scalar_kind::boolean) {
    out = impl_->value.boolean;
  }
}

void ryml_wrapper::extract_primitive_impl(long long& out) const {
  if (impl_ == nullptr) {
    return;
  }
  if (impl_->value.kind == scalar_kind::integer) {
    out = impl_->value.integer;
  } else if (impl_->value.kind == scalar_kind::floating) {
    const double f = impl_->value.floating;
    constexpr double limit = 9223372036854775808.0;  // 2^63
    if (std::isnan(f)) {
      return;
    }
    if (f >= limit) {
      out = std::numeric_limits<long long>::max();
    } else if (f <= -limit) {
      out = std::numeric_limits<long long>::min();
    } else {
      out = static_cast<long long>(f);
    }
  }
}

void ryml_wrapper::extract_primitive_impl(double& out) const {
  if (impl_ == nullptr) {
    return;
  }
  if (impl_->value.kind == scalar_kind::floating) {
    out = impl_->value.floating;
  } else if (impl_->value.kind == scalar_kind::integer) {
    out = static_cast<double>(impl_->value.integer);
  }
}

void ryml_wrapper::extract_primitive_impl(std::string& out) const noexcept {
  if (!has_val(impl_.get())) {
    // A map, a sequence or an untyped root has no text: it reads as "".
    out.clear();
    return;
  }
  const std::size_t id = impl_->node.id();
  const std::string_view text = impl_->shared_tree->val(id);
  if (!text.empty() && (flags_of(impl_.get()) & VALNIL) != 0) {
    // Raising inside a function that must not throw: a throwing handler
    // ends the process here, as the default handler does.
    raise_error(impl_->shared_tree->get_callbacks(), "could not deserialize value", location{});
    return;
  }
  out.assign(text.data() != nullptr ? text.data() : "", text.size());
}

void ryml_wrapper::extract_primitive_impl(ryml_wrapper& out) const {
  if (&out != this) {
    out = *this;
  }
}

ryml_wrapper::iterator ryml_wrapper::begin() const {
  const std::size_t n = size();
  if (n == 0) {
    return end();
  }
  const std::size_t id = impl_->node.id();
  if ((flags_of(impl_.get()) & container_bits) == 0) {
    return iterator(impl_->shared_tree, impl_->share_count, id, false);
  }
  return iterator(impl_->shared_tree, impl_->share_count, impl_->shared_tree->first_child(id), true);
}

ryml_wrapper::iterator ryml_wrapper::end() const {
  return addresses_node(impl_.get()) ? iterator(impl_->shared_tree, impl_->share_count, npos, false)
                                     : iterator();
}

element ryml_wrapper::iterator::operator*() const {
  return element(ryml_wrapper(tree_, node_ref(tree_, id_), count_));
}

ryml_wrapper::iterator& ryml_wrapper::iterator::operator++() noexcept {
  id_ = siblings_ ? tree_->next_sibling(id_) : npos;
  return *this;
}

}  // namespace norvane::yaml
