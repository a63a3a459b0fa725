// The settings store when the file system works against it: a file-size
// limit, a full disk, directories it may not write, paths that are not
// plain files, files that disappear. Whatever fails, the failure is logged,
// the document stays marked modified, and the file that was there before
// is never lost or cut short. Faults that need a limit, a mount or fewer
// capabilities run in a child process.
#include "settings/scoped_env.hpp"
#include "support/fault_support.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/application.hpp>
#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

// "[level] message" per record, joined with " | ".
std::string logged(test::log_capture& log) {
  std::string text;
  for (const auto& entry : log.entries()) {
    text += (text.empty() ? "[" : " | [") + entry.level + "] " + entry.message;
  }
  return text;
}

std::string content(const fs::path& path) {
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(path, ec))) {
    return "<none>";
  }
  if (!std::ifstream(path).is_open()) {
    return "<unreadable>";
  }
  // Long documents by size alone, to keep failure messages readable.
  const auto text = test::read_file(path);
  return text.size() <= 200 ? text : "<" + std::to_string(text.size()) + " bytes>";
}

// Each test has its own configuration home and the identity studio/tool,
// so relative settings names live in <config home>/studio.tool.
class SettingsFault : public ::testing::Test {
protected:
  SettingsFault() : config_env_("XDG_CONFIG_HOME", config_home().c_str()) {
    char* argv[] = {program_.data(), nullptr};
    app_ = std::make_unique<application_core>(1, argv);
    app_->set_organization_name("studio");
    app_->set_application_name("tool");
  }

  fs::path config_home() const { return home_ / "config"; }
  fs::path config_dir() const { return config_home() / "studio.tool"; }
  fs::path file() const { return config_dir() / "s.json"; }
  void write_settings(const std::string& text) {
    fs::create_directories(config_dir());
    test::write_file(file(), text);
  }
  // Opens the store, sets "b" and syncs: what the read and the sync logged,
  // whether the store is still modified, then what `on_disk` reports.
  std::string open_set_and_sync(const std::function<std::string()>& on_disk) {
    test::log_capture log;
    settings s("s.json");
    std::string report = "read=" + logged(log);
    test::log_capture sync_log;
    s.set("b", "2");
    s.sync();
    report += " sync=" + logged(sync_log) + " modified=" + std::to_string(s.modified()) + on_disk();
    s.remove("b");
    return report;
  }

  test::temp_dir home_;
  test::scoped_env config_env_;
  std::string program_ = "/proc/self/exe";
  std::unique_ptr<application_core> app_;
};

TEST_F(SettingsFault, SyncPastAFileSizeLimitKeepsTheFileThatWasThere) {
  const std::string old_file = R"({"old":")" + std::string(100, 'o') + R"("})";
  const std::string failed = "modified=1 log=[error] Impossible to write in the settings file. file=";
  struct limit_case {
    const char* name;
    bool existing;
    std::size_t big;  // length of a string value written with the key n
    std::string after_sync;
    std::string after_destruction;  // written once the big value is removed
  };
  const limit_case cases[] = {
      {"an earlier file", true, 1000, failed + old_file + " dir=s.json s.json.lock",
       R"({"n":1,"old":")" + std::string(100, 'o') + R"("})"},
      {"no file yet", false, 1000,
       "modified=1 log=[error] Impossible to create the settings file. file=<none> dir=s.json.lock",
       R"({"n":1})"},
      {"a document within the limit", true, 50,
       R"(modified=0 log= file={"big":")" + std::string(50, 'b') + R"(","n":1,"old":")" +
           std::string(100, 'o') + R"("} dir=s.json s.json.lock)",
       R"({"n":1,"old":")" + std::string(100, 'o') + R"("})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(config_dir());
    if (c.existing) {
      write_settings(old_file);
    }
    const auto outcome = test::run_in_child([&] {
      test::limit_file_size(256);
      test::log_capture log;
      std::string report;
      {
        settings s("s.json");
        s.dictionary()["big"] = std::string(c.big, 'b');
        s.dictionary()["n"] = 1;
        s.set_modified();
        s.sync();
        report = "modified=" + std::to_string(s.modified()) + " log=" + logged(log) +
                 " file=" + content(file()) + " dir=" + test::directory_listing(config_dir());
        s.remove("big");
      }
      return report + "\n" + content(file());
    });
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.after_sync + "\n" + c.after_destruction);
  }
}

