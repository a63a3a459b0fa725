// The user's base directories on Linux: the XDG base directories, and the
// home directory from $HOME or, failing that, the password database.
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
  return value;
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

// Within a base directory "/" is a root, not a trailing separator; other
// trailing separators go, as the tilde expansion of other platforms drops them.
std::filesystem::path without_trailing_separator(std::string text) {
  while (text.size() > 1 && text.back() == '/') {
    text.pop_back();
  }
  return text;
}

std::filesystem::path under_home(const char* relative) {
  const auto home = user_home_directory();
  return home.empty() ? std::filesystem::path() : home / relative;
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
  auto base = absolute_variable("XDG_DATA_HOME");
  if (base.empty()) {
    base = under_home(".local/share");
  }
  if (base.empty()) {
    return {};
  }
  return {without_trailing_separator(base.string())};
}

std::filesystem::path user_config_directory() {
  auto base = absolute_variable("XDG_CONFIG_HOME");
  if (base.empty()) {
    base = under_home(".config");
  }
  return base.empty() ? base : without_trailing_separator(base.string());
}

}  // namespace norvane::details
