// Read access to YAML documents: a tree of nodes that owns its text, a
// reference-counted handle on one node with cheap typed queries, and
// read_yaml, which turns text into a handle and parse errors into strings
// that carry the position of the fault.
#pragma once

#include <norvane/detail/yaml_tree.hpp>
#include <norvane/export.hpp>

#include <atomic>
#include <concepts>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace norvane::yaml {

// Where a parse error was found. Line and column count from 1; the name
// is the source name given to the parser ("file" for read_yaml).
struct location {
  std::string_view name;
  std::size_t offset = 0;
  std::size_t line = 0;
  std::size_t col = 0;
};

// The process-wide error reporting of the YAML machinery. The error
// function should not return (it throws or ends the process); if it does,
// the operation that raised the error gives up.
using error_fn = void (*)(const char* message, std::size_t length, location loc, void* user_data);

struct callbacks {
  void* user_data = nullptr;
  error_fn error = nullptr;
};

// The library's own set: its error function prints the message on standard
// error and aborts the process.
NORVANE_API callbacks default_callbacks();
// Installs `cb` for the whole process; a set without an error function
// installs the defaults. No lock: callers serialise YAML work.
NORVANE_API void set_callbacks(const callbacks& cb);
NORVANE_API callbacks get_callbacks();

class element;

class NORVANE_API ryml_wrapper {
public:
  struct pimpl;
  class iterator;

  // A new empty tree of its own, addressing its root.
  ryml_wrapper();
  // Joins the share on `t` held through `count` and adds one to it.
  ryml_wrapper(tree* t, node_ref node, std::atomic<long>* count);
  // Copying deep-copies the tree into a new share of its own; the node id
  // is kept, so it addresses the same place in the copy.
  ryml_wrapper(const ryml_wrapper& other);
  // Like the copy constructor, but the cached classification is copied too.
  ryml_wrapper& operator=(const ryml_wrapper& other);
  // The source is left empty: it may only be destroyed or assigned to.
  ryml_wrapper(ryml_wrapper&& other) noexcept;
  ryml_wrapper& operator=(ryml_wrapper&& other) noexcept;
  ~ryml_wrapper();

  // Gives up this handle's share of the tree: not valid afterwards.
  void clear();
  long use_count() const;

  bool is_valid() const;
  bool is_array() const;
  bool is_object() const;
  bool is_null() const;  // a value whose text is absent; also is_string
  bool is_boolean() const;
  bool is_number() const;
  bool is_number_float() const;
  bool is_number_integer() const;
  bool is_number_unsigned() const;
  bool is_string() const;
  bool is_primitive() const;
  bool is_structured() const;
  // True for a value that is neither absent nor an explicit null ("~").
  bool has_value() const;
  // True when the value was quoted or a block scalar in the source: text
  // that only looks like a number or a boolean ("8080" in quotes).
  bool is_quoted() const;

  // Children of a map, sequence or stream; 1 for a scalar; 0 for a null
  // value or an invalid handle.
  std::size_t size() const;
  std::string_view key() const;

  // Missing children give a seed (not valid until written) from the
  // non-const forms and an empty handle from the const ones. A key seed
  // keeps the caller's view: the written key refers to that text, which
  // must outlive the tree.
  ryml_wrapper operator[](std::size_t index);
  ryml_wrapper operator[](std::size_t index) const;
  ryml_wrapper operator[](std::string_view key);
  ryml_wrapper operator[](std::string_view key) const;
  ryml_wrapper operator[](const char* key) { return (*this)[std::string_view(key)]; }
  ryml_wrapper operator[](const char* key) const { return (*this)[std::string_view(key)]; }
  // `doc[0]` would otherwise be ambiguous between an index and a null key.
  template <std::integral I>
  requires(!std::same_as<I, std::size_t> && !std::same_as<I, bool>) ryml_wrapper operator[](I index) {
    return (*this)[static_cast<std::size_t>(index)];
  }
  template <std::integral I>
  requires(!std::same_as<I, std::size_t> && !std::same_as<I, bool>) ryml_wrapper operator[](I index) const {
    return (*this)[static_cast<std::size_t>(index)];
  }

  // Writes a value into the node (creating a seeded child first).
  void assign_primitive_impl(bool value);
  void assign_primitive_impl(long long value);
  void assign_primitive_impl(double value);
  void assign_primitive_impl(std::string_view value);

  // Reads the value; the target stays untouched when the kind does not
  // fit. Integers from floats truncate toward zero and saturate. The
  // string form reads the text itself and raises "could not deserialize
  // value" on an explicit null such as "~", which ends the process: use
  // value_or or get for everyday reads.
  void extract_primitive_impl(bool& out) const;
  void extract_primitive_impl(std::string& out) const noexcept;
  void extract_primitive_impl(long long& out) const;
  void extract_primitive_impl(double& out) const;
  void extract_primitive_impl(ryml_wrapper& out) const;

  // Classifies the node's scalar again.
  void parse_value();

