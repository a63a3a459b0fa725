// io_file on real files in a temporary directory: every open mode, growth a
// page at a time, the cut to what was written on close, offsets beyond
// 4 GiB, and bad paths without leaked descriptors.
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
  std::string text(static_cast<std::size_t>(length), '\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char>(seed + static_cast<char>(i % 23));
  }
  return text;
}

TEST(IoFile, EveryRowOfTheOpenModeTable) {
  test::temp_dir dir;
  const std::string content = "existing content";
  // ate may join any row; binary joins none.
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
      {out | binary, false, false, false},
      {in | app, false, false, false},
      {0, false, false, false},
      {trunc, false, false, false},
      {in | trunc, false, false, false},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.mode);
    const auto missing = dir / ("missing-" + std::to_string(r.mode));
    const auto existing = dir / ("existing-" + std::to_string(r.mode));
    test::write_file(existing, content);
    const auto descriptors = open_descriptors();
    io_file a;
    a.open(missing, r.mode);
    EXPECT_EQ(a.is_open(), r.opens_missing);
    EXPECT_EQ(a.state(), r.opens_missing ? 0u : fail);
    if (a.is_open()) {
      EXPECT_EQ(a.tell(), (r.mode & ate) != 0 ? page : 0);
      a.close();
      EXPECT_EQ(fs::file_size(missing), 0u);  // closed without writing: nothing
    }
    io_file b;
    b.open(existing, r.mode);
    EXPECT_EQ(b.is_open(), r.opens_existing);
    EXPECT_EQ(b.state(), r.opens_existing ? 0u : fail);
    if (b.is_open()) {
      const long long mapped = r.empties ? page : static_cast<long long>(content.size());
      EXPECT_EQ(b.size(), mapped);
      EXPECT_EQ(b.tell(), (r.mode & ate) != 0 ? mapped : 0);
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

TEST(IoFile, GrowthGoesAPageAtATimeAndCloseCutsToWhatWasWritten) {
  struct write {
    long long at, length;
  };
  const long long large = (100 << 10) + 7;  // large copies take pwrite, not the mapping
  const struct {
    const char* name;
    long long existing;  // bytes of an earlier file, opened in|out; 0: a new file, out
    std::vector<write> writes;
    long long mapped;  // while open
  } cases[] = {
      {"a new file is a page while open", 0, {{0, 10}}, page},
      {"nothing written leaves nothing", 0, {}, page},
      {"at the mapped end", 0, {{page, 100}}, 2 * page},
      {"filling the next page exactly", 0, {{page, page}}, 2 * page},
      {"across the end of the last page", 0, {{page - 10, 100}}, 2 * page},
      {"leaving a gap of zeros", 0, {{page + 100, 10}}, 2 * page},
      {"odd sizes straddling page ends", 0, {{0, 1000}, {1000, page}, {1000 + page, 4 * page}}, 6 * page},
      {"several pages in one write", 0, {{0, 10}, {10, 3 * page}}, 4 * page},
      {"small writes over a large one",
       0,
       {{0, large}, {5, 5}, {70000, 4}, {1000, 40000}},
       (large + page - 1) / page * page},
      {"from the end of an odd-length file", page + 7, {{page + 7, 50}}, 2 * page + 7},
      {"across the end of an odd-length file", page + 7, {{page, 100}}, 2 * page + 7},
      {"inside an odd-length file", page + 7, {{3, 4}}, page + 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::temp_dir dir;
    const auto path = dir / "grow.bin";
    std::string expected = pattern(c.existing, 'e');
    if (c.existing > 0) {
      test::write_file(path, expected);
    }
    {
      io_file file;
      file.open(path, c.existing > 0 ? in | out : out);
      for (const auto& w : c.writes) {
        const auto text = pattern(w.length, static_cast<char>('A' + w.at % 7));
        file.seek(w.at, std::ios_base::beg);
        file.write(text.data(), static_cast<long>(text.size()));
        expected.resize(std::max(expected.size(), static_cast<std::size_t>(w.at + w.length)), '\0');
        expected.replace(static_cast<std::size_t>(w.at), text.size(), text);
      }
      EXPECT_TRUE(file.is_good());
      EXPECT_EQ(file.size(), c.mapped);
      EXPECT_EQ(fs::file_size(path), static_cast<std::uintmax_t>(c.mapped));
      // The mapping, small peeks and one large read all show the same bytes,
      // zeros past what was written.
      auto shown = expected;
      shown.resize(static_cast<std::size_t>(c.mapped), '\0');
      EXPECT_EQ(std::string(file.data(), shown.size()), shown);
      std::string got(shown.size(), '\0');
      file.seek(0, std::ios_base::beg);
      EXPECT_EQ(file.peek(got.data(), 3), 3);
      EXPECT_EQ(got.substr(0, 3), shown.substr(0, 3));
      file.read(got.data(), static_cast<long>(got.size()));
      EXPECT_EQ(got, shown);
      EXPECT_TRUE(file.is_good());
    }  // destruction closes
    EXPECT_EQ(test::read_file(path), expected);
  }
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
    const std::string text = pattern(3 * page + 100, 'a');
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

TEST(IoFile, FilesBeyondFourGibibytesGrowAndReadWhole) {
  // A write that far on outgrows any room kept next to the first mapping,
  // so the mapping moves; the file stays sparse.
  test::temp_dir dir;
  const auto path = dir / "large.bin";
  const long long marker_at = (4LL << 30) + 12345;
  io_file writer;
  writer.open(path, out);
  writer.write("head", 4);
  writer.seek(marker_at, std::ios_base::beg);
  writer.write("marker", 6);
  writer.seek((5LL << 30) - 3, std::ios_base::beg);
  writer.write("end", 3);
  EXPECT_TRUE(writer.is_good());
  EXPECT_EQ(writer.size(), 5LL << 30);
  EXPECT_EQ(std::string(writer.data(), 4), "head");
  writer.close();
  EXPECT_EQ(fs::file_size(path), static_cast<std::uintmax_t>(5LL << 30));

  io_file file;
  file.open(path, in);
  EXPECT_EQ(file.size(), 5LL << 30);
  // A large read straddling the 4 GiB mark.
  file.seek((4LL << 30) - 40000, std::ios_base::beg);
  std::string block(80000, 'x');
  file.read(block.data(), static_cast<long>(block.size()));
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(block.find_first_not_of('\0'), 40000u + 12345u);
  EXPECT_EQ(block.substr(40000 + 12345, 6), "marker");
  EXPECT_EQ(file.tell(), (4LL << 30) + 40000);
  file.seek(-3, std::ios_base::end);
  block.assign(8, 'x');
  file.read(block.data(), 8);
  EXPECT_EQ(file.state(), eof | fail);
  EXPECT_EQ(block.substr(0, 4), "endx");
}

TEST(IoFile, RefusalsLeaveTheFileTheDeviceAndTheDescriptorsAlone) {
  test::temp_dir dir;
  fs::create_directory(dir / "sub");
  test::write_file(dir / "fixed", "fixed");
  test::write_file(dir / "empty", "");
  const auto descriptors = open_descriptors();
  for (const auto& [path, mode] :
       {std::pair{dir / "absent", in}, std::pair{dir / "sub", in}, std::pair{dir / "sub", out},
        std::pair{dir / "sub", in | out}, std::pair{dir / "no" / "such", out}}) {
    io_file file;
    file.open(path, mode);
    EXPECT_EQ(file.state(), fail) << path << " " << mode;
    EXPECT_FALSE(file.is_open());
  }
  EXPECT_FALSE(fs::exists(dir / "absent"));
  io_file file;
  file.open(dir / "fixed", in);
  file.write("X", 1);
  EXPECT_EQ(file.state(), fail);
  file.open(dir / "empty", in);  // already open: refused, the first stays
  EXPECT_STREQ(file.name(), (dir / "fixed").c_str());
  file.close();
  EXPECT_EQ(test::read_file(dir / "fixed"), "fixed");
  file.close();  // closing twice is refused
  EXPECT_EQ(file.state(), fail);
  // An empty file opened for reading maps nothing and reads nothing.
  file.clear(0);
  file.open(dir / "empty", in);
  EXPECT_TRUE(file.is_good());
  EXPECT_EQ(file.data(), nullptr);
  char c = 0;
  file.read(&c, 1);
  EXPECT_EQ(file.state(), eof | fail);
  file.close();
  EXPECT_EQ(file.state(), eof | fail);
  EXPECT_EQ(open_descriptors(), descriptors);
}

}  // namespace
}  // namespace norvane
