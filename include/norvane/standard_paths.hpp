// Where the application may write files of a given kind, derived from the
// user's base directories and the identity of the application_core
// instance. Paths are only computed: nothing is created or checked.
#pragma once

#include <norvane/export.hpp>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace norvane {

class NORVANE_API standard_paths {
public:
  enum class location : std::int32_t {
    app_config = 0,    // the application's configuration directory
    app_data = 1,      // the application's data directory
    org_config = 2,    // the organisation's configuration directory
    org_data = 3,      // the organisation's data directory
    home = 4,          // the user's home directory
    generic_data = 5,  // shared data, at the organisation's level
    temp = 6,          // the temporary directory
    app_cache = 7,     // the application's cache: files it can make again
    app_state = 8,     // the application's state kept between runs, logs among it
    runtime = 9,       // sockets, locks and the like, for this login only
  };

  // The organisation is the instance's domain when set, else its name; the
  // application is its application name. An application directory is
  // "<base>/<org>.<app>", or "<base>/<app>" without an organisation, or the
  // base itself when both are empty (no instance). The bases are
  // $XDG_CONFIG_HOME (~/.config), $XDG_DATA_HOME (~/.local/share),
  // $XDG_CACHE_HOME (~/.cache) and $XDG_STATE_HOME (~/.local/state); `runtime`
  // is $XDG_RUNTIME_DIR itself, or the temporary directory when it is unset.
  // A relative or empty variable counts as unset. Empty when the location is
  // unknown or a base directory cannot be found.
  static std::string writable_location(location where);
};

namespace details {

// The first of `bases` with `component` appended as one path component,
// without a trailing separator (an empty component gives the base itself).
// Empty when there is no base or the first one is empty.
NORVANE_API std::string finalize_path(const std::vector<std::filesystem::path>& bases,
                                      const std::string& component);

// get_org_data_path and get_generic_data_path are equal on purpose: they
// name different intents that may part on other platforms.
NORVANE_API std::string get_org_data_path(const std::string& org);
NORVANE_API std::string get_org_config_path(const std::string& org);
NORVANE_API std::string get_generic_data_path(const std::string& org);
NORVANE_API std::string get_app_data_path(const std::string& org, const std::string& app);
NORVANE_API std::string get_app_config_path(const std::string& org, const std::string& app);
NORVANE_API std::string get_home_path();

}  // namespace details

}  // namespace norvane
