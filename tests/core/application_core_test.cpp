// The application object: its command line, the one instance, its identity.
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/application.hpp>
#include <norvane/application_pimpl.hpp>

#include <gtest/gtest.h>

#include <sys/utsname.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// Defined in the probe library, so that module_path() is called from a
// shared library rather than from this executable.
std::string module_probe_path();

namespace norvane {
namespace {

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

std::unique_ptr<application_core> make_app(strings arguments) {
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return std::make_unique<application_core>(static_cast<int>(arguments.size()), argv.data());
}

TEST(ApplicationCore, KeepsArgumentsWithoutSerialNumbersAndCanonicalArgumentZero) {
  test::log_capture log;
  const test::temp_dir dir;
  test::write_file(dir / "tool.bin", "");
  test::write_file(dir / "archive.tar.gz", "");
  const auto at = dir.path().string();
  auto app = make_app({at + "/./tool.bin", "-psn_0_12345", "word", "-psn", "-psn_", "x-psn_1", ""});
  EXPECT_EQ(app->arguments(), (strings{fs::canonical(dir / "tool.bin"), "word", "-psn", "x-psn_1", ""}));
  EXPECT_EQ(app->application_dir_path(), fs::canonical(dir.path()).string());
  EXPECT_EQ(app->application_name(), "tool");
  app.reset();
  app = make_app({"-psn_0_1", at + "/archive.tar.gz"});
  EXPECT_EQ(app->application_name(), "archive.tar");  // only the last extension goes
  app.reset();
  app = make_app({});
  EXPECT_EQ(app->application_dir_path() + app->application_name(), "");
  EXPECT_EQ(log.entries(), std::vector<test::log_entry>{});
  app.reset();
  app = make_app({at + "/nowhere/tool", "--flag"});
  EXPECT_EQ(app->arguments(), (strings{at + "/nowhere/tool", "--flag"}));
  EXPECT_EQ(
      log.entries(),
      (std::vector<test::log_entry>{{"error", "Impossible to find the canonical path for the argument #0 " +
                                                  at + "/nowhere/tool: No such file or directory"}}));
}

TEST(ApplicationCore, IdentityBelongsToTheNewestInstanceAndGoesWithIt) {
  test::log_capture log;  // the missing program paths are logged, not checked here
  EXPECT_EQ(application_core::instance(), nullptr);
  const auto first = make_app({"first"});
  {
    const auto second = make_app({"second"});
    EXPECT_EQ(application_core::instance(), second.get());
    EXPECT_EQ(first->application_name(), "second");
    // Set through `first`, the identity lands in the instance, `second`.
    first->set_organization_name("studio"), first->set_organization_domain("studio.example");
    first->set_application_name("editor"), first->set_application_version("1.2");
    EXPECT_EQ(second->organization_name() + " " + second->organization_domain() + " " +
                  second->application_name() + " " + second->application_version(),
              "studio studio.example editor 1.2");
  }
  // With no instance the getters read nothing and the setters of the
  // application's own names are ignored, even though `first` is alive.
  EXPECT_EQ(application_core::instance(), nullptr);
  first->set_application_name("ignored"), first->set_application_version("ignored");
  EXPECT_EQ(first->organization_name() + first->organization_domain() + first->application_name() +
                first->application_version(),
            "");
  // The organisation setters need an instance: without one they abort.
  EXPECT_DEATH(first->set_organization_name("studio"), "");
  EXPECT_DEATH(first->set_organization_domain("studio.example"), "");
  first->exit(), first->restart();
  EXPECT_TRUE(first->should_exit());  // restart does not undo an exit
  first->reset_exit(), first->restart();
  EXPECT_FALSE(first->should_exit());
}

// A derived application whose record carries a field of its own.
struct counted_pimpl : application_core_pimpl {
  counted_pimpl(application_core* app, int& argc, char** argv, int& count)
      : application_core_pimpl(app, argc, argv), destroyed(count) {}
  ~counted_pimpl() override { ++destroyed; }
  int& destroyed;
};

TEST(ApplicationCore, DerivedRecordPlatformAndModulePath) {
  struct derived_application : application_core {
    derived_application(int argc, char** argv, int& destroyed)
        : application_core(*new counted_pimpl(this, argc, argv, destroyed)) {}
  };
  std::string name = "-psn_9";
  char* argv[] = {name.data(), name.data(), nullptr};
  int destroyed = 0;
  {
    const derived_application app(2, argv, destroyed);
    EXPECT_EQ(application_core::instance(), &app);
    EXPECT_TRUE(app.arguments().empty());
  }
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(application_core::instance(), nullptr);

  utsname host{};
  ::uname(&host);
  EXPECT_EQ(application_core::platform(), std::string("linux-") + host.machine);
  // From this executable: the program itself; from a shared library: that library.
  EXPECT_TRUE(fs::equivalent(module_path(), "/proc/self/exe"));
  EXPECT_EQ(fs::path(module_probe_path()).filename(), "libnorvane_module_probe.so");
}

}  // namespace
}  // namespace norvane
