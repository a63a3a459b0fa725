// io_file and io_save_file when the system refuses, each case in a child that owns the limit or
// mount: growth ends in the bad bit, never a signal; a save leaves the old content or the new, whole.
#include "support/fault_support.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

namespace norvane {
namespace {

namespace fs = std::filesystem;

constexpr unsigned int in = io_device::in, out = io_device::out;
const long long page = ::sysconf(_SC_PAGESIZE);

std::string pattern(long long length, char seed) {
  std::string text;
  for (long long i = 0; i < length; ++i) text += static_cast<char>(seed + i % 23);
  return text;
}

std::string pages(long long bytes) {
  return std::to_string(bytes / page) + "p" + (bytes % page != 0 ? "+" + std::to_string(bytes % page) : "");
}

TEST(IoFileFault, GrowthPastAFileSizeLimitStopsAtTheLastWholePageAndKeepsWorking) {
  const struct {
    long long existing;  // bytes of an earlier file, opened in|out; 0: a new file
    long long before;    // bytes written from the start, within the limit
    long long limit, offset, length;
    std::string kept;  // the pages mapped and on disk after the failed write
  } cases[] = {
      {0, page + 50, 3 * page + 100, page + 50, 6 * page, "3p"},
      {0, 10, page + 50, page - 10, 100, "1p"},
      {0, 100, 8 * page, 100, 64 * 1024, "8p"},  // large copies take pwrite, not the mapping
      {0, page + 50, 256 * page, 1LL << 30, 10, "256p"},
      {page + 7, 20, 3 * page, page + 7, 3 * page, "2p+7"},
      // No first page for a new file: the open unwinds to a closed device, and its close went well.
      {0, 0, 100, 0, 10, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kept);
    test::temp_dir dir;
    const auto path = dir / "limited.bin";
    const auto existing = pattern(c.existing, 'e');
    const auto written = pattern(c.before, 'w');
    test::write_file(path, existing);
    const auto outcome = test::run_in_child([&] {
      test::limit_file_size(static_cast<rlim_t>(c.limit));
      io_file file;
      file.open(path, c.existing > 0 ? in | out : out);
      if (!file.is_open()) {
        return "open=" + std::to_string(file.state()) + (file.data() == nullptr ? " closed" : " mapped");
      }
      file.write(written.data(), static_cast<long>(written.size()));
      const auto before = file.state();
      file.seek(c.offset, std::ios_base::beg);
      const auto crossing = pattern(c.length, 'x');
      file.write(crossing.data(), static_cast<long>(crossing.size()));
      auto report = "crossing=" + std::to_string(file.state() | before << 4) +
                    " mapped=" + pages(file.size()) +
                    " disk=" + pages(static_cast<long long>(fs::file_size(path))) +
                    " tell=" + std::to_string(file.tell());
      file.clear(0);  // the mapping is intact and the device keeps working within it
      file.seek(0, std::ios_base::beg);
      file.write(written.data(), static_cast<long>(written.size()));
      report += " within=" + std::to_string(file.state());
      file.close();
      return report + " closed=" + std::to_string(file.state());
    });
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.kept.empty() ? "open=0 closed"
                                             : "crossing=1 mapped=" + c.kept + " disk=" + c.kept +
                                                   " tell=-1 within=0 closed=0");
    auto expected = existing;
    expected.resize(std::max(existing.size(), written.size()));
    EXPECT_EQ(test::read_file(path), expected.replace(0, written.size(), written));
  }
}

// A file mapped past its end on tmpfs gets SIGBUS when a page it touches
// cannot be allocated; the device has to find that out before it copies.
TEST(IoFileFault, FullAndReadOnlyFileSystemsFailWithoutASignal) {
  const struct {
    long long chunk;   // written repeatedly until the device fails; 0: read-only
    long long offset;  // where writing starts
    const char* expected;
  } cases[] = {
      {1000, 0, "state=1 closed=0 kept"},
      {40000, 0, "state=1 closed=0 kept"},        // mapping, pwrite
      {1000, 1 << 20, "state=1 closed=0 wrote"},  // far past the end the hole stays a hole
      {0, 0, "4 closed 4 closed 4 closed data 0 existing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    test::temp_dir dir;
    const auto outcome = test::run_in_child([&] {
      test::enter_private_mounts();
      test::mount_tmpfs(dir.path(), 64 * 1024);
      std::string report;
      if (c.chunk == 0) {  // a read-only file system refuses writable opens only
        test::write_file(dir / "existing", "data");
        test::remount_read_only(dir.path());
        for (const auto& [name, mode] : {std::pair{"new", out}, {"existing", out}, {"existing", in | out}}) {
          io_file file;
          file.open(dir / name, mode);
          report += std::to_string(file.state()) + (file.is_open() ? " open " : " closed ");
        }
        io_file reader;
        reader.open(dir / "existing", in);
        std::string back(4, '\0');
        reader.read(back.data(), 4);
        return report + back + " " + std::to_string(reader.state()) + " " +
               test::directory_listing(dir.path());
      }
      const auto text = pattern(512 * 1024, 'g');
      long long done = 0;
      io_file file;
      file.open(dir / "grown.bin", out);
      file.seek(c.offset, std::ios_base::beg);
      while (file.is_good() && done + c.chunk <= static_cast<long long>(text.size())) {
        file.write(text.data() + done, static_cast<long>(c.chunk));
        done += file.is_good() ? c.chunk : 0;
      }
      report = "state=" + std::to_string(file.state());
      file.clear(0);
      file.close();
      report += " closed=" + std::to_string(file.state());
      // What fitted before the disk filled up is all there, and only that.
      const auto kept = test::read_file(dir / "grown.bin") == text.substr(0, static_cast<std::size_t>(done));
      return report + (done == 0       ? " wrote nothing"
                       : c.offset != 0 ? " wrote"
                       : kept          ? " kept"
                                       : " lost some");
    });
    if (outcome.could_not_set_up()) GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.expected);
  }
}

// In a child obeying permission bits: what the device reported and logged, the target and its directory.
TEST(IoSaveFile, CommitReplacesWholeOrLeavesTheTargetAsItWas) {
  test::temp_dir dir;
  const auto target = dir / "doc.txt";
  const std::string old_text = "old content\n", new_text(3000, 'n');
  enum class end { commit, cancel, destroy };
  const auto then = [&](std::function<void()> more) {
    return [&, more] {
      test::write_file(target, old_text);
      ::chmod(target.c_str(), 0640);
      more();
      return target;
    };
  };
  const auto existing = then([] {});
  const struct {
    std::function<fs::path()> arrange;  // returns the path to open
    end how;
    std::string expected;
  } cases[] = {
      {existing, end::commit, "open=0 write=0 end=1/0 log= target=3000n mode=416 dir=doc.txt"},
      {[&] { return target; }, end::commit, "open=0 write=0 end=1/0 log= target=3000n mode=420 dir=doc.txt"},
      {existing, end::cancel, "open=0 write=0 end=0/0 log= target=old mode=416 dir=doc.txt"},
      {existing, end::destroy, "open=0 write=0 end=0/0 log= target=old mode=416 dir=doc.txt"},
      {[&] { return then([&] { fs::create_symlink("doc.txt", dir / "link"); })().parent_path() / "link"; },
       end::commit, "open=0 write=0 end=1/0 log= target=3000n mode=416 dir=doc.txt link"},
      {[&] { return dir / "none" / "doc.txt"; }, end::commit,
       "open=4 write=4 end=0/4 log=(creating the new file beside it): No such file or directory. target=none "
       "mode=- dir="},
      {[&] { return fs::create_directory(target) ? target : fs::path(); }, end::commit,
       "open=4 write=4 end=0/4 log=(it is a directory): Is a directory. target=none mode=493 dir=doc.txt"},
      {then([&] { fs::permissions(dir.path(), fs::perms::owner_read | fs::perms::owner_exec); }), end::commit,
       "open=4 write=4 end=0/4 log=(creating the new file beside it): Permission denied. target=old mode=416 "
       "dir=doc.txt"},
      {then([&] { ::chmod(target.c_str(), 0440); }), end::commit,
       "open=4 write=4 end=0/4 log=(opening it for writing): Permission denied. target=old mode=288 "
       "dir=doc.txt"},
      {then([] { test::limit_file_size(1024); }), end::commit,
       "open=0 write=1 end=0/1 log=(writing the new file): File too large. target=old mode=416 dir=doc.txt"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    std::error_code ec;
    fs::permissions(dir.path(), fs::perms::owner_all, ec);
    fs::remove_all(target, ec);
    fs::remove(dir / "link", ec);
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
        const bool committed = c.how == end::commit && file.commit();
        if (c.how == end::cancel) file.cancel();
        report += " end=" + std::to_string(committed) + "/" + std::to_string(file.state());
      }
      const auto logged = log.text();  // from the case's own path on
      struct stat st {};
      const auto text = test::read_file(target);
      return report + " log=" + (logged.empty() ? "" : logged.substr(logged.find(" (") + 1)) + " target=" +
             (text == old_text   ? "old"
              : text == new_text ? "3000n"
              : text.empty()     ? "none"
                                 : text) +
             " mode=" + (::stat(target.c_str(), &st) == 0 ? std::to_string(st.st_mode & 0777) : "-") +
             " dir=" + test::directory_listing(dir.path());
    });
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(outcome.report, c.expected);
  }
}

