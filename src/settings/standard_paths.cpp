// Joining the user's base directories with the application identity.
#include "settings/trailing_separator.hpp"
#include "settings/user_directories.hpp"

#include <norvane/application.hpp>
#include <norvane/standard_paths.hpp>

#include <system_error>

namespace norvane {

namespace details {

namespace {

// Empty when the system has no usable temporary directory.
std::string temp_path() {
  std::error_code ec;
  auto temp = std::filesystem::temp_directory_path(ec);
  return ec ? std::string() : temp.string();
}

// "<base>.<app>" shares the organisation's directory name; without an
// organisation the application gets "<base>/<app>".
std::string with_application(std::string base, const std::string& org, const std::string& app) {
  if (!base.empty() && !app.empty()) {
    base += org.empty() ? "/" : ".";
    base += app;
  }
  return base;
}

// The cache and state directories follow the data directory's rules.
std::string get_app_cache_path(const std::string& org, const std::string& app) {
  return with_application(finalize_path({user_cache_directory()}, org), org, app);
}

std::string get_app_state_path(const std::string& org, const std::string& app) {
  return with_application(finalize_path({user_state_directory()}, org), org, app);
}

std::string get_runtime_path() {
  const auto runtime = user_runtime_directory();
  return runtime.empty() ? temp_path() : runtime.string();
}

}  // namespace

std::string finalize_path(const std::vector<std::filesystem::path>& bases, const std::string& component) {
  if (bases.empty() || bases.front().empty()) {
    return {};
  }
  auto text = bases.front().string();
  if (!component.empty()) {
    if (text.back() != '/') {
      text += '/';
    }
    text += component;
  }
  return without_trailing_separator(std::move(text));
}

std::string get_org_data_path(const std::string& org) { return finalize_path(user_data_directories(), org); }

std::string get_generic_data_path(const std::string& org) {
  return finalize_path(user_data_directories(), org);
}

std::string get_org_config_path(const std::string& org) {
  auto base = user_config_directory();
  if (base.empty()) {
    return {};
  }
  return finalize_path({std::move(base)}, org);
}

std::string get_app_data_path(const std::string& org, const std::string& app) {
  return with_application(get_org_data_path(org), org, app);
}

std::string get_app_config_path(const std::string& org, const std::string& app) {
  return with_application(get_org_config_path(org), org, app);
}

std::string get_home_path() { return user_home_directory().string(); }

}  // namespace details

std::string standard_paths::writable_location(location where) {
  std::string org;
  std::string app;
  if (const auto* instance = application_core::instance()) {
    org = instance->organization_domain().empty() ? instance->organization_name()
                                                  : instance->organization_domain();
    app = instance->application_name();
  }
  switch (where) {
    case location::app_config:
      return details::get_app_config_path(org, app);
    case location::app_data:
      return details::get_app_data_path(org, app);
    case location::org_config:
      return details::get_org_config_path(org);
    case location::org_data:
      return details::get_org_data_path(org);
    case location::home:
      return details::get_home_path();
    case location::generic_data:
      return details::get_generic_data_path(org);
    case location::temp:
      return details::temp_path();
    case location::app_cache:
      return details::get_app_cache_path(org, app);
    case location::app_state:
      return details::get_app_state_path(org, app);
    case location::runtime:
      return details::get_runtime_path();
  }
  return {};
}

}  // namespace norvane
