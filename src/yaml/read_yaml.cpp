// read_yaml: parse with the throwing error handler installed and turn
// what it throws into an entry of the caller's error list.
#include <norvane/yaml.hpp>

#include "yaml/reader.hpp"
#include "yaml/ryml_wrapper_pimpl.hpp"

#include <exception>

namespace norvane::yaml {

namespace {

// Reinstalls the library's defaults on every way out, exceptions of other
// kinds included.
class restore_defaults {
public:
  explicit restore_defaults(const callbacks& saved) noexcept : saved_(saved) {}
  ~restore_defaults() { set_callbacks(saved_); }
  restore_defaults(const restore_defaults&) = delete;
  restore_defaults& operator=(const restore_defaults&) = delete;

private:
  callbacks saved_;
};

}  // namespace

ryml_wrapper read_yaml(std::string_view text, std::vector<std::string>& errors) {
  const callbacks saved = default_callbacks();
  set_callbacks(callbacks{const_cast<callbacks*>(&saved), &ErrorHandler::s_error});
  restore_defaults restore(saved);

  ryml_wrapper result;
  try {
    ryml_wrapper::pimpl* d = result.impl();
    if (!details::read_into(*d->t, "file", text, get_callbacks())) {
      // An error function that returned instead of throwing still leaves
      // no usable document.
      result.clear();
      return result;
    }
    d->node = node_ref(d->t, d->t->root_id());
    result.parse_value();
  } catch (const std::exception& e) {
    errors.emplace_back(e.what());
    result.clear();
  }
  return result;
}

}  // namespace norvane::yaml