TEST(IoSaveFile, PositionsSizeAndReuse) {
  test::temp_dir dir;
  test::log_capture log;
  io_save_file file;
  file.open(dir / "doc", in | out);
  EXPECT_EQ(file.state(), io_device::failbit);
  EXPECT_EQ(log.text(),
            "[error] Cannot save \"" + (dir / "doc").string() + "\": a save file opens with mode out only.");
  for (const std::string text : {"a longer first content", "short"}) {
    file.clear(0);
    file.open(dir / "doc");
    file.write(text.data(), static_cast<long>(text.size()));
    file.seek(0, std::ios_base::beg);
    file.write("S", 1);  // a write inside keeps the size
    file.seek(-1, std::ios_base::end);
    EXPECT_EQ(file.tell(), static_cast<long long>(text.size()) - 1);
    EXPECT_TRUE(file.commit());
    EXPECT_EQ(test::read_file(dir / "doc"), "S" + text.substr(1));
  }
  file.read(nullptr, 1);
  EXPECT_EQ(file.state(), io_device::eofbit | io_device::failbit);
}

// A writer killed at a random moment of its saves: each content is one letter repeated, its length
// set by the letter, so a partial or mixed file shows.
TEST(IoSaveFile, AWriterKilledAtRandomLeavesACompleteContent) {
  test::temp_dir dir;
  const auto target = dir / "doc";
  const auto content = [](int i) {
    return std::string(1000 + 3000 * (i % 7), static_cast<char>('a' + i % 7));
  };
  test::write_file(target, content(0));
  std::mt19937 random(20261123);
  for (int round = 0; round < 200; ++round) {
    const auto after = std::uniform_int_distribution<suseconds_t>(1, 3000)(random);
    const auto outcome = test::run_in_child([&]() -> std::string {
      std::signal(SIGALRM, SIG_DFL);  // the timer then ends the process on the spot, like a kill
      const itimerval timer{{0, 0}, {0, after}};
      ::setitimer(ITIMER_REAL, &timer, nullptr);
      for (int i = 1;; ++i) {
        io_save_file file;
        file.open(target);
        const auto text = content(i);
        const auto half = static_cast<long>(text.size() / 2);
        file.write(text.data(), half);
        file.write(text.data() + half, static_cast<long>(text.size()) - half);
        file.commit();
      }
    });
    ASSERT_EQ(outcome.signal, SIGALRM) << outcome.describe();
    const auto text = test::read_file(target);
    ASSERT_EQ(text, content(text.empty() ? 1 : text[0] - 'a')) << "round " << round;
  }
}

}  // namespace
}  // namespace norvane
