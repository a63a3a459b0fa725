// io_file on real files: every open mode, growth a page at a time, the cut
// to what was written on close, offsets beyond 4 GiB, bad paths.
#include "support/test_support.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace norvane {
namespace {

namespace fs = std::filesystem;

constexpr unsigned int eof = io_device::eofbit, fail = io_device::failbit;
constexpr unsigned int in = io_device::in, out = io_device::out, app = io_device::app, ate = io_device::ate;
constexpr unsigned int trunc = io_device::trunc, binary = io_device::binary;
const long long page = ::sysconf(_SC_PAGESIZE);

std::size_t open_descriptors() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

std::string pattern(long long length, char seed) {
  std::string text;
  for (long long i = 0; i < length; ++i) text += static_cast<char>(seed + i % 23);
  return text;
}

TEST(IoFile, EveryRowOfTheOpenModeTable) {
  test::temp_dir dir;
  const std::string content = "existing content";
  // ate may join any row; binary joins none; trunc needs out and excludes app.
  const struct {
    unsigned int mode;
    bool opens_missing, opens_existing, empties;
  } rows[] = {
      {out, true, true, true},
      {out | trunc, true, true, true},
      {in, false, true, false},
      {in | out, false, true, false},
      {in | out | trunc, true, true, true},
      {out | app, false, false, false},
      {out | ate, true, true, true},
      {in | ate, false, true, false},
      {in | out | ate, false, true, false},
      {in | binary, false, false, false},
      {in | app, false, false, false},
      {0, false, false, false},
      {trunc, false, false, false},
      {in | trunc, false, false, false},
      {out | app | trunc, false, false, false},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.mode);
    const auto missing = dir / ("missing-" + std::to_string(r.mode));
    const auto existing = dir / ("existing-" + std::to_string(r.mode));
    test::write_file(existing, content);
    const auto descriptors = open_descriptors();
    io_file a;
    a.open(missing, r.mode);
    EXPECT_EQ(std::pair(a.is_open(), a.state()), std::pair(r.opens_missing, r.opens_missing ? 0u : fail));
    if (a.is_open()) {
      EXPECT_EQ(std::pair(a.tell(), a.open_mode()), std::pair((r.mode & ate) != 0 ? page : 0LL, r.mode));
      a.close();
      EXPECT_EQ(fs::file_size(missing), 0u);  // closed without writing: nothing
    }
    io_file b;
    b.open(existing, r.mode);
    EXPECT_EQ(std::pair(b.is_open(), b.state()), std::pair(r.opens_existing, r.opens_existing ? 0u : fail));
    if (b.is_open()) {
      const long long mapped = r.empties ? page : static_cast<long long>(content.size());
      EXPECT_EQ(std::pair(b.size(), b.tell()), std::pair(mapped, (r.mode & ate) != 0 ? mapped : 0));
      std::string got(content.size(), '\0');
      b.seek(0, std::ios_base::beg);
      b.read(got.data(), static_cast<long>(got.size()));
      EXPECT_EQ(got, r.empties ? std::string(content.size(), '\0') : content);
      b.close();
      EXPECT_TRUE(b.is_good());
    }
    // A refused or failed open never damages the file, nor leaks.
    EXPECT_EQ(test::read_file(existing), r.empties && r.opens_existing ? "" : content);
    EXPECT_EQ(open_descriptors(), descriptors);
  }
  // The mode check refuses before the file system is touched; out|app on a
  // missing file creates it but cannot map it.
  EXPECT_FALSE(fs::exists(dir / ("missing-" + std::to_string(trunc))));
  EXPECT_EQ(fs::file_size(dir / ("missing-" + std::to_string(out | app))), 0u);
}

