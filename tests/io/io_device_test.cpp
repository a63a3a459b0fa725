// The device base: state bits and the exceptions mask, names, the open-mode
// check and the line reader, seen through io_buffer and through a device
// written the way an application would write its own.
#include "support/test_support.hpp"

#include "io/io_test_util.hpp"

#include <norvane/io.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <system_error>

namespace norvane {
namespace {

using namespace test_bits;

// A device outside the library: it extends the public record with its own
// state and hands it to the base, which owns it from then on.
struct counting_record : io_device_pimpl {
  explicit counting_record(int* destroyed) : destroyed_count(destroyed) {}
  ~counting_record() override { ++*destroyed_count; }
  int* destroyed_count;
  std::string text;
  long position = 0;
  bool open = false;
};

class string_device : public io_device {
public:
  explicit string_device(int* destroyed) : io_device(*new counting_record(destroyed)) {}
  void open(std::string text) {
    if (verify_open_mode(in)) {
      record().text = std::move(text);
      record().open = true;
      set_open_mode(in);
      clear(0);
    }
  }
  bool is_open() const override { return record().open; }
  void close() override { record().open = false; }
  long peek(char*, long) const override { return 0; }
  void read(char* buffer, long count) override {
    auto& r = record();
    const long n = std::min<long>(count, static_cast<long>(r.text.size()) - r.position);
    std::memcpy(buffer, r.text.data() + r.position, static_cast<std::size_t>(std::max(n, 0L)));
    r.position += std::max(n, 0L);
    if (n != count) {
      set_state(eofbit | failbit);
    }
  }
  void write(const char*, long) override { set_state(failbit); }
  void seek(long long, std::ios_base::seekdir) override {}
  long long tell() const override { return record().position; }
  char* data() const override { return nullptr; }
  long long size() const override { return static_cast<long long>(record().text.size()); }
  bool is_sequential() const override { return true; }

private:
  counting_record& record() const { return static_cast<counting_record&>(pimpl()); }
};

bool throws_stream_error(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::system_error& e) {
    return e.code() == std::make_error_code(std::io_errc::stream) &&
           e.code().category() == std::iostream_category() && e.code().value() == 1;
  }
  return false;
}

TEST(IoDevice, EachMaskedBitThrowsAfterTheStateChanged) {
  for (const unsigned int bit : {bad, eof, fail}) {
    SCOPED_TRACE(bit);
    io_buffer device;
    device.set_exceptions(bit);
    EXPECT_EQ(device.exceptions(), bit);
    // The other bits pass silently.
    device.set_state((bad | eof | fail) & ~bit);
    EXPECT_TRUE(throws_stream_error([&] { device.set_state(bit); }));
    EXPECT_EQ(device.state(), bad | eof | fail);
    EXPECT_TRUE(device.at_end() && device.has_failure() && device.has_error() && !device.is_good());
    // Once set, every later check throws, even for no new bits.
    EXPECT_TRUE(throws_stream_error([&] { device.set_state(0); }));
    EXPECT_TRUE(throws_stream_error([&] { device.clear(bit); }));
    EXPECT_EQ(device.state(), bit);
    EXPECT_EQ(device.has_error(), bit == bad);
    EXPECT_EQ(device.at_end(), bit == eof);
    EXPECT_TRUE(device.has_failure() == (bit != eof));
    device.clear(0);
    EXPECT_TRUE(device.is_good());
  }
}

TEST(IoDevice, MaskedBitsThrowFromTheOperationThatSetsThem) {
  char memory[4] = {'a', 'b', 'c', 'd'};
  char out[8] = {};

  io_buffer reader;
  reader.open(memory, 4);
  reader.set_exceptions(eof);
  EXPECT_TRUE(throws_stream_error([&] { reader.read(out, 6); }));
  EXPECT_EQ(reader.state(), eof | fail);
  EXPECT_EQ(std::string(out, 4), "abcd");

  io_buffer writer;
  writer.open(memory, 4, io_device::in | io_device::out, false);
  writer.set_exceptions(bad);
  writer.seek(2, std::ios_base::beg);
  EXPECT_TRUE(throws_stream_error([&] { writer.write("XYZ", 3); }));
  EXPECT_EQ(writer.state(), bad);
  EXPECT_EQ(std::string(memory, 4), "abXY");

  io_buffer seeker;
  seeker.open(memory, 4);
  seeker.set_exceptions(fail);
  EXPECT_TRUE(throws_stream_error([&] { seeker.seek(-1, std::ios_base::beg); }));
  EXPECT_EQ(seeker.state(), fail);
  // A refused open mode throws too, with fail already recorded.
  io_buffer refused;
  refused.set_exceptions(fail);
  EXPECT_TRUE(throws_stream_error([&] { refused.open(memory, 4, io_device::trunc, false); }));
  EXPECT_EQ(refused.state(), fail);
  EXPECT_FALSE(refused.is_open());
}

TEST(IoDevice, SettingAMaskOverAStateAlreadyThereThrowsAtOnce) {
  io_buffer device;
  device.set_state(fail);
  EXPECT_FALSE(throws_stream_error([&] { device.set_exceptions(eof | bad); }));
  EXPECT_TRUE(throws_stream_error([&] { device.set_exceptions(fail); }));
  EXPECT_EQ(device.exceptions(), fail);
  EXPECT_EQ(device.state(), fail);
  // With the default empty mask nothing ever throws.
  io_buffer quiet;
  EXPECT_EQ(quiet.exceptions(), 0u);
  EXPECT_FALSE(throws_stream_error([&] { quiet.set_state(bad | eof | fail); }));
}

TEST(IoDevice, NamesAreCopiedAndCanBeCleared) {
  io_buffer device;
  EXPECT_EQ(device.name(), nullptr);
  std::string text = "first";
  device.set_name(text.c_str());
  text[0] = 'X';
  EXPECT_STREQ(device.name(), "first");
  device.set_name(device.name());  // its own copy as the source
  EXPECT_STREQ(device.name(), "first");
  device.set_name("");
  EXPECT_STREQ(device.name(), "");
  device.set_name(nullptr);
  EXPECT_EQ(device.name(), nullptr);
}

TEST(IoDevice, OpenModeCheckRefusesTruncWithoutOutAppWithTruncAndReopening) {
  struct row {
    unsigned int mode;
    bool accepted;
  };
  for (const row r :
       {row{trunc, false}, row{out | trunc, true}, row{app | trunc, false}, row{app | out | trunc, false},
        row{in | trunc, false}, row{in, true}, row{out | app, true}, row{0, true},
        row{in | out | trunc | io_device::ate | io_device::binary, true}}) {
    SCOPED_TRACE(r.mode);
    io_buffer device;
    EXPECT_EQ(device.verify_open_mode(r.mode), r.accepted);
    EXPECT_EQ(device.state(), r.accepted ? 0u : fail);
    EXPECT_EQ(device.open_mode(), 0u);  // the check stores nothing
  }
  char memory[2] = {'a', 'b'};
  io_buffer open_device;
  open_device.open(memory, 2);
  EXPECT_FALSE(open_device.verify_open_mode(io_device::in));
  EXPECT_EQ(open_device.state(), fail);
  // set_open_mode stores without judging.
  open_device.set_open_mode(trunc);
  EXPECT_EQ(open_device.open_mode(), trunc);
}

TEST(IoDevice, ReadLineCollapsesCarriageReturnAndDoublesTheLastByteAtTheEnd) {
  const char text[] = {'a', 'b', '\r', '\n', 'c', 'd'};
  io_buffer device;
  device.open(text, 6);
  char line[16];
  bool found = false;
  EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), 3);
  EXPECT_TRUE(found);
  EXPECT_STREQ(line, "ab\n");
  EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), 3);
  EXPECT_FALSE(found);
  EXPECT_STREQ(line, "cdd");
  EXPECT_EQ(device.state(), eof | fail);
  // Nothing more: the loop sees the state before reading.
  line[0] = 'x';
  EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), 0);
  EXPECT_STREQ(line, "");
}

