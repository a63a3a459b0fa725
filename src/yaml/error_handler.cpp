// The process-wide YAML error callbacks, and the handlers that turn
// errors into exceptions while a parse runs.
#include <norvane/yaml.hpp>

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace norvane::yaml {

namespace {

// "NAME:LINE:COL (OFFSETB): message", the one layout of every YAML error.
std::string located_message(const char* message, std::size_t length, const location& loc) {
  return fmt::format("{}:{}:{} ({}B): {}", loc.name, loc.line, loc.col, loc.offset,
                     std::string_view(message != nullptr ? message : "", message != nullptr ? length : 0));
}

void default_error(const char* message, std::size_t length, location loc, void* /*user_data*/) {
  const std::string text = located_message(message, length, loc);
  std::fprintf(stderr, "%s\n", text.c_str());
  std::abort();
}

// Unlocked like the rest of the YAML machinery's configuration: callers
// serialise YAML work.
callbacks& installed() {
  static callbacks cb = default_callbacks();
  return cb;
}

}  // namespace

callbacks default_callbacks() { return callbacks{nullptr, &default_error}; }

void set_callbacks(const callbacks& cb) { installed() = cb.error != nullptr ? cb : default_callbacks(); }

callbacks get_callbacks() { return installed(); }

void ErrorHandler::on_error(const char* message, std::size_t length, location loc) {
  throw std::runtime_error(located_message(message, length, loc));
}

void ErrorHandler::s_error(const char* message, std::size_t length, location loc, void* /*user_data*/) {
  on_error(message, length, loc);
}

callbacks ErrorHandler::callbacks() { return yaml::callbacks{nullptr, &ErrorHandler::s_error}; }

ScopedErrorHandler::ScopedErrorHandler() : saved_(default_callbacks()) {
  set_callbacks(yaml::callbacks{&saved_, &ErrorHandler::s_error});
}

ScopedErrorHandler::~ScopedErrorHandler() { set_callbacks(saved_); }

}  // namespace norvane::yaml
