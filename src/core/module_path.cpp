// Which loaded image called us: the executable or one of its shared libraries.
#include <norvane/application.hpp>

#include <dlfcn.h>

namespace norvane {

// Must stay out of line: the return address has to be the caller's.
__attribute__((noinline)) std::string module_path() {
  Dl_info info{};
  if (::dladdr(__builtin_return_address(0), &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  return info.dli_fname;
}

}  // namespace norvane
