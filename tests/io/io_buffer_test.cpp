// io_buffer: plain and chunked memory, the read and write clamps, seeking,
// ownership, and bulk copies that must match a byte-at-a-time walk exactly.
#include "io/io_buffer_pimpl.hpp"

#include "io/io_test_util.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace norvane {
namespace {

using namespace test_bits;

// Lets a test look at the backing record (the cached physical offset).
class buffer_probe : public io_buffer {
public:
  const memory_raw_buffer& raw() const { return *static_cast<io_buffer_pimpl&>(pimpl()).buffer; }
};

std::string read_all(io_buffer& device, long count) {
  std::string text(static_cast<std::size_t>(count), '\0');
  device.read(text.data(), count);
  return text;
}

TEST(IoBuffer, ChunksAreReadInTheirListedOrder) {
  char memory[] = "PPPPQQQQRRRR";
  io_buffer device;
  device.open(memory, 12, {2, 0, 1}, 4, in, false);
  EXPECT_TRUE(device.is_open());
  EXPECT_EQ(device.chunk_ids(), (std::vector<unsigned long>{2, 0, 1}));
  EXPECT_EQ(device.chunk_size(), 4);
  EXPECT_EQ(read_all(device, 12), "RRRRPPPPQQQQ");
  EXPECT_TRUE(device.is_good());
  EXPECT_EQ(device.tell(), 12);
  // Seeking maps through the chunks as well.
  device.seek(5, std::ios_base::beg);
  EXPECT_EQ(read_all(device, 5), "PPPQQ");
  char two[2];
  device.seek(-4, std::ios_base::end);
  EXPECT_EQ(device.peek(two, 2), 2);
  EXPECT_EQ(std::string(two, 2), "QQ");
  EXPECT_EQ(device.tell(), 8);
  // A new layout rewinds.
  device.set_chunks({1, 2, 0}, 4);
  EXPECT_EQ(device.tell(), 0);
  EXPECT_EQ(read_all(device, 12), "QQQQRRRRPPPP");
}

TEST(IoBuffer, ReadsClampAtTheEndWithEofAndFail) {
  const char memory[] = "abcdef";
  io_buffer device;
  device.open(memory, 6);
  EXPECT_EQ(device.open_mode(), in);
  std::string got(10, '.');
  device.seek(4, std::ios_base::beg);
  device.read(got.data(), 10);
  EXPECT_EQ(got, "ef........");
  EXPECT_EQ(device.state(), eof | fail);
  device.clear(0);
  EXPECT_EQ(device.tell(), 6);
  got.assign(10, '.');
  device.read(got.data(), 3);
  EXPECT_EQ(got, "..........");
  EXPECT_EQ(device.state(), eof | fail);
  // A zero read inside the data is not a short read.
  device.clear(0);
  device.seek(3, std::ios_base::beg);
  device.read(got.data(), 0);
  EXPECT_TRUE(device.is_good());
  EXPECT_EQ(device.tell(), 3);
  // Past the end, reads deliver nothing; the one chunk of an unchunked
  // buffer reaches one chunk further than the end, and no more.
  device.seek(8, std::ios_base::beg);
  EXPECT_TRUE(device.is_good());
  EXPECT_EQ(device.tell(), 8);
  EXPECT_EQ(device.peek(got.data(), 1), 0);
  device.read(got.data(), 1);
  EXPECT_EQ(device.state(), eof | fail);
  device.clear(0);
  device.seek(12, std::ios_base::beg);
  EXPECT_EQ(device.state(), fail);
  device.clear(0);
  EXPECT_EQ(device.tell(), -1);
}

TEST(IoBuffer, AZeroReadAtTheStartTakesTheWholeBuffer) {
  const char memory[] = "whole";
  io_buffer device;
  device.open(memory, 5);
  char target[8] = {};
  EXPECT_EQ(device.peek(target, 0), 5);
  EXPECT_EQ(device.tell(), 0);
  device.read(target, 0);
  EXPECT_STREQ(target, "whole");
  EXPECT_EQ(device.state(), eof | fail);
  EXPECT_EQ(device.tell(), -1);
  device.clear(0);
  EXPECT_EQ(device.tell(), 5);
}

TEST(IoBuffer, WritesNeedOutAndNeverGrowTheBuffer) {
  char memory[] = "abcdef";
  io_buffer readonly;
  readonly.open(memory, 6, in, false);
  readonly.write("XY", 2);
  EXPECT_EQ(readonly.state(), fail);
  EXPECT_STREQ(memory, "abcdef");

  io_buffer device;
  device.open(memory, 6, in | out, false);
  device.seek(1, std::ios_base::beg);
  device.write("XY", 2);
  EXPECT_TRUE(device.is_good());
  EXPECT_EQ(device.tell(), 3);
  EXPECT_STREQ(memory, "aXYdef");
  // What fits is written, the rest is lost and bad is set.
  device.seek(4, std::ios_base::beg);
  device.write("1234", 4);
  EXPECT_EQ(device.state(), bad);
  EXPECT_STREQ(memory, "aXYd12");
  EXPECT_EQ(device.size(), 6);
  // Written through chunks, into the physical places.
  char chunked[] = "....____";
  io_buffer layout;
  layout.open(chunked, 8, {1, 0}, 4, out, false);
  layout.write("abcdef", 6);
  EXPECT_STREQ(chunked, "ef..abcd");
  EXPECT_TRUE(layout.is_good());
  // Past the end nothing fits.
  layout.seek(10, std::ios_base::beg);
  layout.write("z", 1);
  EXPECT_EQ(layout.state(), bad);
  EXPECT_STREQ(chunked, "ef..abcd");
}

TEST(IoBuffer, SeekAndTellRules) {
  const char memory[] = "0123456789";
  io_buffer device;
  EXPECT_EQ(device.tell(), -1);  // never opened
  device.open(memory, 10);
  device.seek(0, std::ios_base::end);
  EXPECT_EQ(device.tell(), 10);
  device.seek(-3, std::ios_base::cur);
  EXPECT_EQ(device.tell(), 7);
  device.seek(-8, std::ios_base::cur);
  EXPECT_EQ(device.state(), fail);
  device.clear(0);
  EXPECT_EQ(device.tell(), 7);  // a refused seek leaves the position
  device.seek(-11, std::ios_base::end);
  EXPECT_EQ(device.state(), fail);
  // While failed, seeks are ignored and tell reports -1.
  device.seek(2, std::ios_base::beg);
  EXPECT_EQ(device.tell(), -1);
  device.clear(0);
  EXPECT_EQ(device.tell(), 7);
  device.seek(-1, std::ios_base::beg);
  EXPECT_EQ(device.state(), fail);
  device.clear(0);
  device.seek(1, static_cast<std::ios_base::seekdir>(7));
  EXPECT_EQ(device.state(), fail);
  device.clear(0);
  device.seek(LLONG_MAX, std::ios_base::beg);
  device.seek(1, std::ios_base::cur);
  EXPECT_EQ(device.state(), fail);
  EXPECT_FALSE(device.is_sequential());
}

TEST(IoBuffer, OpenCloseAndOwnership) {
  const char first[] = "first";
  const char second[] = "second";
  io_buffer device;
  device.open(first, 5);
  device.open(second, 6);
  EXPECT_EQ(device.state(), fail);
  EXPECT_EQ(device.data(), first);
  EXPECT_EQ(device.size(), 5);
  device.close();
  EXPECT_FALSE(device.is_open());
  EXPECT_EQ(device.data(), nullptr);
  EXPECT_EQ(device.size(), 0);
  EXPECT_TRUE(device.chunk_ids().empty());
  EXPECT_EQ(device.state(), fail);  // close keeps the state
  device.clear(0);
  EXPECT_EQ(device.tell(), 0);  // the position was reset, not invalidated
  device.close();
  EXPECT_EQ(device.state(), fail);

  // A null pointer passes, clears the state and leaves the device closed.
  device.open(nullptr, 10, out, false);
  EXPECT_TRUE(device.is_good());
  EXPECT_FALSE(device.is_open());
  EXPECT_EQ(device.tell(), -1);
  EXPECT_EQ(device.open_mode(), out);
  char target[4];
  device.read(target, 4);
  EXPECT_EQ(device.state(), eof | fail);

  // Owned memory is freed on close and on destruction (the leak checker of a
  // sanitized build holds this test to it).
  io_buffer owner;
  owner.open(new char[16](), 16, in | out, true);
  owner.write("owned", 5);
  EXPECT_EQ(std::string(owner.data(), 5), "owned");
  owner.close();
  owner.open(new char[16](), 16, {0}, 16, in, true);
  EXPECT_TRUE(owner.is_good());
}

// The chunk mapping walked one byte at a time: what a bulk copy must equal.
struct reference_walk {
  std::string bytes;
  std::int64_t position;
  std::int64_t chunk_offset;
  std::int64_t copied;
  std::vector<std::int64_t> offsets;
};

reference_walk walk(const std::string& memory, std::int64_t size, const std::vector<unsigned long>& ids,
                    std::int64_t chunk, std::int64_t position, std::int64_t chunk_offset,
                    std::int64_t count) {
  std::int64_t n = count;
  if (position + count > size || position + count == 0) {
    n = std::max<std::int64_t>(size - position, 0);
  }
  reference_walk r{{}, position, chunk_offset, 0, {}};
  for (std::int64_t i = 0; i < n; ++i) {
    const std::uint64_t k = chunk == 0 ? 0 : static_cast<std::uint64_t>(r.position / chunk);
    if (k > ids.size()) {
      break;
    }
    const std::uint64_t id = k < ids.size() ? ids[k] : k;
    r.chunk_offset = static_cast<std::int64_t>(r.position - k * chunk + id * chunk);
    r.bytes.push_back(memory[static_cast<std::size_t>(r.chunk_offset)]);
    r.offsets.push_back(r.chunk_offset);
    ++r.position;
    ++r.copied;
  }
  return r;
}

TEST(IoBuffer, BulkReadsMatchAByteWalkWhereverTheMappingEnds) {
  // Chunks {1, 0} of 4 bytes cover 12 logical bytes (the index one past the
  // list maps as physical chunk 2); a size of 16 runs out of chunks part way.
  std::string memory = "AAAABBBBCCCCDDDD";
  buffer_probe device;
  device.open(memory.data(), 16, {1, 0}, 4, in, false);
  EXPECT_EQ(device.raw().chunk_offset, 4);
  std::string got(16, '.');
  device.read(got.data(), 16);
  EXPECT_EQ(got, "BBBBAAAACCCC....");
  EXPECT_EQ(device.state(), eof | fail);
  EXPECT_EQ(device.raw().position, 12);
  EXPECT_EQ(device.raw().chunk_offset, 11);
  device.clear(0);
  EXPECT_EQ(device.tell(), -1);  // unmappable
  device.seek(13, std::ios_base::beg);
  EXPECT_EQ(device.state(), fail);  // moved, but cannot be mapped
  EXPECT_EQ(device.raw().position, 13);

  std::mt19937 random(7);
  for (int round = 0; round < 400; ++round) {
    // Every fourth round takes chunks long enough for the copy to read ahead.
    const std::int64_t chunk = round % 4 == 0
                                   ? std::uniform_int_distribution<std::int64_t>(1000, 5000)(random)
                                   : std::uniform_int_distribution<std::int64_t>(0, 9)(random);
    const std::size_t count_ids = std::uniform_int_distribution<std::size_t>(1, 6)(random);
    std::vector<unsigned long> ids(count_ids);
    std::iota(ids.begin(), ids.end(), 0UL);
    std::shuffle(ids.begin(), ids.end(), random);
    // Physical room for the one-past-the-list chunk too.
    const std::int64_t physical = std::max<std::int64_t>(chunk, 1) * static_cast<std::int64_t>(count_ids + 2);
    std::string bytes(static_cast<std::size_t>(physical), '\0');
    for (auto& c : bytes) {
      c = static_cast<char>('a' + random() % 26);
    }
    const std::int64_t size = std::uniform_int_distribution<std::int64_t>(0, physical)(random);
    const std::int64_t start = std::uniform_int_distribution<std::int64_t>(0, size + 2)(random);
    const std::int64_t count = std::uniform_int_distribution<std::int64_t>(0, size + 3)(random);
    SCOPED_TRACE(testing::Message() << "chunk " << chunk << " ids " << count_ids << " size " << size
                                    << " start " << start << " count " << count);

    buffer_probe b;
    b.open(bytes.data(), static_cast<long>(size), ids, static_cast<long>(chunk), in | out, false);
    b.seek(start, std::ios_base::beg);
    const std::int64_t cached = b.raw().chunk_offset;
    b.clear(0);
    const auto expected = walk(bytes, size, ids, chunk, start, cached, count);

    std::string peeked(static_cast<std::size_t>(std::max<std::int64_t>(size, count)), '\0');
    EXPECT_EQ(b.peek(peeked.data(), static_cast<long>(count)), expected.copied);
    EXPECT_EQ(peeked.substr(0, static_cast<std::size_t>(expected.copied)), expected.bytes);
    EXPECT_EQ(b.raw().position, start);

    std::string read_back(peeked.size(), '\0');
    b.read(read_back.data(), static_cast<long>(count));
    EXPECT_EQ(read_back.substr(0, static_cast<std::size_t>(expected.copied)), expected.bytes);
    EXPECT_EQ(b.raw().position, expected.position);
    EXPECT_EQ(b.raw().chunk_offset, expected.chunk_offset);
    EXPECT_EQ(b.state(), expected.copied == count ? 0u : eof | fail);

    // Writes land where the walk says, and stop where it stops.
    std::string expected_memory = bytes;
    std::string text(expected.bytes.size(), '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
      text[i] = static_cast<char>('A' + i % 26);
      expected_memory[static_cast<std::size_t>(expected.offsets[i])] = text[i];
    }
    b.clear(0);
    b.seek(start, std::ios_base::beg);
    b.clear(0);
    b.write(text.data(), static_cast<long>(text.size()));
    EXPECT_EQ(bytes, expected_memory);
    EXPECT_EQ(b.raw().position, expected.position);
    if (!text.empty()) {
      EXPECT_EQ(b.raw().chunk_offset, expected.chunk_offset);
    }
  }
}

}  // namespace
}  // namespace norvane