TEST_F(SettingsFault, SyncOnAFullFileSystemKeepsTheFileThenSucceedsOnceThereIsRoom) {
  fs::create_directories(config_dir());
  const auto outcome = test::run_in_child([&] {
    test::enter_private_mounts();
    test::mount_tmpfs(config_dir(), 64 * 1024);
    test::write_file(file(), R"({"keep":"k"})");
    test::fill_file_system(config_dir());
    test::log_capture log;
    settings s("s.json");
    s.dictionary()["new"] = std::string(10000, 'n');
    s.set_modified();
    s.sync();
    std::string report = "full: modified=" + std::to_string(s.modified()) + " log=" + logged(log) +
                         " file=" + content(file()) + " dir=" + test::directory_listing(config_dir());
    fs::remove(config_dir() / "filler");
    s.sync();
    const auto on_disk = json::parse(test::read_file(file()), nullptr, false);
    return report + "\nroom: modified=" + std::to_string(s.modified()) +
           " keys=" + std::to_string(on_disk.is_object() ? on_disk.size() : 0) +
           " keep=" + on_disk.value("keep", "") + " new=" + std::to_string(on_disk.value("new", "").size()) +
           " dir=" + test::directory_listing(config_dir());
  });
  if (outcome.could_not_set_up()) {
    GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
  }
  ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
  EXPECT_EQ(outcome.report,
            "full: modified=1 log=[error] Impossible to write in the settings file. file={\"keep\":\"k\"} "
            "dir=filler s.json s.json.lock\n"
            "room: modified=0 keys=2 keep=k new=10000 dir=s.json s.json.lock");
}

// Permission bits apply to the child (root gives up the capabilities that
// bypass them), so read-only directories and files are what they say.
TEST_F(SettingsFault, UnwritableDirectoriesAndFilesAreReportedAndLeftAlone) {
  constexpr auto r_x = fs::perms::owner_read | fs::perms::owner_exec;
  struct permission_case {
    const char* name;
    std::function<void()> arrange;
    std::string expected;
  };
  const permission_case cases[] = {
      // No lock file can be made there, and no file to rename over this one.
      {"a writable file in a read-only directory",
       [&] {
         write_settings(R"({"a":1})");
         fs::permissions(config_dir(), r_x);
       },
       R"(read= sync=[error] Impossible to write in the settings file. modified=1 file={"a":1} dir=s.json)"},
      {"a read-only file in a writable directory",
       [&] {
         write_settings(R"({"a":1})");
         fs::permissions(file(), fs::perms::owner_read);
       },
       R"(read= sync=[error] Impossible to write in the settings file. modified=1 file={"a":1} dir=s.json s.json.lock)"},
      {"a read-only file in a read-only directory",
       [&] {
         write_settings(R"({"a":1})");
         fs::permissions(file(), fs::perms::owner_read);
         fs::permissions(config_dir(), r_x);
       },
       R"(read= sync=[error] Impossible to write in the settings file. modified=1 file={"a":1} dir=s.json)"},
      {"no file in a read-only directory",
       [&] {
         fs::create_directories(config_dir());
         fs::permissions(config_dir(), r_x);
       },
       "read= sync=[error] Impossible to create the settings file. modified=1 file=<none> dir="},
      {"a configuration home where the directory cannot be made",
       [&] {
         fs::create_directories(config_home());
         fs::permissions(config_home(), r_x);
       },
       "read= sync=[error] Impossible to create the directory used for the settings.\n modified=1 "
       "file=<none> dir="},
      {"a file nobody may read",
       [&] {
         write_settings(R"({"a":1})");
         fs::permissions(file(), fs::perms::none);
       },
       "read=[error] Impossible to read in the settings file. sync=[error] Impossible to read in the "
       "settings file. | [error] Impossible to write in the settings file. modified=1 file=<unreadable> "
       "dir=s.json s.json.lock"},
  };
  const auto reset = [&] {
    std::error_code ec;
    fs::permissions(config_home(), fs::perms::owner_all, ec);
    fs::permissions(config_dir(), fs::perms::owner_all, ec);
    fs::remove_all(config_home(), ec);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    reset();
    c.arrange();
    const auto outcome = test::run_in_child([&] {
      test::obey_permission_bits();
      return open_set_and_sync(
          [&] { return " file=" + content(file()) + " dir=" + test::directory_listing(config_dir()); });
    });
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.expected);
    if (c.expected.find("<unreadable>") != std::string::npos) {
      fs::permissions(file(), fs::perms::owner_read);
      EXPECT_EQ(test::read_file(file()), R"({"a":1})");
    }
  }
  reset();
}

