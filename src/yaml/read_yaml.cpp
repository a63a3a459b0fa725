// read_yaml: parse with the throwing error handler installed and turn
// what it throws into an entry of the caller's error list.
#include <norvane/yaml.hpp>

#include "yaml/access.hpp"
#include "yaml/reader.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"

#include <exception>

namespace norvane::yaml {

ryml_wrapper read_yaml(std::string_view text, std::vector<std::string>& errors) {
  return read_yaml(text, errors, read_options{});
}

ryml_wrapper read_yaml(std::string_view text, std::vector<std::string>& errors, const read_options& options) {
  // Its destructor reinstalls the library's defaults on every way out,
  // exceptions of other kinds included.
  const ScopedErrorHandler throwing;
  ryml_wrapper result;
  try {
    ryml_wrapper::pimpl* d = details::access::impl(result);
    if (!details::read_into(*d->shared_tree, "file", text, get_callbacks(), options.merge_keys)) {
      // An error function that returned instead of throwing still leaves
      // no usable document.
      result.clear();
      return result;
    }
    d->node = node_ref(d->shared_tree, d->shared_tree->root_id());
    result.parse_value();
  } catch (const std::exception& e) {
    errors.emplace_back(e.what());
    result.clear();
  }
  return result;
}

}  // namespace norvane::yaml
