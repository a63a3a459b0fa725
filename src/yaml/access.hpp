// The one door into the private records of the YAML tree and handle, for
// the library's own sources and its tests.
#pragma once

#include <norvane/yaml.hpp>

namespace norvane::yaml::details {

struct access {
  static tree::record& record(tree& t) noexcept { return *t.impl_; }
  static const tree::record& record(const tree& t) noexcept { return *t.impl_; }
  static ryml_wrapper::pimpl* impl(const ryml_wrapper& handle) noexcept { return handle.impl_.get(); }
};

}  // namespace norvane::yaml::details
