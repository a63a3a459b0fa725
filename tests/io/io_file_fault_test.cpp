// io_file when the system refuses room: a file-size limit, a full file
// system, a read-only one. Growth must end in the bad bit with everything
// written before it still in the file, never in a signal that kills the
// application. Each case runs in a child that owns the limit or the mount.
#include "support/fault_support.hpp"
#include "support/test_support.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

namespace norvane {
namespace {

namespace fs = std::filesystem;

constexpr unsigned int in = io_device::in;
constexpr unsigned int out = io_device::out;

const long long page = ::sysconf(_SC_PAGESIZE);

std::string pattern(long long length, char seed) {
  std::string text(static_cast<std::size_t>(length), '\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char>(seed + static_cast<char>(i % 23));
  }
  return text;
}

std::string on_disk(const fs::path& path) {
  std::error_code ec;
  const auto size = fs::file_size(path, ec);
  return ec ? "missing" : std::to_string(size);
}

// Writes `text` and, when the device stays good, reads it back from a fresh
// device after closing: true when every byte came back.
bool reads_back(const fs::path& path, const std::string& text) {
  io_file reader;
  reader.open(path, in);
  std::string back(text.size(), '\0');
  if (!text.empty()) {
    reader.read(back.data(), static_cast<long>(back.size()));
  }
  return reader.is_good() && back == text && fs::file_size(path) == text.size();
}

struct limit_case {
  const char* name;
  long long existing;  // bytes of an earlier file, opened in|out; 0: a new file
  long long before;    // bytes written from the start, within the limit
  long long limit;     // RLIMIT_FSIZE
  long long offset;    // where the write that crosses the limit starts
  long long length;
  long long reached;  // the mapped length growth stops at: whole pages below the limit
};

TEST(IoFileFault, GrowthPastAFileSizeLimitFailsAndKeepsWhatWasWritten) {
  const long long mib = 1 << 20;
  const limit_case cases[] = {
      {"a small write a page past the limit", 0, page + 50, 3 * page + 100, page + 50, 3 * page, 3 * page},
      // Large copies go through pwrite rather than the mapping.
      {"a large write", 0, 100, 8 * page, 100, 64 * 1024, 8 * page},
      {"a write far beyond the reserved address range", 0, page + 50, mib, 1024 * mib, 10, mib},
      {"an earlier file of a page and a bit", page + 7, 20, 3 * page, page + 7, 3 * page, 2 * page + 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::temp_dir dir;
    const auto path = dir / "limited.bin";
    const auto existing = pattern(c.existing, 'e');
    const auto written = pattern(c.before, 'w');
    if (c.existing > 0) {
      test::write_file(path, existing);
    }
    const auto outcome = test::run_in_child([&] {
      test::limit_file_size(static_cast<rlim_t>(c.limit));
      io_file file;
      file.open(path, c.existing > 0 ? in | out : out);
      file.write(written.data(), static_cast<long>(written.size()));
      std::string report = "before=" + std::to_string(file.state());
      file.seek(c.offset, std::ios_base::beg);
      const auto crossing = pattern(c.length, 'x');
      file.write(crossing.data(), static_cast<long>(crossing.size()));
      report += " crossing=" + std::to_string(file.state()) + " mapped=" + std::to_string(file.size()) +
                " disk=" + on_disk(path);
      file.clear(0);
      file.close();
      return report + " closed=" + std::to_string(file.state());
    });
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    const auto reached = std::to_string(c.reached);
    EXPECT_EQ(outcome.report, "before=0 crossing=1 mapped=" + reached + " disk=" + reached + " closed=0");
    auto expected = existing;
    expected.resize(std::max(existing.size(), written.size()));
    expected.replace(0, written.size(), written);
    EXPECT_EQ(test::read_file(path), expected);
  }
}

// A file mapped past its end on tmpfs gets SIGBUS when a page it touches
// cannot be allocated; the device has to find that out before it copies.
TEST(IoFileFault, GrowthOnAFullFileSystemFailsWithoutASignal) {
  struct full_case {
    const char* name;
    long long chunk;   // written repeatedly until the device fails
    long long offset;  // where writing starts
  };
  const full_case cases[] = {
      {"small writes through the mapping", 1000, 0},
      {"large writes through pwrite", 40000, 0},
      {"a write far past the end", 1000, 1 << 20},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::temp_dir dir;
    const auto outcome = test::run_in_child([&] {
      test::enter_private_mounts();
      test::mount_tmpfs(dir.path(), 64 * 1024);
      const auto path = dir / "grown.bin";
      const auto text = pattern(512 * 1024, 'g');
      long long done = 0;
      {
        io_file file;
        file.open(path, out);
        file.seek(c.offset, std::ios_base::beg);
        while (file.is_good() && done + c.chunk <= static_cast<long long>(text.size())) {
          file.write(text.data() + done, static_cast<long>(c.chunk));
          done += file.is_good() ? c.chunk : 0;
        }
        std::string report = "state=" + std::to_string(file.state());
        file.clear(0);
        file.close();
        report += " closed=" + std::to_string(file.state()) + (done > 0 ? " wrote" : " wrote nothing");
        if (c.offset == 0) {
          // What fitted before the disk filled up is all there, and only that.
          report += done > 0 && reads_back(path, text.substr(0, static_cast<std::size_t>(done)))
                        ? " kept"
                        : " lost " + std::to_string(done) + " bytes written";
        }
        return report;
      }
    });
    if (outcome.could_not_set_up()) {
      GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
    }
    ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    // Far past the end the hole is left a hole: the pages written fit.
    EXPECT_EQ(outcome.report, c.offset == 0 ? "state=1 closed=0 wrote kept" : "state=1 closed=0 wrote");
  }
}

TEST(IoFileFault, AReadOnlyFileSystemRefusesWritableOpensOnly) {
  test::temp_dir dir;
  const auto outcome = test::run_in_child([&] {
    test::enter_private_mounts();
    test::mount_tmpfs(dir.path(), 64 * 1024);
    test::write_file(dir / "existing", "data");
    test::remount_read_only(dir.path());
    std::string report;
    for (const auto& [name, mode] :
         {std::pair{"new", out}, std::pair{"existing", out}, std::pair{"existing", in | out}}) {
      io_file file;
      file.open(dir / name, mode);
      report += std::to_string(file.state()) + (file.is_open() ? " open " : " closed ");
    }
    io_file reader;
    reader.open(dir / "existing", in);
    std::string back(4, '\0');
    reader.read(back.data(), 4);
    return report + back + " " + std::to_string(reader.state()) + " " + test::directory_listing(dir.path());
  });
  if (outcome.could_not_set_up()) {
    GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
  }
  ASSERT_TRUE(outcome.exited_cleanly()) << outcome.describe();
  EXPECT_EQ(outcome.report, "4 closed 4 closed 4 closed data 0 existing");
}

}  // namespace
}  // namespace norvane
