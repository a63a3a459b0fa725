// The settings store when the file system works against it: a file-size
// limit, a full disk, directories it may not write, paths that are not plain
// files, files that disappear. Whatever fails is logged, the document stays
// marked modified, and the file that was there is never lost or cut short.
#include "settings/settings_fixture.hpp"
#include "support/fault_support.hpp"

#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <fstream>
#include <functional>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using test::logged;

class SettingsFault : public test::settings_fixture {};

TEST_F(SettingsFault, FailedSyncsKeepTheFileAndTheModifiedMark) {
  const auto elsewhere = home_ / "dotfiles";
  const std::string old = R"({"old":")" + std::string(100, 'o') + R"("})";
  const auto existing = [&] { write_settings(old); };
  const auto permissions = [&](const fs::path& path, fs::perms p) {
    return [this, path, p, old] {
      write_settings(old);
      fs::permissions(path, p);
    };
  };
  const auto r_x = fs::perms::owner_read | fs::perms::owner_exec;
  const auto no_fault = [] {};
  const auto limit = [] { test::limit_file_size(256); };
  const auto obey = [] { test::obey_permission_bits(); };
  const std::string big = '"' + std::string(1000, 'b') + '"';
  const std::string cannot_write = "[error] Impossible to write in the settings file.";
  struct fault_case {
    const char* name;
    std::function<void()> arrange, in_child;  // arrange runs in the parent
    std::string value;                        // set under the key b, then 3 before the last sync
    std::string expected;
  };
  const fault_case cases[] = {
      {"past a size limit", existing, limit, big,
       "read= sync=" + cannot_write + " modified=1 file=" + old + " dir=s.json s.json.lock\n" +
           R"({"b":3,"old":")" + std::string(100, 'o') + R"("})"},
      {"past a size limit, no file yet", no_fault, limit, big,
       "read= sync=[error] Impossible to create the settings file. modified=1 file=<none> dir=s.json.lock\n"
       R"({"b":3})"},
      {"within a size limit", existing, limit, "\"" + std::string(50, 'b') + "\"",
       R"(read= sync= modified=0 file={"b":")" + std::string(50, 'b') + R"(","old":")" +
           std::string(100, 'o') + R"("} dir=s.json s.json.lock)" + "\n" + R"({"b":3,"old":")" +
           std::string(100, 'o') + R"("})"},
      {"a file in a read-only directory", permissions(config_dir(), r_x), obey, "2",
       "read= sync=" + cannot_write + " modified=1 file=" + old + " dir=s.json\n" + old},
      {"a read-only file", permissions(file(), fs::perms::owner_read), obey, "2",
       "read= sync=" + cannot_write + " modified=1 file=" + old + " dir=s.json s.json.lock\n" + old},
      {"no file in a read-only directory",
       [&] {
         fs::create_directories(config_dir());
         fs::permissions(config_dir(), r_x);
       },
       obey, "2",
       "read= sync=[error] Impossible to create the settings file. modified=1 file=<none> dir=\n<none>"},
      {"a configuration home where the directory cannot be made",
       [&] {
         fs::create_directories(config_home());
         fs::permissions(config_home(), r_x);
       },
       obey, "2",
       "read= sync=[error] Impossible to create the directory used for the settings.\n modified=1 "
       "file=<none> "
       "dir=\n<none>"},
      {"a file nobody may read", permissions(file(), fs::perms::none), obey, "2",
       "read=[error] Impossible to read in the settings file. sync=[error] Impossible to read in the "
       "settings "
       "file. | " +
           cannot_write + " modified=1 file=<unreadable> dir=s.json s.json.lock\n<unreadable>"},
      {"a directory", [&] { fs::create_directories(file() / "inside"); }, no_fault, "2",
       "read=[error] Exception thrown during settings reading: \"basic_filebuf::underflow error reading the "
       "file: Is a directory\". sync=[error] Exception thrown during settings reading: \"basic_filebuf::"
       "underflow error reading the file: Is a directory\". | " +
           cannot_write + " modified=1 file= dir=s.json s.json.lock\n"},
      // Reading sees no file; writing must neither replace the loop nor spin on it.
      {"a symbolic link loop",
       [&] {
         fs::create_directories(config_dir());
         fs::create_symlink("loop.json", file());
         fs::create_symlink("s.json", file("loop.json"));
       },
       no_fault, "2",
       "read= sync=[error] Impossible to create the settings file. modified=1 file=<unreadable> "
       "dir=loop.json "
       "s.json s.json.lock\n<unreadable>"},
      // Settings kept elsewhere (a dotfiles directory) stay where the link points.
      {"a link to a file elsewhere",
       [&] {
         fs::create_directories(elsewhere);
         write_settings(R"({"a":1})");
         fs::rename(file(), elsewhere / "s.json");
         fs::create_symlink(elsewhere / "s.json", file());
       },
       no_fault, "2",
       R"(read= sync= modified=0 file={"a":1,"b":2} dir=s.json s.json.lock)"
       "\n"
       R"({"a":1,"b":3})"},
      {"a dangling link",
       [&] {
         fs::create_directories(config_dir());
         fs::create_directories(elsewhere);
         fs::create_symlink("../../dotfiles/s.json", file());
       },
       no_fault, "2", "read= sync= modified=0 file={\"b\":2} dir=s.json s.json.lock\n{\"b\":3}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const auto& dir : {config_home(), config_dir()}) {
      std::error_code ec;
      fs::permissions(dir, fs::perms::owner_all, ec);
    }
    fs::remove_all(config_home());
    fs::remove_all(elsewhere);
    c.arrange();
    const auto outcome = test::run_in_child(
        [&] {
          c.in_child();
          const auto content = [&] {
            if (!fs::exists(fs::symlink_status(file()))) {
              return std::string("<none>");
            }
            return std::ifstream(file()).is_open() ? test::read_file(file()) : "<unreadable>";
          };
          std::string report;
          {
            test::log_capture log;
            settings s("s.json");
            report = "read=" + logged(log);
            test::log_capture sync_log;
            s.set("b", c.value);
            s.sync();
            report += " sync=" + logged(sync_log) + " modified=" + std::to_string(s.modified()) +
                      " file=" + content() + " dir=" + test::directory_listing(config_dir());
            s.set("b", "3");
          }
          return report + "\n" + content();
        },
        20);
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.expected);
  }
}