  // Walks the children of a map, sequence or stream in order, each as a
  // handle sharing the tree as operator[] does; a scalar walks itself once
  // and a null value nothing, so the walk always has size() steps:
  //   for (const auto& [key, value] : doc["env"]) ...   // a map
  //   for (const auto& item : doc["ports"]) ...         // a sequence
  iterator begin() const;
  iterator end() const;

  // Typed reads: a missing node, a null value or a value of another kind
  // gives an empty optional. Integers that do not fit T are absent too.
  template <typename T>
  std::optional<T> get() const;
  template <typename T>
  T value_or(T fallback) const {
    auto v = get<T>();
    return v ? std::move(*v) : std::move(fallback);
  }
  // T's default value when get<T>() is empty.
  template <typename T>
  T as() const {
    return value_or<T>(T{});
  }

  // Typed writes: `doc["port"] = 8080;` writes into the shared tree.
  template <typename T>
  requires std::is_arithmetic_v<T> || std::is_convertible_v<const T&, std::string_view> ryml_wrapper&
  operator=(const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
      assign_primitive_impl(value);
    } else if constexpr (std::is_integral_v<T>) {
      assign_primitive_impl(static_cast<long long>(value));
    } else if constexpr (std::is_floating_point_v<T>) {
      assign_primitive_impl(static_cast<double>(value));
    } else {
      assign_primitive_impl(std::string_view(value));
    }
    return *this;
  }

private:
  friend struct details::access;
  std::unique_ptr<pimpl> impl_;
};

// One step of a walk: the child's handle, which also splits into its key
// (empty for a sequence item) and itself: `auto [key, value] = element`.
class element : public ryml_wrapper {
public:
  explicit element(ryml_wrapper&& handle) noexcept : ryml_wrapper(std::move(handle)) {}

  template <std::size_t I>
  decltype(auto) get() const& {
    if constexpr (I == 0) {
      return key();
    } else {
      return static_cast<const ryml_wrapper&>(*this);
    }
  }
  template <std::size_t I>
  decltype(auto) get() && {
    if constexpr (I == 0) {
      return key();
    } else {
      return static_cast<ryml_wrapper&&>(*this);
    }
  }
};

class NORVANE_API ryml_wrapper::iterator {
public:
  using iterator_category = std::input_iterator_tag;
  using value_type = element;
  using difference_type = std::ptrdiff_t;
  using pointer = void;
  using reference = element;

  iterator() = default;
  iterator(tree* t, std::atomic<long>* count, std::size_t id, bool siblings) noexcept
      : tree_(t), count_(count), id_(id), siblings_(siblings) {}

  element operator*() const;
  iterator& operator++() noexcept;
  iterator operator++(int) noexcept {
    iterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const iterator& other) const noexcept { return id_ == other.id_ && tree_ == other.tree_; }

private:
  tree* tree_ = nullptr;
  std::atomic<long>* count_ = nullptr;
  std::size_t id_ = npos;
  bool siblings_ = false;
};

// Turns the library's error reports into exceptions while installed.
class NORVANE_API ErrorHandler {
public:
  // Throws std::runtime_error with "NAME:LINE:COL (OFFSETB): message".
  [[noreturn]] static void on_error(const char* message, std::size_t length, location loc);
  [[noreturn]] static void s_error(const char* message, std::size_t length, location loc, void* user_data);
  // The throwing set: s_error as its error function, no user data.
  static yaml::callbacks callbacks();
};

// Installs the throwing error function for its lifetime. On destruction it
// installs the library's defaults, not what was there before: nesting is
// not supported.
class NORVANE_API ScopedErrorHandler {
public:
  ScopedErrorHandler();
  ~ScopedErrorHandler();
  ScopedErrorHandler(const ScopedErrorHandler&) = delete;
  ScopedErrorHandler& operator=(const ScopedErrorHandler&) = delete;

private:
  callbacks saved_;
};

// Parses `text` (copied, so the caller's buffer may go) and returns a
// handle on the root: one document is the root itself, several hang under
// a STREAM root. A bad document gives an invalid handle and appends one
// entry "file:LINE:COL (OFFSETB): message" to `errors`; earlier entries
// stay. The library's default callbacks are in force afterwards.
NORVANE_API ryml_wrapper read_yaml(std::string_view text, std::vector<std::string>& errors);

struct read_options {
  // `<<: *base` and `<<: [*a, *b]` merge the named maps into the map that
  // holds them, keys written in that map winning, then earlier maps over
  // later ones. Not part of YAML 1.2's core schema, but compose files and
  // CI pipelines rely on it. Merged entries count against the reader's
  // alias-expansion limit.
  bool merge_keys = true;
};
NORVANE_API ryml_wrapper read_yaml(std::string_view text, std::vector<std::string>& errors,
                                   const read_options& options);

}  // namespace norvane::yaml

#include <norvane/detail/yaml_get.hpp>

// `auto [key, value] = element`: the key and the child's handle.
template <>
struct std::tuple_size<norvane::yaml::element> : std::integral_constant<std::size_t, 2> {};
template <>
struct std::tuple_element<0, norvane::yaml::element> {
  using type = std::string_view;
};
template <>
struct std::tuple_element<1, norvane::yaml::element> {
  using type = norvane::yaml::ryml_wrapper;
};
