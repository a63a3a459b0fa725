// The user's base directories on Linux: the XDG base directories, and the
// home directory from $HOME or, failing that, the password database.
#include "settings/trailing_separator.hpp"
#include "settings/user_directories.hpp"

#include <norvane/standard_paths.hpp>

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace norvane::details {

namespace {

// Relative values are ignored, as the XDG convention requires.
std::filesystem::path absolute_variable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || value[0] != '/') {
    return {};
  }
  return without_trailing_separator(value);
}

std::filesystem::path password_home() {
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr || found->pw_dir == nullptr) {
    return {};
  }
  return found->pw_dir;
}

// The variable's directory when it is set and absolute, else `fallback`
// under the home directory; empty when there is neither.
std::filesystem::path xdg_directory(const char* variable, const char* fallback) {
  auto base = absolute_variable(variable);
  if (base.empty()) {
    const auto home = user_home_directory();
    if (home.empty()) {
      return {};
    }
    base = home / fallback;
  }
  return base;
}

}  // namespace

std::filesystem::path user_home_directory() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] != '\0') {
    return without_trailing_separator(home);
  }
  return without_trailing_separator(password_home().string());
}

std::vector<std::filesystem::path> user_data_directories() {
  auto base = xdg_directory("XDG_DATA_HOME", ".local/share");
  if (base.empty()) {
    return {};
  }
  return {std::move(base)};
}

std::filesystem::path user_config_directory() { return xdg_directory("XDG_CONFIG_HOME", ".config"); }

std::filesystem::path user_cache_directory() { return xdg_directory("XDG_CACHE_HOME", ".cache"); }

std::filesystem::path user_state_directory() { return xdg_directory("XDG_STATE_HOME", ".local/state"); }

std::filesystem::path user_runtime_directory() { return absolute_variable("XDG_RUNTIME_DIR"); }

}  // namespace norvane::details
