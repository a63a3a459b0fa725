// io_file on real files in a temporary directory: every open mode, growth a
// page at a time, truncation on close, the mapped-length bounds, and faults
// (missing files, directories, permissions, a file-size limit) without
// leaked descriptors.
#include "support/test_support.hpp"

#include "io/io_test_util.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>

namespace norvane {
namespace {

using namespace test_bits;

namespace fs = std::filesystem;

const long long page = ::sysconf(_SC_PAGESIZE);

std::size_t open_descriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

std::string pattern(std::size_t length, char seed) {
  std::string text(length, '\0');
  for (std::size_t i = 0; i < length; ++i) {
    text[i] = static_cast<char>(seed + i % 23);
  }
  return text;
}

// Runs `body` in a child process and returns its exit status (0 when body
// returned true).
template <typename Body>
int in_child(Body body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::_exit(body() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(IoFile, ANewFileIsOnePageWhileOpenAndCutToWhatWasWritten) {
  test::temp_dir dir;
  const auto path = dir / "new.bin";
  io_file file;
  file.open(path, out);
  ASSERT_TRUE(file.is_open());
  EXPECT_TRUE(file.is_good());
  EXPECT_STREQ(file.name(), path.c_str());
  EXPECT_EQ(file.open_mode(), out);
  EXPECT_EQ(file.size(), page);
  EXPECT_EQ(fs::file_size(path), static_cast<std::uintmax_t>(page));
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all, fs::perms::owner_all);
  file.write("0123456789", 10);
  EXPECT_EQ(file.tell(), 10);
  file.close();
  EXPECT_FALSE(file.is_open());
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(file.size(), 0);
  EXPECT_EQ(test::read_file(path), "0123456789");

  // Closing without writing leaves nothing.
  const auto empty = dir / "empty.bin";
  file.open(empty, out | trunc);
  EXPECT_TRUE(file.is_good());
  file.close();
  EXPECT_EQ(fs::file_size(empty), 0u);
  // Closing twice is refused.
  file.close();
  EXPECT_EQ(file.state(), fail);
}

TEST(IoFile, WritesGrowTheFileOnePageAtATimeAcrossManyPages) {
  test::temp_dir dir;
  const auto path = dir / "grow.bin";
  const std::string text = pattern(static_cast<std::size_t>(5 * page + 123), 'a');
  io_file file;
  file.open(path, out);
  // Odd-sized writes so that several of them straddle page ends.
  const std::size_t step = 1000;
  for (std::size_t at = 0; at < text.size(); at += step) {
    const auto n = std::min(step, text.size() - at);
    file.write(text.data() + at, static_cast<long>(n));
    const long long written = static_cast<long long>(at + n);
    const long long pages = (written + page - 1) / page;
    ASSERT_EQ(file.size(), pages * page) << written;
    ASSERT_EQ(fs::file_size(path), static_cast<std::uintmax_t>(pages * page));
  }
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(std::string(file.data(), text.size()), text);
  // One write needing several pages at once lands on the same length as
  // several single-page steps.
  const std::string big = pattern(static_cast<std::size_t>(3 * page), 'A');
  file.write(big.data(), static_cast<long>(big.size()));
  const long long end = static_cast<long long>(text.size() + big.size());
  EXPECT_EQ(file.size(), (end + page - 1) / page * page);
  file.close();
  EXPECT_EQ(test::read_file(path), text + big);

  // Reopened for update: an existing file of odd length maps at that length
  // and grows by whole pages from it.
  file.open(path, in | out);
  EXPECT_EQ(file.size(), end);
  std::string head(10, '\0');
  file.read(head.data(), 10);
  EXPECT_EQ(head, text.substr(0, 10));
  file.seek(0, std::ios_base::end);
  file.write("tail", 4);
  EXPECT_EQ(file.size(), end + page);
  EXPECT_EQ(fs::file_size(path), static_cast<std::uintmax_t>(end + page));
  file.close();
  EXPECT_EQ(test::read_file(path), text + big + "tail");
}

TEST(IoFile, GrowthFarBeyondTheStartKeepsEverythingWritten) {
  test::temp_dir dir;
  const auto path = dir / "far.bin";
  io_file file;
  file.open(path, out);
  file.write("head", 4);
  // A write half a gigabyte on (a sparse file) outgrows any room kept next
  // to the first mapping, so the mapping moves.
  const long long far = 512LL << 20;
  file.seek(far, std::ios_base::beg);
  file.write("far", 3);
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(file.size(), (far + 3 + page - 1) / page * page);
  EXPECT_EQ(std::string(file.data(), 4), "head");
  EXPECT_EQ(std::string(file.data() + far, 3), "far");
  file.close();
  EXPECT_EQ(fs::file_size(path), static_cast<std::uintmax_t>(far + 3));
  io_file reader;
  reader.open(path, in);
  char got[4] = {};
  reader.read(got, 4);
  EXPECT_EQ(std::string(got, 4), "head");
  reader.seek(far, std::ios_base::beg);
  reader.read(got, 3);
  EXPECT_EQ(std::string(got, 3), "far");
  EXPECT_TRUE(reader.is_good());
}

// Small writes in a row are held back from the mapping until something
// looks at the bytes; every way of looking finds all of them.
TEST(IoFile, SmallWritesInARowAreSeenByEveryLaterLook) {
  enum class look { read, peek, data, pointer_held_before, large_write_over_them, close };
  const look looks[] = {
      look::read, look::peek, look::data, look::pointer_held_before, look::large_write_over_them,
      look::close};
  for (const look how : looks) {
    SCOPED_TRACE(static_cast<int>(how));
    test::temp_dir dir;
    const auto path = dir / "small.bin";
    io_file file;
    file.open(path, out);
    const char* held = how == look::pointer_held_before ? file.data() : nullptr;
    // Straddling page ends, then one write back in the middle and more at the end.
    const std::string text = pattern(static_cast<std::size_t>(3 * page + 100), 'a');
    for (std::size_t at = 0; at < text.size(); at += 100) {
      file.write(text.data() + at, static_cast<long>(std::min<std::size_t>(100, text.size() - at)));
    }
    file.seek(50, std::ios_base::beg);
    file.write("patch", 5);
    file.seek(0, std::ios_base::end);
    file.write("end", 3);
    file.write("!", 1);
    std::string expected = text + std::string(static_cast<std::size_t>(page - 100), '\0') + "end!";
    expected.replace(50, 5, "patch");
    ASSERT_TRUE(file.is_good());
    ASSERT_EQ(file.size(), 5 * page);
    std::string got(expected.size(), '\0');
    file.seek(0, std::ios_base::beg);
    if (how == look::read) {
      file.read(got.data(), static_cast<long>(got.size()));
    } else if (how == look::peek) {
      EXPECT_EQ(file.peek(got.data(), static_cast<long>(got.size())), static_cast<long>(got.size()));
    } else if (how == look::data) {
      got.assign(file.data(), expected.size());
    } else if (how == look::pointer_held_before) {
      got.assign(held, expected.size());
      EXPECT_EQ(file.data(), held);
    } else if (how == look::large_write_over_them) {
      const std::string large(40000, 'L');
      file.seek(page - 10, std::ios_base::beg);
      file.write(large.data(), static_cast<long>(large.size()));
      expected.replace(static_cast<std::size_t>(page - 10), large.size(), large);
    }
    if (how != look::large_write_over_them && how != look::close) {
      EXPECT_EQ(got, expected);
    }
    file.close();
    EXPECT_TRUE(file.is_good());
    EXPECT_EQ(test::read_file(path), expected);
  }
}

TEST(IoFile, LargeAndSmallCopiesSeeTheSameBytes) {
  // Large reads and writes take a different road to the file than small
  // ones; every mix must agree with the mapping and with the disk.
  test::temp_dir dir;
  const auto path = dir / "mixed.bin";
  const std::string big = pattern(static_cast<std::size_t>(100 << 10) + 7, 'a');
  io_file file;
  file.open(path, in | out);
  EXPECT_EQ(file.state(), fail);  // in|out needs an existing file
  file.open(path, out);
  file.write(big.data(), static_cast<long>(big.size()));
  ASSERT_TRUE(file.is_good());
  EXPECT_EQ(std::string(file.data(), big.size()), big);
  // Small writes through the mapping, then one large read over them.
  file.seek(5, std::ios_base::beg);
  file.write("SMALL", 5);
  file.seek(70000, std::ios_base::beg);
  file.write("MORE", 4);
  std::string expected = big;
  expected.replace(5, 5, "SMALL");
  expected.replace(70000, 4, "MORE");
  file.seek(0, std::ios_base::beg);
  std::string got(big.size(), '\0');
  file.read(got.data(), static_cast<long>(got.size()));
  EXPECT_EQ(got, expected);
  // A large write over the middle, seen by small reads and peeks.
  const std::string middle = pattern(40000, 'K');
  file.seek(1000, std::ios_base::beg);
  file.write(middle.data(), static_cast<long>(middle.size()));
  expected.replace(1000, middle.size(), middle);
  char few[3];
  file.seek(1000, std::ios_base::beg);
  EXPECT_EQ(file.peek(few, 3), 3);
  EXPECT_EQ(std::string(few, 3), middle.substr(0, 3));
  file.seek(41000 - 2, std::ios_base::beg);
  file.read(few, 3);
  EXPECT_EQ(std::string(few, 3), expected.substr(41000 - 2, 3));
  EXPECT_EQ(std::string(file.data(), expected.size()), expected);
  file.close();
  EXPECT_EQ(test::read_file(path), expected);
}

TEST(IoFile, EveryRowOfTheOpenModeTable) {
  test::temp_dir dir;
  const std::string content = "existing content";
  struct row {
    unsigned int mode;
    bool opens_missing;  // creates a missing file
    bool opens_existing;
    bool empties;  // an existing file comes back empty
  };
  // ate may join any row; binary joins none.
  for (const row r :
       {row{out, true, true, true}, row{out | trunc, true, true, true}, row{in, false, true, false},
        row{in | out, false, true, false}, row{in | out | trunc, true, true, true},
        row{out | app, false, false, false}, row{out | ate, true, true, true},
        row{in | ate, false, true, false}, row{in | out | ate, false, true, false},
        row{in | binary, false, false, false}, row{out | binary, false, false, false},
        row{in | app, false, false, false}, row{0, false, false, false}}) {
    SCOPED_TRACE(r.mode);
    const auto missing = dir / ("missing-" + std::to_string(r.mode));
    const auto existing = dir / ("existing-" + std::to_string(r.mode));
    test::write_file(existing, content);
    const auto descriptors = open_descriptors();

    io_file a;
    a.open(missing, r.mode);
    EXPECT_EQ(a.is_open(), r.opens_missing);
    EXPECT_EQ(a.state(), r.opens_missing ? 0u : fail);
    EXPECT_EQ(a.open_mode(), r.mode);
    if (a.is_open()) {
      EXPECT_EQ(a.tell(), (r.mode & ate) != 0 ? page : 0);
      a.close();
      EXPECT_EQ(fs::file_size(missing), 0u);
    }

    io_file b;
    b.open(existing, r.mode);
    EXPECT_EQ(b.is_open(), r.opens_existing);
    if (b.is_open()) {
      const long long mapped = r.empties ? page : static_cast<long long>(content.size());
      EXPECT_EQ(b.size(), mapped);
      EXPECT_EQ(b.tell(), (r.mode & ate) != 0 ? mapped : 0);
      if (!r.empties && (r.mode & ate) == 0) {
        std::string got(content.size(), '\0');
        b.read(got.data(), static_cast<long>(got.size()));
        EXPECT_EQ(got, content);
      }
      b.close();
      EXPECT_TRUE(b.is_good());
    } else {
      EXPECT_EQ(b.state(), fail);
    }
    // A refused or failed open never damages the file.
    EXPECT_EQ(test::read_file(existing), r.empties && r.opens_existing ? "" : content);
    EXPECT_EQ(open_descriptors(), descriptors);
  }
  // The mode check refuses before the file system is touched.
  for (const unsigned int mode : {trunc, in | trunc, app | trunc | out}) {
    io_file refused;
    const auto path = dir / "never";
    refused.open(path, mode);
    EXPECT_EQ(refused.state(), fail);
    EXPECT_EQ(refused.name(), nullptr);
    EXPECT_EQ(refused.open_mode(), 0u);
    EXPECT_FALSE(fs::exists(path));
  }
  // out|app on a missing file creates it but cannot map it: the open fails
  // and the file stays empty.
  EXPECT_TRUE(fs::exists(dir / ("missing-" + std::to_string(out | app))));
  EXPECT_EQ(fs::file_size(dir / ("missing-" + std::to_string(out | app))), 0u);
}

TEST(IoFile, OpeningAnOpenFileIsRefusedAndKeepsTheFirst) {
  test::temp_dir dir;
  test::write_file(dir / "one", "one");
  test::write_file(dir / "two", "two");
  io_file file;
  file.open(dir / "one", in);
  file.open(dir / "two", in);
  EXPECT_EQ(file.state(), fail);
  EXPECT_STREQ(file.name(), (dir / "one").c_str());
  file.clear(0);
  char got[3];
  file.read(got, 3);
  EXPECT_EQ(std::string(got, 3), "one");
}

TEST(IoFile, ReadsAreBoundedByTheMappedLength) {
  test::temp_dir dir;
  const auto path = dir / "bounds.bin";
  io_file file;
  file.open(path, in | out | trunc);
  file.write("abc", 3);
  // An empty file opened for writing reads back zeros up to the page end.
  file.seek(0, std::ios_base::beg);
  std::string got(static_cast<std::size_t>(page + 10), 'x');
  file.read(got.data(), static_cast<long>(page));
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(got.substr(0, 4), std::string("abc\0", 4));
  EXPECT_EQ(got.find_first_not_of('\0', 3), static_cast<std::size_t>(page));
  file.seek(0, std::ios_base::end);
  EXPECT_EQ(file.tell(), page);
  file.read(got.data(), 1);
  EXPECT_EQ(file.state(), eof | fail);
  file.clear(0);
  // A read crossing the end delivers what is left.
  file.seek(-2, std::ios_base::end);
  got.assign(4, '.');
  EXPECT_EQ(file.peek(got.data(), 4), 2);
  EXPECT_EQ(file.tell(), page - 2);
  file.read(got.data(), 4);
  EXPECT_EQ(got, std::string("\0\0..", 4));
  EXPECT_EQ(file.state(), eof | fail);
  EXPECT_EQ(file.tell(), -1);
  file.clear(0);
  EXPECT_EQ(file.tell(), page);
  // A read of 0 bytes at the start takes the whole mapping.
  file.seek(0, std::ios_base::beg);
  std::string whole(static_cast<std::size_t>(page), 'x');
  file.read(whole.data(), 0);
  EXPECT_EQ(whole.substr(0, 3), "abc");
  EXPECT_EQ(file.state(), eof | fail);
  EXPECT_EQ(file.tell(), -1);
  file.clear(0);
  EXPECT_EQ(file.tell(), page);
  file.close();
  EXPECT_EQ(test::read_file(path), "abc");
}

TEST(IoFile, SeekRulesAndWritesPastTheEnd) {
  test::temp_dir dir;
  const auto path = dir / "seek.bin";
  io_file file;
  EXPECT_EQ(file.tell(), -1);
  file.open(path, out);
  file.seek(-1, std::ios_base::beg);
  EXPECT_EQ(file.state(), fail);
  file.seek(5, std::ios_base::beg);  // ignored while failed
  file.clear(0);
  EXPECT_EQ(file.tell(), 0);
  file.seek(-1, std::ios_base::cur);
  EXPECT_EQ(file.state(), fail);
  file.clear(0);
  file.seek(-page - 1, std::ios_base::end);
  EXPECT_EQ(file.state(), fail);
  file.clear(0);
  // A write past the end fills the gap with zeros.
  file.seek(page + 10, std::ios_base::beg);
  file.write("x", 1);
  EXPECT_EQ(file.size(), 2 * page);
  file.seek(-2, std::ios_base::cur);
  EXPECT_EQ(file.tell(), page + 9);
  file.close();
  const std::string on_disk = test::read_file(path);
  ASSERT_EQ(on_disk.size(), static_cast<std::size_t>(page + 11));
  EXPECT_EQ(on_disk.back(), 'x');
  EXPECT_EQ(on_disk.find_first_not_of('\0'), static_cast<std::size_t>(page + 10));
}

TEST(IoFile, ReadOnlyFilesRefuseWrites) {
  test::temp_dir dir;
  const auto path = dir / "ro.bin";
  test::write_file(path, "fixed");
  io_file file;
  file.open(path, in);
  EXPECT_EQ(file.size(), 5);
  file.write("X", 1);
  EXPECT_EQ(file.state(), fail);
  file.close();
  EXPECT_EQ(test::read_file(path), "fixed");
  // An empty file opened for reading maps nothing and reads nothing.
  test::write_file(dir / "nothing", "");
  file.open(dir / "nothing", in);
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(file.size(), 0);
  EXPECT_EQ(file.data(), nullptr);
  char c = 0;
  file.read(&c, 1);
  EXPECT_EQ(file.state(), eof | fail);
  file.close();
  EXPECT_EQ(file.state(), eof | fail);
}

TEST(IoFile, DestructionClosesAndCutsTheFile) {
  test::temp_dir dir;
  const auto path = dir / "dtor.bin";
  const auto descriptors = open_descriptors();
  {
    io_file file;
    file.open(path, out);
    file.write("kept", 4);
  }
  EXPECT_EQ(test::read_file(path), "kept");
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(IoFile, FilesBeyondFourGibibytesAreAddressedWhole) {
  test::temp_dir dir;
  const auto path = dir / "large.bin";
  const long long length = 5LL << 30;
  const long long marker_at = (4LL << 30) + 12345;
  {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_NE(fd, -1);
    ASSERT_EQ(::ftruncate(fd, length), 0);
    ASSERT_EQ(::pwrite(fd, "marker", 6, marker_at), 6);
    ::close(fd);
  }
  io_file file;
  file.open(path, in);
  ASSERT_TRUE(file.is_good());
  EXPECT_EQ(file.size(), length);
  file.seek(marker_at, std::ios_base::beg);
  char got[6];
  file.read(got, 6);
  EXPECT_EQ(std::string(got, 6), "marker");
  EXPECT_EQ(file.tell(), marker_at + 6);
  // A large read straddling the 4 GiB mark.
  file.seek((4LL << 30) - 40000, std::ios_base::beg);
  std::string block(80000, 'x');
  file.read(block.data(), static_cast<long>(block.size()));
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(block.find_first_not_of('\0'), 40000u + 12345u);
  EXPECT_EQ(block.substr(40000 + 12345, 6), "marker");
  file.seek(-3, std::ios_base::end);
  char tail[8];
  file.read(tail, 8);
  EXPECT_EQ(file.state(), eof | fail);
}

TEST(IoFile, BadPathsFailWithoutLeakingDescriptors) {
  test::temp_dir dir;
  fs::create_directory(dir / "sub");
  const auto descriptors = open_descriptors();
  io_file file;
  file.open(dir / "absent", in);
  EXPECT_EQ(file.state(), fail);
  EXPECT_FALSE(file.is_open());
  EXPECT_FALSE(fs::exists(dir / "absent"));
  for (const unsigned int mode : {in, out, in | out}) {
    io_file directory;
    directory.open(dir / "sub", mode);
    EXPECT_EQ(directory.state(), fail) << mode;
    EXPECT_FALSE(directory.is_open());
  }
  file.open(dir / "no" / "such" / "dir", out);
  EXPECT_EQ(file.state(), fail);
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(IoFile, ADirectoryWithoutWritePermissionRefusesNewFiles) {
  test::temp_dir dir;
  const auto locked = dir / "locked";
  fs::create_directory(locked);
  test::write_file(locked / "existing", "data");
  fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                              fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
  fs::permissions(locked / "existing",
                  fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  // Root ignores permissions: the child gives them up first.
  const int status = in_child([&] {
    if (::geteuid() == 0 && ::setuid(65534) != 0) {
      return false;
    }
    const auto descriptors = open_descriptors();
    io_file file;
    file.open(locked / "new", out);
    const bool refused_new = file.state() == fail && !file.is_open() && !fs::exists(locked / "new");
    io_file update;
    update.open(locked / "existing", in | out);
    const bool refused_update = update.state() == fail && !update.is_open();
    io_file reader;
    reader.open(locked / "existing", in);
    const bool reads = reader.is_good() && reader.size() == 4;
    reader.close();
    return refused_new && refused_update && reads && open_descriptors() == descriptors;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(test::read_file(locked / "existing"), "data");
}

TEST(IoFile, AFileSizeLimitMakesGrowthFailButKeepsWhatWasWritten) {
  test::temp_dir dir;
  const auto path = dir / "limited.bin";
  const std::string text = pattern(static_cast<std::size_t>(10 * page), '0');
  const long long limit = 3 * page + 100;
  const int status = in_child([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit lim{static_cast<rlim_t>(limit), static_cast<rlim_t>(limit)};
    if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) {
      return false;
    }
    io_file file;
    file.open(path, out);
    if (!file.is_good()) {
      return false;
    }
    file.write(text.data(), static_cast<long>(page + 50));
    // Needs six more pages; three more fit under the limit: the file stops
    // at the last page that fitted, as it would stepping a page at a time.
    file.write(text.data() + page + 50, static_cast<long>(6 * page));
    const bool failed = file.state() == bad && file.size() == 3 * page && file.tell() == -1 &&
                        fs::file_size(path) == static_cast<std::uintmax_t>(3 * page);
    // The mapping is intact and the device keeps working within it.
    file.clear(0);
    const bool unmoved = file.tell() == page + 50;
    file.write(text.data() + page + 50, static_cast<long>(page));
    const bool fits = unmoved && file.is_good() && file.size() == 3 * page;
    file.seek(0, std::ios_base::beg);
    std::string back(static_cast<std::size_t>(2 * page + 50), '\0');
    file.read(back.data(), static_cast<long>(back.size()));
    const bool reads = back == text.substr(0, back.size());
    file.close();
    return failed && fits && reads && file.is_good();
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(test::read_file(path), text.substr(0, static_cast<std::size_t>(2 * page + 50)));
}

TEST(IoFile, AFailedFirstPageUnwindsToAClosedDeviceWithAGoodState) {
  // Under a limit smaller than a page the first page of a new file cannot
  // be made. The open then closes what it had and reports how that went:
  // the close succeeds, so the state is good although nothing is open.
  test::temp_dir dir;
  const auto path = dir / "tiny.bin";
  const int status = in_child([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit lim{100, 100};
    if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) {
      return false;
    }
    const auto descriptors = open_descriptors();
    io_file file;
    file.open(path, out);
    return file.is_good() && !file.is_open() && file.size() == 0 && file.data() == nullptr &&
           open_descriptors() == descriptors;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(fs::exists(path));
  EXPECT_EQ(fs::file_size(path), 0u);
}

TEST(IoFile, OnePageGrowthStepsKeepEveryByteWhereverTheWriteStarts) {
  // A write needing one more page stores its bytes past the old end with
  // the growth itself; the rest goes through the mapping.
  struct growth_case {
    const char* name;
    long long existing;  // bytes of an earlier file opened in|out; 0: a new file
    long long start;
    long long length;
    long long limit;  // RLIMIT_FSIZE, 0 for none; the growth must then fail
  };
  const growth_case cases[] = {
      {"at the mapped end", 0, page, 100, 0},
      {"filling the next page exactly", 0, page, page, 0},
      {"across the end of the last page", 0, page - 10, 100, 0},
      {"leaving a gap in the new page", 0, page + 100, 10, 0},
      {"from the end of an odd-length file", page + 7, page + 7, 50, 0},
      {"across the end of an odd-length file", page + 7, page, 100, 0},
      {"across the end, refused by a file-size limit", 0, page - 10, 100, page + 50},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::temp_dir dir;
    const auto path = dir / "grow.bin";
    std::string expected = pattern(static_cast<std::size_t>(c.existing), 'e');
    if (c.existing > 0) {
      test::write_file(path, expected);
    }
    const long long mapped = c.existing > 0 ? c.existing : page;
    const std::string text = pattern(static_cast<std::size_t>(c.length), 'A');
    if (c.limit == 0) {
      expected.resize(static_cast<std::size_t>(std::max(c.existing, c.start + c.length)), '\0');
      expected.replace(static_cast<std::size_t>(c.start), text.size(), text);
    }
    const int status = in_child([&] {
      if (c.limit > 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit lim{static_cast<rlim_t>(c.limit), static_cast<rlim_t>(c.limit)};
        ::setrlimit(RLIMIT_FSIZE, &lim);
      }
      io_file file;
      file.open(path, c.existing > 0 ? in | out : out);
      file.seek(c.start, std::ios_base::beg);
      file.write(text.data(), static_cast<long>(text.size()));
      const long long grown = c.limit > 0 ? mapped : mapped + page;
      const bool device = file.state() == (c.limit > 0 ? bad : 0u) && file.size() == grown &&
                          fs::file_size(path) == static_cast<std::uintmax_t>(grown);
      // The mapping shows zeros past what was written, and nothing of a refused write.
      std::string shown_expected = expected;
      shown_expected.resize(static_cast<std::size_t>(grown), '\0');
      const bool shown = std::string(file.data(), static_cast<std::size_t>(grown)) == shown_expected;
      file.clear(0);
      file.close();
      return device && shown && file.is_good();
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(test::read_file(path), expected);
  }
}

TEST(IoFile, LinesReadBackFromAFile) {
  test::temp_dir dir;
  const auto path = dir / "lines.txt";
  io_file writer;
  writer.open(path, out);
  const std::string text = "first\r\nsecond\nlast";
  writer.write(text.data(), static_cast<long>(text.size()));
  writer.close();
  io_file reader;
  reader.open(path, in);
  char line[32];
  bool found = false;
  EXPECT_EQ(reader.read_line(&found, line, sizeof line, '\n'), 6);
  EXPECT_STREQ(line, "first\n");
  EXPECT_EQ(reader.read_line(&found, line, sizeof line, '\n'), 7);
  EXPECT_STREQ(line, "second\n");
  EXPECT_EQ(reader.read_line(&found, line, sizeof line, '\n'), 5);
  EXPECT_STREQ(line, "lastt");
  EXPECT_FALSE(found);
}

}  // namespace
}  // namespace norvane
