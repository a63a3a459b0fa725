// A shared library that asks which module it lives in.
#include <norvane/application.hpp>

#include <string>

__attribute__((visibility("default"))) std::string module_probe_path() {
  // Assigning, not returning, keeps the call from becoming a tail call that
  // would report this library's caller instead.
  std::string path;
  path = norvane::module_path();
  return path;
}
