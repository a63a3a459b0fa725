// The device base and io_buffer over plain and chunked memory, whose bulk
// copies must match a byte-at-a-time walk exactly.
#include "support/test_support.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

namespace norvane {
namespace {

constexpr unsigned int bad = io_device::badbit, eof = io_device::eofbit, fail = io_device::failbit;
constexpr unsigned int in = io_device::in, out = io_device::out;

bool throws_stream_error(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::system_error& e) {
    return e.code() == std::make_error_code(std::io_errc::stream);
  }
  return false;
}

TEST(IoDevice, AMaskedBitThrowsOnceSetAndFromTheOperationThatSetsIt) {
  for (const unsigned int bit : {bad, eof, fail}) {
    SCOPED_TRACE(bit);
    io_buffer device;
    device.set_exceptions(bit);
    device.set_state((bad | eof | fail) & ~bit);  // the other bits pass silently
    EXPECT_TRUE(throws_stream_error([&] { device.set_state(bit); }));
    EXPECT_EQ(device.state(), bad | eof | fail);
    EXPECT_TRUE(throws_stream_error([&] { device.clear(bit); }));  // even for no new bit
    EXPECT_EQ(std::tuple(device.state(), device.has_error(), device.at_end(), device.has_failure()),
              std::tuple(bit, bit == bad, bit == eof, bit != eof));
    device.set_exceptions(0);
    EXPECT_TRUE(throws_stream_error([&] { device.set_exceptions(bit); }));
  }
  char memory[4] = {'a', 'b', 'c', 'd'};
  char got[8] = {};
  io_buffer device;
  device.open(memory, 4, in | out, false);
  device.set_exceptions(eof);
  EXPECT_TRUE(throws_stream_error([&] { device.read(got, 6); }));
  EXPECT_EQ(device.state(), eof | fail);
  device.set_exceptions(bad);
  device.clear(0);
  device.seek(2, std::ios_base::beg);
  EXPECT_TRUE(throws_stream_error([&] { device.write("XYZ", 3); }));
  EXPECT_EQ(std::string(memory, 4), "abXY");
  io_buffer quiet;  // the default empty mask never throws
  EXPECT_FALSE(throws_stream_error([&] { quiet.set_state(bad | eof | fail); }));
}

TEST(IoDevice, ReadLineCollapsesCrLfAndDoublesTheLastByteAtTheEnd) {
  // A row with a text opens a device on it with `before` set; the rows after read on from there.
  // Only a line-feed delimiter swallows the carriage return before it, and only when a line feed
  // follows; a full buffer stops the line.
  const struct {
    const char* text;
    unsigned int before;
    int max;
    char delimiter;
    const char* line;
    long returned;
    bool found;
    unsigned int after;
  } steps[] = {
      {"ab\r\ncd", 0, 16, '\n', "ab\n", 3, true, 0},    {nullptr, 0, 16, '\n', "cdd", 3, false, eof | fail},
      {nullptr, 0, 16, '\n', "", 0, false, eof | fail}, {"one\r;two;\r\nthree", 0, 1, ';', "", 0, false, 0},
      {nullptr, 0, 8, ';', "one\r;", 5, true, 0},       {nullptr, 0, 8, ';', "two;", 4, true, 0},
      {nullptr, 0, 2, '\n', "\r", 1, false, 0},         {nullptr, 0, 8, '\n', "\n", 1, true, 0},
      {nullptr, 0, 4, '\n', "thr", 3, false, 0},        {"abc\n", bad, 8, '\n', "", -1, false, bad},
      {nullptr, 0, 1, '\n', "", -1, false, bad},        {"abc\n", fail, 8, '\n', "", 0, false, fail},
  };
  io_buffer device;
  for (const auto& s : steps) {
    SCOPED_TRACE(s.line);
    if (s.text != nullptr) {
      device.close();
      device.clear(0);
      device.open(s.text, static_cast<long>(std::string(s.text).size()));
      device.set_state(s.before);
    }
    char line[16] = "xxxxxxxxxxxxxxx";
    bool found = !s.found;
    EXPECT_EQ(device.read_line(&found, line, s.max, s.delimiter), s.returned);
    EXPECT_EQ(std::tuple(std::string(line), found, device.state()), std::tuple(s.line, s.found, s.after));
  }
}

TEST(IoDevice, FileAndMemorySeekAndClampReadsAlike) {
  test::temp_dir dir;
  std::string text;
  for (int i = 0; i < 100; ++i) text += static_cast<char>('a' + i % 26);
  test::write_file(dir / "data", text);
  io_file file;
  file.open(dir / "data", in);
  io_buffer memory;
  memory.open(text.data(), static_cast<long>(text.size()));
  const auto beg = std::ios_base::beg, cur = std::ios_base::cur, end = std::ios_base::end;
  const struct {
    long long offset;
    std::ios_base::seekdir whence;
    long long lands;  // -1: the seek fails and leaves the position
    long count;
    long delivered;  // a read of 0 at the start takes everything
  } steps[] = {
      {10, beg, 10, 5, 5},
      {-3, cur, 2, 0, 0},
      {-5, end, 95, 10, 5},
      {0, end, 100, 1, 0},
      {0, beg, 0, 0, 100},
      {150, beg, 150, 4, 0},
      {-1, beg, -1, 0, 0},
      {-101, end, -1, 0, 0},
      {-6, cur, -1, 0, 0},
      {LLONG_MAX, cur, -1, 0, 0},
      {7, std::ios_base::seekdir(42), -1, 0, 0},
  };
  for (const auto& s : steps) {
    SCOPED_TRACE(testing::Message() << s.offset << " from " << s.whence << ", read " << s.count);
    for (io_device* device : {static_cast<io_device*>(&file), static_cast<io_device*>(&memory)}) {
      device->clear(0);
      device->seek(5, beg);
      device->seek(s.offset, s.whence);
      if (s.lands < 0) {
        EXPECT_EQ(device->state(), fail);
        device->seek(0, beg);  // ignored while failed, and tell says -1
        EXPECT_EQ(device->tell(), -1);
        device->clear(0);
        EXPECT_EQ(device->tell(), 5);
        continue;
      }
      EXPECT_EQ(device->tell(), s.lands);
      std::string got(128, '.');
      device->read(got.data(), s.count);
      EXPECT_EQ(device->state(), s.delivered == s.count ? 0u : eof | fail);
      EXPECT_EQ(device->tell(), s.delivered == s.count ? s.lands + s.count : -1);
      const auto from = static_cast<std::size_t>(std::min<long long>(s.lands, 100));
      EXPECT_EQ(got.substr(0, static_cast<std::size_t>(s.delivered) + 1),
                text.substr(from, static_cast<std::size_t>(s.delivered)) + '.');
    }
  }
}

TEST(IoBuffer, ChunksWritesAndOwnership) {
  char memory[] = "PPPPQQQQRRRR";
  io_buffer device;
  device.open(memory, 12, {2, 0, 1}, 4, in | out, false);
  std::string got(12, '.');
  device.seek(5, std::ios_base::beg);
  device.read(got.data(), 5);
  EXPECT_EQ(got.substr(0, 5), "PPPQQ");
  device.set_chunks({1, 2, 0}, 4);  // a new layout rewinds
  EXPECT_EQ(device.tell(), 0);
  device.write("abcdef", 6);  // into the physical places
  EXPECT_STREQ(memory, "PPPPabcdefRR");
  device.seek(-2, std::ios_base::end);
  device.write("1234", 4);  // never grows: what fits is written, and bad is set
  EXPECT_EQ(device.state(), bad);
  EXPECT_STREQ(memory, "PP12abcdefRR");
  io_buffer readonly;
  readonly.open(memory, 12, in, false);
  readonly.write("X", 1);
  EXPECT_EQ(readonly.state(), fail);
  readonly.open(memory, 4);  // opening an open device is refused
  EXPECT_EQ(readonly.size(), 12);
  readonly.close();
  EXPECT_EQ(readonly.data(), nullptr);
  EXPECT_EQ(readonly.state(), fail);
  readonly.open(nullptr, 10, out, false);  // passes and leaves the device closed
  EXPECT_TRUE(readonly.is_good() && !readonly.is_open());
  // Owned memory is freed on close and on destruction (the sanitized build's leak checker sees).
  io_buffer owner;
  owner.open(new char[16](), 16, in | out, true);
  owner.close();
  owner.open(new char[16](), 16, {0}, 16, in, true);
  EXPECT_TRUE(owner.is_good());
}

TEST(IoBuffer, BulkCopiesMatchAByteWalkWhereverTheMappingEnds) {
  std::mt19937 random(7);
  const auto uniform = [&](std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random);
  };
  for (int round = 0; round < 400; ++round) {
    // Every fourth round takes chunks long enough for the copy to read ahead.
    const auto chunk = round % 4 == 0 ? uniform(1000, 5000) : uniform(0, 9);
    std::vector<unsigned long> ids(static_cast<std::size_t>(uniform(1, 6)));
    std::iota(ids.begin(), ids.end(), 0UL);
    std::shuffle(ids.begin(), ids.end(), random);
    // Room for the chunk one past the list, which maps as itself.
    std::string bytes(static_cast<std::size_t>(std::max<std::int64_t>(chunk, 1)) * (ids.size() + 2), '\0');
    for (auto& c : bytes) c = static_cast<char>('a' + random() % 26);
    const auto size = uniform(0, std::int64_t(bytes.size()));
    const auto start = uniform(0, size + 2), count = uniform(0, size + 3);
    SCOPED_TRACE(testing::Message() << chunk << " " << ids.size() << " " << size << " " << start << " "
                                    << count);
    // The walk: each position mapped through the chunk list on its own.
    std::vector<std::size_t> offsets;
    const auto n =
        start + count > size || start + count == 0 ? std::max<std::int64_t>(size - start, 0) : count;
    for (std::int64_t p = start; p < start + n; ++p) {
      const auto k = static_cast<std::size_t>(chunk == 0 ? 0 : p / chunk);
      if (k > ids.size()) break;
      offsets.push_back(static_cast<std::size_t>(
          p + (std::int64_t(k < ids.size() ? ids[k] : k) - std::int64_t(k)) * chunk));
    }
    std::string expected, text, after = bytes;
    for (std::size_t i = 0; i < offsets.size(); ++i) {
      expected += bytes[offsets[i]];
      text += static_cast<char>('A' + i % 26);
      after[offsets[i]] = text.back();
    }
    const auto copied = static_cast<std::int64_t>(offsets.size());
    io_buffer b;
    b.open(bytes.data(), static_cast<long>(size), ids, static_cast<long>(chunk), in | out, false);
    b.seek(start, std::ios_base::beg);
    b.clear(0);  // a position past the mapping is kept, but fails
    std::string got(static_cast<std::size_t>(std::max(size, count)), '\0');
    EXPECT_EQ(b.peek(got.data(), static_cast<long>(count)), copied);
    b.read(got.data(), static_cast<long>(count));
    EXPECT_EQ(got.substr(0, expected.size()), expected);
    EXPECT_EQ(b.state(), copied == count ? 0u : eof | fail);
    EXPECT_TRUE(b.tell() == -1 || b.tell() == start + copied);  // -1 past the mapping or after a short read
    b.clear(0);  // writes land where the walk says, and stop where it stops
    b.seek(start, std::ios_base::beg);
    b.clear(0);
    b.write(text.data(), static_cast<long>(text.size()));
    EXPECT_EQ(bytes, after);
  }
}

}  // namespace
}  // namespace norvane
