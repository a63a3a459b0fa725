#include "settings/settings_fixture.hpp"

#include <norvane/standard_paths.hpp>

#include <pwd.h>

namespace norvane {
namespace {

using where = standard_paths::location;
using test::scoped_env;

TEST(StandardPaths, LocationsFollowTheVariablesAndTheIdentity) {
  ASSERT_EQ(application_core::instance(), nullptr);
  const std::string home = std::getenv("HOME"), data = std::getenv("XDG_DATA_HOME"),
                    config = std::getenv("XDG_CONFIG_HOME");
  const std::string temp = std::filesystem::temp_directory_path().string(),
                    database = ::getpwuid(::getuid())->pw_dir;
  test::temp_dir dir;
  test::write_file(dir / "file", "");
  const auto not_a_directory = (dir / "file").string();
  // Identities: 0 none, 1 argument #0 (tool.bin), 2 the organisation Studio, 3 its domain as well.
  const struct {
    int identity;
    where location;
    const char *variable, *value;  // value null: unset
    std::string expected;
  } rows[] = {
      {0, where::app_data, "", "", data},
      {0, where::org_config, "", "", config},
      {0, where::temp, "TMPDIR", not_a_directory.c_str(), ""},
      {0, static_cast<where>(10), "", "", ""},
      {1, where::app_data, "", "", data + "/tool"},
      {1, where::app_config, "XDG_CONFIG_HOME", "relative/conf", home + "/.config/tool"},
      {1, where::app_config, "XDG_CONFIG_HOME", "/etc/conf//", "/etc/conf/tool"},
      {2, where::app_data, "", "", data + "/Studio.tool"},
      {2, where::org_config, "", "", config + "/Studio"},
      {2, where::app_cache, "XDG_CACHE_HOME", "/var/cache/u//", "/var/cache/u/Studio.tool"},
      {2, where::app_state, "XDG_STATE_HOME", nullptr, home + "/.local/state/Studio.tool"},
      {2, where::runtime, "XDG_RUNTIME_DIR", "/run/user/1000/", "/run/user/1000"},
      {2, where::runtime, "XDG_RUNTIME_DIR", "run/user", temp},
      {3, where::app_config, "", "", config + "/studio.example.tool"},
      {3, where::home, "HOME", "/srv/someone/", "/srv/someone"},
      {3, where::home, "HOME", "", database},
  };
  std::string argument0 = "/opt/studio/tool.bin";
  char* argv[] = {argument0.data(), nullptr};
  std::unique_ptr<application_core> app;
  for (const auto& r : rows) {
    if (r.identity == 1 && !app) app = std::make_unique<application_core>(1, argv);
    if (app) {
      app->set_organization_name(r.identity >= 2 ? "Studio" : "");
      app->set_organization_domain(r.identity == 3 ? "studio.example" : "");
    }
    std::optional<scoped_env> variable;
    if (*r.variable != '\0') variable.emplace(r.variable, r.value);
    EXPECT_EQ(standard_paths::writable_location(r.location), r.expected) << "row " << &r - rows;
  }
  // Without HOME, the home directory comes from the password database.
  scoped_env no_home("HOME", nullptr);
  scoped_env no_data("XDG_DATA_HOME", nullptr);
  EXPECT_EQ(standard_paths::writable_location(where::home), database);
  EXPECT_EQ(standard_paths::writable_location(where::org_data), database + "/.local/share/studio.example");
  EXPECT_EQ(details::finalize_path({""}, "org"), "");
  EXPECT_EQ(details::finalize_path({"/"}, ""), "/");
  EXPECT_EQ(details::finalize_path({"/base/", "/second"}, "org/"), "/base/org");
}

}  // namespace
}  // namespace norvane
