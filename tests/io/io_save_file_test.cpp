// io_save_file: the target holds its old content or the new one, whole,
// whatever fails and whenever the writer dies.
#include "io/io_test_util.hpp"
#include "support/fault_support.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <random>
#include <string>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using namespace test_bits;

std::string mode_of(const fs::path& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? std::to_string(st.st_mode & 0777) : "-";
}

// Each case runs in a child that obeys permission bits: what the device
// reported, what was logged, then the target and its directory.
TEST(IoSaveFile, CommitReplacesWholeOrLeavesTheTargetAsItWas) {
  test::temp_dir dir;
  const auto target = dir / "doc.txt";
  const std::string old_text = "old content\n";
  const std::string new_text(3000, 'n');
  enum class end { commit, cancel, destroy };
  struct save_case {
    const char* name;
    std::function<fs::path()> arrange;  // returns the path to open
    end how;
    std::string expected;
  };
  const auto existing = [&] {
    test::write_file(target, old_text);
    ::chmod(target.c_str(), 0640);
    return target;
  };
  const save_case cases[] = {
      {"commit over an existing file keeps its mode", existing, end::commit,
       "open=0 write=0 end=1/0 log= target=3000n mode=416 dir=doc.txt"},
      {"commit creates a missing file", [&] { return target; }, end::commit,
       "open=0 write=0 end=1/0 log= target=3000n mode=420 dir=doc.txt"},
      {"cancel", existing, end::cancel, "open=0 write=0 end=0/0 log= target=old mode=416 dir=doc.txt"},
      {"destruction without commit", existing, end::destroy,
       "open=0 write=0 end=0/0 log= target=old mode=416 dir=doc.txt"},
      {"through a link, which stays a link",
       [&] {
         existing();
         fs::create_symlink("doc.txt", dir / "link");
         return dir / "link";
       },
       end::commit, "open=0 write=0 end=1/0 log= target=3000n mode=416 dir=doc.txt link"},
      {"a missing directory", [&] { return dir / "none" / "doc.txt"; }, end::commit,
       "open=4 write=4 end=0/4 log=(creating the new file beside it): No such file or directory. target=none "
       "mode=- dir="},
      {"a directory as target",
       [&] {
         fs::create_directory(target);
         return target;
       },
       end::commit,
       "open=4 write=4 end=0/4 log=(it is a directory): Is a directory. target=none mode=493 dir=doc.txt"},
      {"a read-only directory",
       [&] {
         existing();
         fs::permissions(dir.path(), fs::perms::owner_read | fs::perms::owner_exec);
         return target;
       },
       end::commit,
       "open=4 write=4 end=0/4 log=(creating the new file beside it): Permission denied. target=old mode=416 "
       "dir=doc.txt"},
      {"a read-only target",
       [&] {
         existing();
         ::chmod(target.c_str(), 0440);
         return target;
       },
       end::commit,
       "open=4 write=4 end=0/4 log=(opening it for writing): Permission denied. target=old mode=288 "
       "dir=doc.txt"},
      {"a file-size limit",
       [&] {
         test::limit_file_size(1024);
         return existing();
       },
       end::commit,
       "open=0 write=1 end=0/1 log=(writing the new file): File too large. target=old mode=416 dir=doc.txt"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::error_code ec;
    fs::permissions(dir.path(), fs::perms::owner_all, ec);
    fs::remove_all(target, ec);
    fs::remove(dir / "link", ec);
    fs::remove_all(dir / "none", ec);
    const auto outcome = test::run_in_child([&] {
      test::obey_permission_bits();
      ::umask(022);
      const auto path = c.arrange();
      test::log_capture log;
      std::string report;
      {
        io_save_file file;
        file.open(path);
        report = "open=" + std::to_string(file.state());
        file.write(new_text.data(), 1000);
        file.write(new_text.data(), 2000);
        report += " write=" + std::to_string(file.state());
        bool committed = false;
        if (c.how == end::commit) {
          committed = file.commit();
        } else if (c.how == end::cancel) {
          file.cancel();
        }
        report += " end=" + std::to_string(committed) + "/" + std::to_string(file.state());
      }
      std::string logged;
      for (const auto& entry : log.entries()) {
        // The path at the start of the line is the case's own.
        logged += entry.message.substr(entry.message.find(" ("));
      }
      const auto text = test::read_file(target);
      return report + " log=" + logged.substr(logged.empty() ? 0 : 1) + " target=" +
             (text == old_text   ? "old"
              : text == new_text ? "3000n"
              : text.empty()     ? "none"
                                 : text) +
             " mode=" + mode_of(target) + " dir=" + test::directory_listing(dir.path());
    });
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.expected);
  }
}

// A writer killed at a random moment of its saves: each content is one
// letter repeated, its length set by the letter, so a partial or mixed file
// shows.
TEST(IoSaveFile, AWriterKilledAtRandomLeavesACompleteContent) {
  test::temp_dir dir;
  const auto target = dir / "doc";
  const auto content = [](int i) {
    return std::string(1000 + 3000 * (i % 7), static_cast<char>('a' + i % 7));
  };
  test::write_file(target, content(0));
  std::mt19937 random(20261123);
  for (int round = 0; round < 200; ++round) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      for (int i = 1;; ++i) {
        io_save_file file;
        file.open(target);
        const auto text = content(i);
        file.write(text.data(), static_cast<long>(text.size() / 2));
        file.write(text.data() + text.size() / 2, static_cast<long>(text.size() - text.size() / 2));
        file.commit();
      }
    }
    ::usleep(std::uniform_int_distribution<useconds_t>(0, 3000)(random));
    ::kill(pid, SIGKILL);
    ASSERT_EQ(::waitpid(pid, nullptr, 0), pid);
    const auto text = test::read_file(target);
    ASSERT_FALSE(text.empty()) << "round " << round;
    ASSERT_EQ(text, content(text[0] - 'a')) << "round " << round;
  }
}

}  // namespace
}  // namespace norvane
