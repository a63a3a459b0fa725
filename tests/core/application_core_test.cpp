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

// Builds an application from `arguments` as main() receives them, with the
// names in `present` made as files in a temporary directory first; "@"
// in an argument stands for that directory.
struct application_fixture {
  test::temp_dir dir;
  strings storage;
  std::vector<char*> argv;
  std::unique_ptr<application_core> app;

  application_fixture(strings arguments, std::initializer_list<const char*> present = {}) {
    for (const char* name : present) {
      test::write_file(dir / name, "");
    }
    for (auto& argument : arguments) {
      if (const auto at = argument.find('@'); at != std::string::npos) {
        argument.replace(at, 1, dir.path().string());
      }
    }
    storage = std::move(arguments);
    for (auto& argument : storage) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    app = std::make_unique<application_core>(static_cast<int>(storage.size()), argv.data());
  }
  std::string canonical(const char* name) const { return fs::canonical(dir / name).string(); }
};

TEST(ApplicationCore, KeepsArgumentsWithoutSerialNumbersAndCanonicalArgumentZero) {
  test::log_capture log;
  const application_fixture a({"@/./tool.bin", "-psn_0_12345", "word", "-psn", "-psn_", "x-psn_1", ""},
                              {"tool.bin"});
  EXPECT_EQ(a.app->arguments(), (strings{a.canonical("tool.bin"), "word", "-psn", "x-psn_1", ""}));
  EXPECT_EQ(a.app->application_dir_path(), fs::canonical(a.dir.path()).string());
  EXPECT_EQ(a.app->application_name(), "tool");
  const application_fixture psn_first({"-psn_0_1", "@/archive.tar.gz"}, {"archive.tar.gz"});
  EXPECT_EQ(psn_first.app->arguments(), strings{psn_first.canonical("archive.tar.gz")});
  EXPECT_EQ(psn_first.app->application_name(), "archive.tar");  // only the last extension goes
  const application_fixture none({});
  EXPECT_EQ(none.app->arguments(), strings{});
  EXPECT_EQ(none.app->application_dir_path() + none.app->application_name(), "");
  EXPECT_EQ(log.entries(), std::vector<test::log_entry>{});

  const application_fixture missing({"@/nowhere/tool", "--flag"});
  const auto path = (missing.dir / "nowhere/tool").string();
  EXPECT_EQ(missing.app->arguments(), (strings{path, "--flag"}));
  EXPECT_EQ(
      log.entries(),
      (std::vector<test::log_entry>{{"error", "Impossible to find the canonical path for the argument #0 " +
                                                  path + ": No such file or directory"}}));
}

TEST(ApplicationCore, IdentityBelongsToTheNewestInstanceAndGoesWithIt) {
  test::log_capture log;  // the missing program paths are logged, not checked here
  EXPECT_EQ(application_core::instance(), nullptr);
  application_fixture first({"first"});
  {
    const application_fixture second({"second"});
    EXPECT_EQ(application_core::instance(), second.app.get());
    EXPECT_EQ(first.app->application_name(), "second");
    // Set through `first`, the identity lands in the instance, `second`.
    first.app->set_organization_name("studio");
    first.app->set_organization_domain("studio.example");
    first.app->set_application_name("editor");
    first.app->set_application_version("1.2");
    EXPECT_EQ(second.app->organization_name() + " " + second.app->organization_domain() + " " +
                  second.app->application_name() + " " + second.app->application_version(),
              "studio studio.example editor 1.2");
  }
  // With no instance the getters read nothing and the setters of the
  // application's own names are ignored, even though `first` is alive.
  EXPECT_EQ(application_core::instance(), nullptr);
  first.app->set_application_name("ignored");
  first.app->set_application_version("ignored");
  EXPECT_EQ(first.app->organization_name() + first.app->organization_domain() +
                first.app->application_name() + first.app->application_version(),
            "");
  EXPECT_EQ(first.app->arguments(), strings{"first"});
  // The organisation setters need an instance: without one they abort.
  EXPECT_DEATH(first.app->set_organization_name("studio"), "");
  EXPECT_DEATH(first.app->set_organization_domain("studio.example"), "");

  EXPECT_FALSE(first.app->should_exit());
  first.app->exit();
  first.app->restart();
  EXPECT_TRUE(first.app->should_exit());  // restart does not undo an exit
  first.app->reset_exit();
  first.app->restart();
  EXPECT_FALSE(first.app->should_exit());
}

TEST(ApplicationCore, PlatformAndModulePath) {
  utsname host{};
  ASSERT_EQ(::uname(&host), 0);
  // Built and run on the same machine here, so the two must agree.
  EXPECT_EQ(application_core::platform(), std::string("linux-") + host.machine);
  EXPECT_EQ(application_core::os() + "-" + application_core::arch(), application_core::platform());
  // From this executable: the program itself; from a shared library: that library.
  EXPECT_TRUE(fs::equivalent(module_path(), "/proc/self/exe"));
  EXPECT_EQ(fs::path(module_probe_path()).filename(), "libnorvane_module_probe.so");
}

// A derived application whose record carries a field of its own.
class counted_pimpl : public application_core_pimpl {
public:
  counted_pimpl(application_core* app, int& argc, char** argv, int& destroyed)
      : application_core_pimpl(app, argc, argv), destroyed_(destroyed) {}
  ~counted_pimpl() override { ++destroyed_; }

private:
  int& destroyed_;
};

TEST(ApplicationCore, DerivedApplicationHandsItsRecordToTheBase) {
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
}

}  // namespace
}  // namespace norvane