TEST_F(SettingsFault, SyncOnAFullFileSystemSucceedsOnceThereIsRoom) {
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
    std::string report = logged(log) + " modified=" + std::to_string(s.modified()) + " " +
                         test::read_file(file()) + " " + test::directory_listing(config_dir());
    fs::remove(config_dir() / "filler");
    s.sync();
    return report + "\nmodified=" + std::to_string(s.modified()) + " " +
           std::to_string(test::read_file(file()).size()) + " " + test::directory_listing(config_dir());
  });
  if (outcome.could_not_set_up()) {
    GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
  }
  ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
  EXPECT_EQ(outcome.report,
            "[error] Impossible to write in the settings file. modified=1 {\"keep\":\"k\"} filler s.json "
            "s.json.lock\nmodified=0 10021 s.json s.json.lock");
}

TEST_F(SettingsFault, FilesThatVanishBetweenSyncsComeBackWithEveryKey) {
  test::log_capture log;
  settings s("s.json");
  s.set("a", "1");
  s.sync();
  fs::remove(file());
  s.set("b", "2");
  s.sync();
  EXPECT_EQ(test::read_file(file()), R"({"a":1,"b":2})");
  // Nothing new to write, yet a sync puts the whole document and its
  // directories back.
  fs::remove_all(config_home());
  s.sync();
  EXPECT_FALSE(s.modified());
  EXPECT_EQ(test::read_file(file()), R"({"a":1,"b":2})");
  EXPECT_EQ(logged(log), "");
}

}  // namespace
}  // namespace norvane
