#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/application.hpp>
#include <norvane/application_pimpl.hpp>

#include <gtest/gtest.h>

#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

// Defined in the probe library, so that module_path() is called from a
// shared library rather than from this executable.
std::string module_probe_path();

namespace norvane {
namespace {

namespace fs = std::filesystem;

// argv as main() receives it: mutable, NUL-terminated strings.
class argv_builder {
public:
  explicit argv_builder(std::vector<std::string> arguments) : storage_(std::move(arguments)) {
    for (auto& argument : storage_) {
      pointers_.push_back(argument.data());
    }
    pointers_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(storage_.size()); }
  char** argv() { return pointers_.data(); }

private:
  std::vector<std::string> storage_;
  std::vector<char*> pointers_;
};

// Runs a test body from inside a directory, for relative argument #0.
class current_directory {
public:
  explicit current_directory(const fs::path& path) : saved_(fs::current_path()) { fs::current_path(path); }
  ~current_directory() { fs::current_path(saved_); }

private:
  fs::path saved_;
};

TEST(ApplicationCore, FiltersProcessSerialNumbersAndCanonicalisesArgumentZero) {
  test::temp_dir dir;
  test::write_file(dir / "tool.bin", "");
  test::log_capture log;
  const current_directory cwd(dir.path());

  argv_builder args({"./tool.bin", "-psn_0_12345", "word", "-psn", "-psn_", "x-psn_1", ""});
  const application_core app(args.argc(), args.argv());

  const std::vector<std::string> expected{fs::canonical(dir / "tool.bin").string(), "word", "-psn", "x-psn_1",
                                          ""};
  EXPECT_EQ(app.arguments(), expected);
  EXPECT_EQ(app.application_dir_path(), fs::canonical(dir.path()).string());
  EXPECT_TRUE(log.entries().empty());
}

TEST(ApplicationCore, ProcessSerialNumberAsArgumentZeroIsDroppedToo) {
  test::temp_dir dir;
  test::write_file(dir / "tool", "");
  argv_builder args({"-psn_0_1", (dir / "tool").string()});
  const application_core app(args.argc(), args.argv());
  ASSERT_EQ(app.arguments().size(), 1u);
  EXPECT_EQ(app.arguments()[0], fs::canonical(dir / "tool").string());
}

TEST(ApplicationCore, MissingArgumentZeroIsKeptAndLoggedOnce) {
  test::temp_dir dir;
  test::log_capture log;
  const auto missing = (dir / "nowhere" / "tool").string();
  argv_builder args({missing, "--flag"});
  const application_core app(args.argc(), args.argv());

  EXPECT_EQ(app.arguments(), (std::vector<std::string>{missing, "--flag"}));
  const std::vector<test::log_entry> expected{
      {"error", "Impossible to find the canonical path for the argument #0 " + missing +
                    ": No such file or directory"}};
  EXPECT_EQ(log.entries(), expected);
}

TEST(ApplicationCore, EmptyCommandLineIsQuiet) {
  test::log_capture log;
  char* none[] = {nullptr};
  const application_core app(0, none);
  EXPECT_TRUE(app.arguments().empty());
  EXPECT_EQ(app.application_dir_path(), "");
  EXPECT_EQ(app.application_name(), "");
  EXPECT_TRUE(log.entries().empty());
}

TEST(ApplicationCore, InstanceIsTheNewestObjectAndAnyDestructionClearsIt) {
  EXPECT_EQ(application_core::instance(), nullptr);
  argv_builder args({"first"});
  test::log_capture log;  // the missing program paths are logged, not checked here
  application_core first(args.argc(), args.argv());
  EXPECT_EQ(application_core::instance(), &first);
  {
    application_core second(args.argc(), args.argv());
    EXPECT_EQ(application_core::instance(), &second);
    // The identity is the instance's: setting it through `first` lands in `second`.
    first.set_organization_name("studio");
    first.set_organization_domain("studio.example");
    first.set_application_version("1.2");
    EXPECT_EQ(second.organization_name(), "studio");
    EXPECT_EQ(second.organization_domain(), "studio.example");
    EXPECT_EQ(second.application_version(), "1.2");
  }
  EXPECT_EQ(application_core::instance(), nullptr);
  // With no instance the getters read nothing and the application setters
  // are ignored, even though `first` is alive.
  EXPECT_EQ(first.organization_name(), "");
  EXPECT_EQ(first.application_name(), "");
  first.set_application_name("ignored");
  first.set_application_version("ignored");
  EXPECT_EQ(first.application_name(), "");
  EXPECT_EQ(first.application_version(), "");
  // Its own arguments and exit flag still work.
  EXPECT_EQ(first.arguments(), std::vector<std::string>{"first"});
}

TEST(ApplicationCoreDeathTest, OrganisationSettersNeedAnInstance) {
  argv_builder args({"tool"});
  EXPECT_DEATH(
      {
        application_core app(args.argc(), args.argv());
        { application_core other(args.argc(), args.argv()); }
        app.set_organization_name("studio");
      },
      "");
  EXPECT_DEATH(
      {
        application_core app(args.argc(), args.argv());
        { application_core other(args.argc(), args.argv()); }
        app.set_organization_domain("studio.example");
      },
      "");
}

TEST(ApplicationCore, ApplicationNameIsTheStemOfArgumentZeroUntilSet) {
  test::temp_dir dir;
  test::write_file(dir / "tool.bin", "");
  argv_builder args({(dir / "tool.bin").string()});
  const application_core app(args.argc(), args.argv());
  EXPECT_EQ(app.application_name(), "tool");
  app.instance()->set_application_name("editor");
  EXPECT_EQ(app.application_name(), "editor");
  // Only the last extension goes: archive.tar.gz names "archive.tar".
  test::write_file(dir / "archive.tar.gz", "");
  argv_builder other({(dir / "archive.tar.gz").string()});
  const application_core second(other.argc(), other.argv());
  EXPECT_EQ(second.application_name(), "archive.tar");
}

TEST(ApplicationCore, PlatformNamesTheBuildTarget) {
  EXPECT_EQ(application_core::os(), "linux");
  utsname host{};
  ASSERT_EQ(::uname(&host), 0);
  // Built and run on the same machine here, so the two must agree.
  EXPECT_EQ(application_core::arch(), host.machine);
  EXPECT_EQ(application_core::platform(), std::string("linux-") + host.machine);
}

TEST(ApplicationCore, ExitFlagAndRestart) {
  argv_builder args({"tool"});
  test::log_capture log;
  application_core app(args.argc(), args.argv());
  EXPECT_FALSE(app.should_exit());
  app.exit();
  EXPECT_TRUE(app.should_exit());
  app.restart();
  EXPECT_TRUE(app.should_exit());
  app.reset_exit();
  EXPECT_FALSE(app.should_exit());
  app.restart();
  EXPECT_FALSE(app.should_exit());
  EXPECT_EQ(app.arguments(), std::vector<std::string>{"tool"});
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

class derived_application : public application_core {
public:
  derived_application(int argc, char** argv, int& destroyed)
      : application_core(*new counted_pimpl(this, argc, argv, destroyed)) {}
};

TEST(ApplicationCore, DerivedApplicationHandsItsRecordToTheBase) {
  test::temp_dir dir;
  test::write_file(dir / "derived", "");
  argv_builder args({(dir / "derived").string(), "-psn_9", "x"});
  int destroyed = 0;
  {
    derived_application app(args.argc(), args.argv(), destroyed);
    EXPECT_EQ(application_core::instance(), &app);
    EXPECT_EQ(app.arguments(), (std::vector<std::string>{fs::canonical(dir / "derived").string(), "x"}));
    EXPECT_EQ(app.application_name(), "derived");
  }
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(application_core::instance(), nullptr);
}

TEST(ModulePath, NamesTheImageOfTheCaller) {
  // From this executable: the test program itself.
  const auto here = module_path();
  ASSERT_FALSE(here.empty());
  EXPECT_TRUE(fs::equivalent(here, "/proc/self/exe"));
  // From a shared library: that library, not the executable and not ours.
  const auto probe = module_probe_path();
  EXPECT_EQ(fs::path(probe).filename(), "libnorvane_module_probe.so");
  EXPECT_TRUE(fs::exists(probe));
}

}  // namespace
}  // namespace norvane