TEST(IoDevice, ReadLineHonoursItsCapacityAndOtherDelimiters) {
  const char text[] = "one\r;two;\r\nthree";
  io_buffer device;
  device.open(text, static_cast<long>(std::strlen(text)));
  char line[8];
  bool found = true;
  // max 1 and 0: only the terminating zero, nothing read.
  line[0] = 'x';
  EXPECT_EQ(device.read_line(&found, line, 1, ';'), 0);
  EXPECT_FALSE(found);
  EXPECT_EQ(line[0], 0);
  EXPECT_EQ(device.tell(), 0);
  // Only a line feed delimiter swallows a carriage return before it.
  EXPECT_EQ(device.read_line(&found, line, sizeof line, ';'), 5);
  EXPECT_TRUE(found);
  EXPECT_STREQ(line, "one\r;");
  EXPECT_EQ(device.read_line(&found, line, sizeof line, ';'), 4);
  EXPECT_STREQ(line, "two;");
  // A carriage return alone (no line feed after) stays.
  EXPECT_EQ(device.read_line(&found, line, 2, '\n'), 1);
  EXPECT_FALSE(found);
  EXPECT_STREQ(line, "\r");
  EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), 1);
  EXPECT_STREQ(line, "\n");
  EXPECT_TRUE(found);
  // A full buffer stops the line: max - 1 bytes, no delimiter.
  EXPECT_EQ(device.read_line(&found, line, 4, '\n'), 3);
  EXPECT_FALSE(found);
  EXPECT_STREQ(line, "thr");
  EXPECT_TRUE(device.is_good());
}

