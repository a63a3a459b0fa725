#include "settings/scoped_env.hpp"
#include "support/test_support.hpp"

#include <norvane/application.hpp>
#include <norvane/standard_paths.hpp>

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace norvane {
namespace {

using where = standard_paths::location;
using test::scoped_env;

std::string env(const char* name) { return std::getenv(name); }

// Every test gets its own HOME and XDG directories (the test main sets
// them); this fixture only adds an application object when asked.
class StandardPaths : public ::testing::Test {
protected:
  void make_application(const std::string& argument0) {
    storage_ = argument0;
    char* argv[] = {storage_.data(), nullptr};
    app_ = std::make_unique<application_core>(1, argv);
  }

  std::string storage_;
  std::unique_ptr<application_core> app_;
};

TEST_F(StandardPaths, WithoutAnApplicationTheBaseDirectoriesThemselves) {
  ASSERT_EQ(application_core::instance(), nullptr);
  const auto data = env("XDG_DATA_HOME");
  const auto config = env("XDG_CONFIG_HOME");
  EXPECT_EQ(standard_paths::writable_location(where::app_data), data);
  EXPECT_EQ(standard_paths::writable_location(where::org_data), data);
  EXPECT_EQ(standard_paths::writable_location(where::generic_data), data);
  EXPECT_EQ(standard_paths::writable_location(where::app_config), config);
  EXPECT_EQ(standard_paths::writable_location(where::org_config), config);
  EXPECT_EQ(standard_paths::writable_location(where::home), env("HOME"));
  EXPECT_EQ(standard_paths::writable_location(where::temp), std::filesystem::temp_directory_path().string());
  EXPECT_EQ(standard_paths::writable_location(static_cast<where>(10)), "");
  EXPECT_EQ(standard_paths::writable_location(static_cast<where>(-1)), "");
}

TEST_F(StandardPaths, OrganisationAndApplicationJoining) {
  make_application("/opt/studio/tool.bin");
  const auto data = env("XDG_DATA_HOME");
  const auto config = env("XDG_CONFIG_HOME");
  // No organisation: the application gets a directory of its own, named
  // after argument #0 until a name is set.
  EXPECT_EQ(standard_paths::writable_location(where::app_data), data + "/tool");
  app_->set_application_name("editor");
  EXPECT_EQ(standard_paths::writable_location(where::app_config), config + "/editor");

  app_->set_organization_name("Studio");
  EXPECT_EQ(standard_paths::writable_location(where::app_data), data + "/Studio.editor");
  EXPECT_EQ(standard_paths::writable_location(where::app_config), config + "/Studio.editor");
  EXPECT_EQ(standard_paths::writable_location(where::org_config), config + "/Studio");
  // The domain wins over the name.
  app_->set_organization_domain("studio.example");
  EXPECT_EQ(standard_paths::writable_location(where::app_data), data + "/studio.example.editor");
  EXPECT_EQ(standard_paths::writable_location(where::org_data), data + "/studio.example");
  EXPECT_EQ(standard_paths::writable_location(where::generic_data),
            standard_paths::writable_location(where::org_data));
}

TEST_F(StandardPaths, BaseDirectoriesFollowTheXdgConvention) {
  const auto home = env("HOME");
  {
    // Relative values do not count; unset ones fall back under HOME.
    scoped_env data("XDG_DATA_HOME", "relative/share");
    scoped_env config("XDG_CONFIG_HOME", nullptr);
    EXPECT_EQ(standard_paths::writable_location(where::app_data), home + "/.local/share");
    EXPECT_EQ(standard_paths::writable_location(where::app_config), home + "/.config");
  }
  {
    test::temp_dir dir;
    const auto with_slash = dir.path().string() + "/conf//";
    scoped_env config("XDG_CONFIG_HOME", with_slash.c_str());
    EXPECT_EQ(standard_paths::writable_location(where::org_config), dir.path().string() + "/conf");
    EXPECT_EQ(details::get_app_config_path("org", "app"), dir.path().string() + "/conf/org.app");
    EXPECT_EQ(details::get_app_config_path("", "app"), dir.path().string() + "/conf/app");
    EXPECT_EQ(details::get_app_config_path("org", ""), dir.path().string() + "/conf/org");
  }
}

TEST_F(StandardPaths, CacheStateAndRuntimeLocations) {
  // Added after the first seven, whose values must not move.
  static_assert(static_cast<int>(where::temp) == 6 && static_cast<int>(where::app_cache) == 7 &&
                static_cast<int>(where::runtime) == 9);
  make_application("/opt/studio/tool");
  app_->set_organization_name("Studio");
  const auto home = env("HOME");
  const auto temp = std::filesystem::temp_directory_path().string();
  struct location_case {
    where location;
    const char* variable;
    const char* value;  // null: unset
    std::string expected;
  };
  const location_case cases[] = {
      {where::app_cache, "XDG_CACHE_HOME", "/var/cache/u//", "/var/cache/u/Studio.tool"},
      {where::app_cache, "XDG_CACHE_HOME", "relative/cache", home + "/.cache/Studio.tool"},
      {where::app_cache, "XDG_CACHE_HOME", "", home + "/.cache/Studio.tool"},
      {where::app_state, "XDG_STATE_HOME", "/srv/state", "/srv/state/Studio.tool"},
      {where::app_state, "XDG_STATE_HOME", nullptr, home + "/.local/state/Studio.tool"},
      {where::runtime, "XDG_RUNTIME_DIR", "/run/user/1000/", "/run/user/1000"},
      {where::runtime, "XDG_RUNTIME_DIR", "run/user", temp},
      {where::runtime, "XDG_RUNTIME_DIR", nullptr, temp},
  };
  for (const auto& c : cases) {
    scoped_env variable(c.variable, c.value);
    EXPECT_EQ(standard_paths::writable_location(c.location), c.expected)
        << c.variable << "=" << (c.value ? c.value : "(unset)");
  }
  app_->set_organization_name("");
  EXPECT_EQ(standard_paths::writable_location(where::app_state), env("XDG_STATE_HOME") + "/tool");
}

TEST_F(StandardPaths, HomeFallsBackToThePasswordDatabase) {
  const passwd* entry = ::getpwuid(::getuid());
  ASSERT_NE(entry, nullptr);
  const std::string from_database = entry->pw_dir;
  {
    scoped_env home("HOME", nullptr);
    scoped_env data("XDG_DATA_HOME", nullptr);
    EXPECT_EQ(standard_paths::writable_location(where::home), from_database);
    EXPECT_EQ(standard_paths::writable_location(where::app_data),
              (std::filesystem::path(from_database) / ".local/share").string());
  }
  {
    scoped_env home("HOME", "");
    EXPECT_EQ(details::get_home_path(), from_database);
  }
  {
    scoped_env home("HOME", "/srv/someone/");
    EXPECT_EQ(details::get_home_path(), "/srv/someone");
  }
}

TEST_F(StandardPaths, FailuresAreEmptyResults) {
  test::temp_dir dir;
  test::write_file(dir / "not-a-directory", "");
  {
    const auto bad = (dir / "not-a-directory").string();
    scoped_env tmpdir("TMPDIR", bad.c_str());
    EXPECT_EQ(standard_paths::writable_location(where::temp), "");
  }
  EXPECT_EQ(details::finalize_path({}, "org"), "");
  EXPECT_EQ(details::finalize_path({""}, "org"), "");
  EXPECT_EQ(details::finalize_path({"/"}, ""), "/");
  EXPECT_EQ(details::finalize_path({"/base/", "/second"}, "org/"), "/base/org");
}

}  // namespace
}  // namespace norvane