// Small writes in a row are held back from the mapping until something looks
// at the bytes: each case takes another first look, and every look finds them.
TEST(IoFile, GrowthGoesAPageAtATimeAndCloseCutsToWhatWasWritten) {
  struct write {
    long long at, length;
  };
  const long long large = (100 << 10) + 7;  // large copies take pwrite, not the mapping
  const struct {
    long long existing;  // bytes of an earlier file, opened in|out; 0: a new file, out
    std::vector<write> writes;
    long long mapped;  // while open
  } cases[] = {
      {0, {{0, 10}}, page},
      {0, {}, page},
      {0, {{page, 100}}, 2 * page},
      {0, {{page - 10, 100}}, 2 * page},
      {0, {{page + 100, 10}}, 2 * page},
      {0, {{0, 1000}, {1000, page}, {1000 + page, 4 * page}}, 6 * page},
      // The large write lands over small ones still held back.
      {0, {{0, large}, {5, 5}, {1000, 4}, {900, 40000}}, (large + page - 1) / page * page},
      {page + 7, {{page, 100}}, 2 * page + 7},
      {page + 7, {{3, 4}, {7, 9}}, page + 7},
  };
  const std::string looks[] = {"data", "read", "peek", "close", "pointer held before"};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    const auto& look = looks[i % std::size(looks)];
    SCOPED_TRACE(testing::Message() << "case " << i << ", first look: " << look);
    test::temp_dir dir;
    const auto path = dir / "grow.bin";
    std::string expected = pattern(c.existing, 'e');
    test::write_file(path, expected);
    {
      io_file file;
      file.open(path, c.existing > 0 ? in | out : out);
      const char* held = look == "pointer held before" ? file.data() : nullptr;
      for (const auto& w : c.writes) {
        const auto text = pattern(w.length, static_cast<char>('A' + w.at % 7));
        file.seek(w.at, std::ios_base::beg);
        file.write(text.data(), static_cast<long>(text.size()));
        expected.resize(std::max(expected.size(), static_cast<std::size_t>(w.at + w.length)), '\0');
        expected.replace(static_cast<std::size_t>(w.at), text.size(), text);
      }
      if (look != "close") {    // else the destructor closes and cuts first
        auto shown = expected;  // zeros past what was written, whichever way the bytes are seen
        shown.resize(static_cast<std::size_t>(c.mapped), '\0');
        std::string got(shown.size(), '\0');
        file.seek(0, std::ios_base::beg);
        if (look == "read") file.read(got.data(), static_cast<long>(got.size()));
        EXPECT_EQ(look == "peek" ? file.peek(got.data(), long(got.size())) : long(got.size()),
                  long(got.size()));
        if (look == "data" || held != nullptr) got.assign(held != nullptr ? held : file.data(), shown.size());
        EXPECT_EQ(got, shown);
        EXPECT_EQ(held != nullptr ? file.data() : nullptr, held);
        EXPECT_EQ(std::pair(file.size(), fs::file_size(path)),
                  std::pair(c.mapped, static_cast<std::uintmax_t>(c.mapped)));
        EXPECT_EQ(std::string(file.data(), shown.size()), shown);
        EXPECT_TRUE(file.is_good());
      }
    }
    EXPECT_EQ(test::read_file(path), expected);
  }
}

TEST(IoFile, FilesBeyondFourGibibytesGrowAndReadWhole) {
  test::temp_dir dir;  // that far on the mapping outgrows its room and moves; the file stays sparse
  io_file file;
  file.open(dir / "large.bin", out);
  file.write("head", 4);
  file.seek((4LL << 30) + 12345, std::ios_base::beg);
  file.write("marker", 6);
  file.seek((5LL << 30) - 3, std::ios_base::beg);
  file.write("end", 3);
  EXPECT_EQ(std::pair(file.size(), std::string(file.data(), 4)), std::pair(5LL << 30, std::string("head")));
  file.close();
  EXPECT_EQ(fs::file_size(dir / "large.bin"), static_cast<std::uintmax_t>(5LL << 30));
  file.open(dir / "large.bin", in);
  file.seek((4LL << 30) - 40000, std::ios_base::beg);  // a large read straddling the 4 GiB mark
  std::string block(80000, 'x');
  file.read(block.data(), static_cast<long>(block.size()));
  EXPECT_EQ(
      std::tuple(file.state(), block.find_first_not_of('\0'), block.substr(40000 + 12345, 6), file.tell()),
      std::tuple(0u, 40000u + 12345u, std::string("marker"), (4LL << 30) + 40000));
  file.seek(-3, std::ios_base::end);
  block.assign(8, 'x');
  file.read(block.data(), 8);
  EXPECT_EQ(std::pair(file.state(), block.substr(0, 4)), std::pair(eof | fail, std::string("endx")));
}

TEST(IoFile, RefusalsLeaveTheFileTheDeviceAndTheDescriptorsAlone) {
  test::temp_dir dir;
  fs::create_directory(dir / "sub");
  test::write_file(dir / "fixed", "fixed");
  test::write_file(dir / "empty", "");
  const auto descriptors = open_descriptors();
  for (const auto& [path, mode] :
       {std::pair{dir / "sub", in}, {dir / "sub", out}, {dir / "no" / "such", out}}) {
    io_file file;
    file.open(path, mode);
    EXPECT_EQ(std::pair(file.state(), file.is_open()), std::pair(fail, false)) << path << " " << mode;
  }
  io_file file;
  file.open(dir / "fixed", in);
  file.write("X", 1);
  EXPECT_EQ(file.state(), fail);
  file.open(dir / "empty", in);  // already open: refused, the first stays
  EXPECT_STREQ(file.name(), (dir / "fixed").c_str());
  file.close();
  file.close();  // closing twice is refused
  EXPECT_EQ(file.state(), fail);
  EXPECT_EQ(test::read_file(dir / "fixed"), "fixed");
  file.clear(0);  // an empty file opened for reading maps nothing and reads nothing
  file.open(dir / "empty", in);
  EXPECT_TRUE(file.is_good() && file.data() == nullptr);
  char c = 0;
  file.read(&c, 1);
  file.close();
  EXPECT_EQ(file.state(), eof | fail);
  EXPECT_EQ(open_descriptors(), descriptors);
}

}  // namespace
}  // namespace norvane