TEST(IoDevice, ReadLineReportsMinusOneForNothingOnABadDevice) {
  const char text[] = "abc\n";
  io_buffer device;
  device.open(text, 4);
  char line[8];
  bool found = true;
  device.set_state(bad);
  EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), -1);
  EXPECT_FALSE(found);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(device.read_line(&found, line, 1, '\n'), -1);
  // eof or fail alone give 0.
  device.clear(fail);
  EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), 0);
  EXPECT_EQ(device.tell(), -1);
}

TEST(IoDevice, ADeviceOfTheApplicationsOwnAdoptsItsRecord) {
  int destroyed = 0;
  {
    string_device device(&destroyed);
    device.set_name("strings");
    device.open("x\r\ny");
    EXPECT_TRUE(device.is_open());
    EXPECT_FALSE(device.verify_open_mode(io_device::in));
    device.clear(0);
    char line[8];
    bool found = false;
    EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), 2);
    EXPECT_STREQ(line, "x\n");
    EXPECT_EQ(device.read_line(&found, line, sizeof line, '\n'), 2);
    EXPECT_STREQ(line, "yy");
    EXPECT_STREQ(device.name(), "strings");
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(IoDevice, BothDevicesSeekAndClampReadsAlike) {
  // Over data of the same length the memory and the file device land on the
  // same positions and deliver the same bytes: the arithmetic is the base's.
  test::temp_dir dir;
  std::string text(100, '\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char>('a' + i % 26);
  }
  test::write_file(dir / "data", text);
  io_file file;
  file.open(dir / "data", in);
  io_buffer memory;
  memory.open(text.data(), static_cast<long>(text.size()));
  struct step {
    long long offset;
    std::ios_base::seekdir whence;
    long long lands;  // -1: the seek fails
    long count;
    long delivered;
  };
  const auto beg = std::ios_base::beg;
  const auto cur = std::ios_base::cur;
  const auto end = std::ios_base::end;
  const step steps[] = {
      {10, beg, 10, 5, 5},        {-3, cur, 2, 0, 0},
      {-5, end, 95, 10, 5},       {0, end, 100, 1, 0},
      {0, beg, 0, 0, 100},        {150, beg, 150, 4, 0},
      {-1, beg, -1, 0, 0},        {-101, end, -1, 0, 0},
      {LLONG_MAX, cur, -1, 0, 0}, {7, std::ios_base::seekdir(42), -1, 0, 0},
  };
  for (const auto& s : steps) {
    SCOPED_TRACE(testing::Message() << s.offset << " from " << s.whence << ", read " << s.count);
    for (io_device* device : {static_cast<io_device*>(&file), static_cast<io_device*>(&memory)}) {
      device->clear(0);
      device->seek(5, beg);
      device->seek(s.offset, s.whence);
      if (s.lands < 0) {
        EXPECT_EQ(device->state(), fail);
        device->clear(0);
        EXPECT_EQ(device->tell(), 5);  // a refused seek leaves the position
        continue;
      }
      EXPECT_EQ(device->tell(), s.lands);
      std::string got(128, '.');
      device->read(got.data(), s.count);
      EXPECT_EQ(device->state(), s.delivered == s.count ? 0u : eof | fail);
      const auto from = static_cast<std::size_t>(std::min<long long>(s.lands, 100));
      EXPECT_EQ(got.substr(0, static_cast<std::size_t>(s.delivered)),
                text.substr(from, static_cast<std::size_t>(s.delivered)));
    }
  }
}

}  // namespace
}  // namespace norvane