TEST_F(SettingsFault, PathsThatAreNotPlainFiles) {
  const auto elsewhere = home_ / "dotfiles";
  struct path_case {
    const char* name;
    std::function<void()> arrange;
    std::string expected;
  };
  const path_case cases[] = {
      {"a directory", [&] { fs::create_directories(file() / "inside"); },
       "read=[error] Exception thrown during settings reading: \"basic_filebuf::underflow error reading the "
       "file: Is a directory\". "
       "sync=[error] Exception thrown during settings reading: \"basic_filebuf::underflow error reading the "
       "file: Is a directory\". | "
       "[error] Impossible to write in the settings file. modified=1 dir=s.json s.json.lock "
       "kind=directory:inside"},
      // Reading sees no file (the link cannot be resolved); writing must not
      // replace the loop with a file of its own, nor spin on it.
      {"a symbolic link loop",
       [&] {
         fs::create_directories(config_dir());
         fs::create_symlink("loop.json", file());
         fs::create_symlink("s.json", config_dir() / "loop.json");
       },
       "read= sync=[error] Impossible to create the settings file. modified=1 dir=loop.json s.json "
       "s.json.lock "
       "kind=symlink:loop.json"},
      // Settings kept elsewhere (a dotfiles directory) stay where the link points.
      {"a link to a file elsewhere",
       [&] {
         fs::create_directories(config_dir());
         fs::create_directories(elsewhere);
         test::write_file(elsewhere / "s.json", R"({"a":1})");
         fs::create_symlink(elsewhere / "s.json", file());
       },
       R"(read= sync= modified=0 dir=s.json s.json.lock kind=symlink:)" + (elsewhere / "s.json").string() +
           R"( target={"a":1,"b":2})"},
      {"a dangling link",
       [&] {
         fs::create_directories(config_dir());
         fs::create_directories(elsewhere);
         fs::create_symlink("../../dotfiles/s.json", file());
       },
       R"(read= sync= modified=0 dir=s.json s.json.lock kind=symlink:../../dotfiles/s.json target={"b":2})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::error_code ec;
    fs::remove_all(config_home(), ec);
    fs::remove_all(elsewhere, ec);
    c.arrange();
    const auto outcome = test::run_in_child(
        [&] {
          return open_set_and_sync([&] {
            std::string report = " dir=" + test::directory_listing(config_dir());
            const auto status = fs::symlink_status(file());
            if (fs::is_symlink(status)) {
              report += " kind=symlink:" + fs::read_symlink(file()).string();
            } else if (fs::is_directory(status)) {
              report += " kind=directory:" + test::directory_listing(file());
            }
            if (fs::exists(elsewhere / "s.json")) {
              report += " target=" + test::read_file(elsewhere / "s.json");
            }
            return report;
          });
        },
        20);
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.expected);
  }
}

TEST_F(SettingsFault, FilesThatVanishBetweenSyncsComeBackWithEveryKey) {
  test::log_capture log;
  settings s("s.json");
  s.set("a", "1");
  s.sync();
  // Only the file goes, then the directory and everything above it.
  fs::remove(file());
  s.set("b", "2");
  s.sync();
  EXPECT_EQ(test::read_file(file()), R"({"a":1,"b":2})");
  fs::remove_all(config_home());
  s.set("c", "3");
  s.sync();
  EXPECT_EQ(test::read_file(file()), R"({"a":1,"b":2,"c":3})");
  // Nothing new to write, yet a sync puts the whole document back.
  fs::remove_all(config_home());
  s.sync();
  EXPECT_FALSE(s.modified());
  EXPECT_EQ(test::read_file(file()), R"({"a":1,"b":2,"c":3})");
  EXPECT_EQ(logged(log), "");
  EXPECT_EQ(test::directory_listing(config_dir()), "s.json s.json.lock");
}

}  // namespace
}  // namespace norvane
