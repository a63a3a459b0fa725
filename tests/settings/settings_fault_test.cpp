// The settings store when the file system works against it: whatever fails
// is logged, the document stays marked modified, and the file that was there
// is never lost or cut short.
#include "settings/settings_fixture.hpp"
#include "support/fault_support.hpp"

#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <fstream>
#include <functional>

namespace norvane {
namespace {

namespace fs = std::filesystem;

class SettingsFault : public test::settings_fixture {
protected:
  std::string content() const {
    if (!fs::exists(fs::symlink_status(file()))) return "<none>";
    return std::ifstream(file()).is_open() ? test::read_file(file()) : "<unreadable>";
  }
};

TEST_F(SettingsFault, FailedSyncsKeepTheFileAndTheModifiedMark) {
  const auto elsewhere = home_ / "dotfiles";
  const std::string old = R"({"old":")" + std::string(300, 'o') + R"("})";
  const auto obey = [] { test::obey_permission_bits(); };
  const std::string no_write = "[error] Impossible to write in the settings file.",
                    no_read = "[error] Impossible to read in the settings file.",
                    is_dir =
                        "[error] Exception thrown during settings reading: \"basic_filebuf::underflow error "
                        "reading the file: Is "
                        "a directory\".";
  const struct {
    std::function<void()> arrange, in_child;  // arrange runs in the parent
    std::string expected;  // after a first sync of b: 2, then the file after a last one of b: 3
  } cases[] = {
      {[&] { write_settings(old); }, [] { test::limit_file_size(256); },
       "read= sync=" + no_write + " modified=1 file=" + old + " dir=s.json s.json.lock\n" + old},
      {[&] {  // the lock file cannot be made either
         write_settings(old);
         fs::permissions(config_dir(), fs::perms::owner_read | fs::perms::owner_exec);
       },
       obey, "read= sync=" + no_write + " modified=1 file=" + old + " dir=s.json\n" + old},
      {[&] { write_settings(old), fs::permissions(file(), fs::perms::none); }, obey,
       "read=" + no_read + " sync=" + no_read + " | " + no_write +
           " modified=1 file=<unreadable> dir=s.json s.json.lock\n<unreadable>"},
      {[&] { fs::create_directories(file() / "inside"); }, [] {},
       "read=" + is_dir + " sync=" + is_dir + " | " + no_write +
           " modified=1 file= dir=s.json s.json.lock\n"},
      // Reading sees no file; writing must neither replace the loop nor spin on it.
      {[&] {
         fs::create_directories(config_dir());
         fs::create_symlink("loop.json", file());
         fs::create_symlink("s.json", file("loop.json"));
       },
       [] {},
       "read= sync=[error] Impossible to create the settings file. modified=1 file=<unreadable> "
       "dir=loop.json "
       "s.json s.json.lock\n<unreadable>"},
      // Settings kept elsewhere (a dotfiles directory) stay where the link points.
      {[&] {
         fs::create_directories(elsewhere);
         test::write_file(elsewhere / "s.json", R"({"old":1})");
         fs::create_symlink(elsewhere / "s.json", file());
       },
       [] {}, "read= sync= modified=0 file={\"b\":2,\"old\":1} dir=s.json s.json.lock\n{\"b\":3,\"old\":1}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    std::error_code ec;
    fs::permissions(config_dir(), fs::perms::owner_all, ec);
    fs::remove_all(config_home());
    fs::remove_all(elsewhere);
    fs::create_directories(config_dir());
    c.arrange();
    const auto outcome = test::run_in_child([&] {
      c.in_child();
      std::string report;
      {
        test::log_capture read_log;
        settings s("s.json");
        report = "read=" + read_log.text();
        test::log_capture sync_log;
        s.set("b", "2");
        s.sync();
        report += " sync=" + sync_log.text() + " modified=" + std::to_string(s.modified()) +
                  " file=" + content() + " dir=" + test::directory_listing(config_dir());
        s.set("b", "3");
      }
      return report + "\n" + content();
    });
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
    const auto state = [&] {
      return " modified=" + std::to_string(s.modified()) + " " + test::directory_listing(config_dir());
    };
    auto report = log.text() + state() + " " + content();
    fs::remove(config_dir() / "filler");
    s.sync();
    return report + "\n" + state() + " " + std::to_string(content().size());
  });
  if (outcome.could_not_set_up()) GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
  ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
  EXPECT_EQ(outcome.report,
            "[error] Impossible to write in the settings file. modified=1 filler s.json s.json.lock "
            "{\"keep\":\"k\"}\n modified=0 s.json s.json.lock 10021");
}

TEST_F(SettingsFault, FilesThatVanishBetweenSyncsComeBackWithEveryKey) {
  test::log_capture log;
  settings s("s.json");
  s.set("a", "1");
  s.sync();
  fs::remove(file());
  s.set("b", "2");
  s.sync();
  EXPECT_EQ(content(), R"({"a":1,"b":2})");
  fs::remove_all(config_home());
  s.sync();  // nothing new to write, yet the whole document and its directories come back
  EXPECT_EQ(std::pair(s.modified(), content()), std::pair(false, std::string(R"({"a":1,"b":2})")));
  EXPECT_EQ(log.text(), "");
}

}  // namespace
}  // namespace norvane
