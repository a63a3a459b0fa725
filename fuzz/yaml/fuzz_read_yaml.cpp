// Untrusted YAML text: read_yaml gives a tree or an error entry, and every
// node of the tree answers every query and extraction without crashing.
#include <norvane/yaml.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using norvane::yaml::ryml_wrapper;

void query(const ryml_wrapper& h, std::size_t& sink) {
  sink += h.is_valid() + h.is_array() + h.is_object() + h.is_null() + h.is_boolean() + h.is_number() +
          h.is_number_float() + h.is_number_integer() + h.is_number_unsigned() + h.is_string() +
          h.is_primitive() + h.is_structured() + h.has_value();
  sink += h.size() + h.key().size() + static_cast<std::size_t>(h.use_count());
  bool b = false;
  long long i = 0;
  double d = 0;
  h.extract_primitive_impl(b);
  h.extract_primitive_impl(i);
  h.extract_primitive_impl(d);
  // Reading an explicit null such as "~" as text ends the process by
  // design; the typed accessor is the path that treats it as absent.
  if (h.has_value() || h.is_null()) {
    std::string s;
    h.extract_primitive_impl(s);
    sink += s.size();
  }
  sink += h.get<std::string>().value_or("").size();
  sink += static_cast<std::size_t>(h.value_or<int>(0) + h.value_or<bool>(false)) +
          static_cast<std::size_t>(h.value_or<double>(0) != 0);
}

// The queries' results end here so that the compiler cannot drop them.
volatile std::size_t kept_sink;

}  // namespace

// libfyaml 0.7.12 loses a small buffer when it rewrites some quoted scalars
// (the reader sidesteps the one-line cases); that leak is not ours to find.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfyaml.so\n"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> errors;
  ryml_wrapper doc = norvane::yaml::read_yaml(text, errors);
  // A document is either read or refused with exactly one entry.
  if (doc.is_valid() == !errors.empty() || errors.size() > 1) {
    __builtin_trap();
  }
  std::size_t sink = 0;
  query(doc, sink);
  // Handles from indexing share the tree; only moves go into the list.
  std::vector<ryml_wrapper> pending;
  const ryml_wrapper& root = doc;
  for (std::size_t i = 0; i < (root.is_structured() ? root.size() : 0); ++i) {
    pending.push_back(root[i]);
  }
  while (!pending.empty()) {
    const ryml_wrapper h = std::move(pending.back());
    pending.pop_back();
    query(h, sink);
    if (!h.key().empty()) {
      query(doc[h.key()], sink);
    }
    for (std::size_t i = 0; i < (h.is_structured() ? h.size() : 0); ++i) {
      pending.push_back(h[i]);
    }
  }
  if (doc.is_valid() && doc.use_count() != 1) {
    __builtin_trap();
  }
  // Writing through seeds of a deep copy works on any tree.
  ryml_wrapper copy = doc;
  copy["fuzz"] = 1;
  copy[copy.size()] = "appended";
  query(copy, sink);
  kept_sink = sink;
  return 0;
}
