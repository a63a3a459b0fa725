// Drives one io_buffer over a chunk layout through operations decoded from
// the input, next to a byte-at-a-time model of the same device, and stops
// at the first difference in bytes, positions, state or memory.
#include <norvane/io.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using norvane::io_device;

class input {
public:
  input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool empty() const { return at_ >= size_; }
  std::uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
  long number(long low, long high) { return low + static_cast<long>(byte() % (high - low + 1)); }

private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

// The device as described, one byte at a time.
struct model {
  std::string memory;
  bool open = false;
  long size = 0;
  std::vector<unsigned long> ids;
  long chunk = 0;
  long position = -1;
  bool writable = false;
  unsigned int state = 0;

  long map(long p) const {
    if (p < 0) {
      return -1;
    }
    const unsigned long k = chunk == 0 ? 0 : static_cast<unsigned long>(p / chunk);
    if (k > ids.size()) {
      return -1;
    }
    const unsigned long id = k < ids.size() ? ids[k] : k;
    return static_cast<long>(p - static_cast<long>(k) * chunk + static_cast<long>(id) * chunk);
  }
  long clamp(long count) const {
    if (position + count > size || position + count == 0) {
      return std::max(size - position, 0L);
    }
    return count;
  }
  long copy(long from, long n, std::string* out) const {
    long copied = 0;
    for (long p = from; copied < n && open; ++p, ++copied) {
      const long offset = map(p);
      if (offset < 0) {
        break;
      }
      out->push_back(memory[static_cast<std::size_t>(offset)]);
    }
    return copied;
  }
  void read(long count, std::string* out) {
    const long copied = copy(position, clamp(count), out);
    position += copied;
    if (copied != count) {
      state |= io_device::eofbit | io_device::failbit;
    }
  }
  void write(const std::string& bytes) {
    const long count = static_cast<long>(bytes.size());
    if (!writable) {
      state |= io_device::failbit;
      return;
    }
    const long n = position + count > size ? size - position : count;
    long written = 0;
    for (; written < n && open; ++written, ++position) {
      const long offset = map(position);
      if (offset < 0) {
        break;
      }
      memory[static_cast<std::size_t>(offset)] = bytes[static_cast<std::size_t>(written)];
    }
    if (written < count) {
      state |= io_device::badbit;
    }
  }
  void seek(long offset, int whence) {
    if ((state & 5) != 0) {
      return;
    }
    const long target = whence == 0 ? offset : whence == 1 ? position + offset : size + offset;
    if (whence > 2 || target < 0) {
      state |= io_device::failbit;
      return;
    }
    position = target;
    if (map(target) < 0) {
      state |= io_device::failbit;
    }
  }
  long tell() const {
    if ((state & 5) != 0 || position < 0 || map(position) < 0) {
      return -1;
    }
    return position;
  }
  long read_line(bool* found, std::string* line, long max, char delimiter) {
    *found = false;
    long i = 0;
    std::string buffer(static_cast<std::size_t>(std::max(max, 1L)), '\0');
    if (max >= 2) {
      char byte = 0;
      char previous = 0;
      while (!*found && i < max - 1 && state == 0) {
        std::string one;
        read(1, &one);
        if (!one.empty()) {
          byte = one[0];
        }
        if (byte == delimiter) {
          *found = true;
          if (delimiter == '\n' && previous == '\r') {
            --i;
          }
        }
        buffer[static_cast<std::size_t>(i++)] = byte;
        previous = byte;
      }
    }
    *line = buffer.substr(0, static_cast<std::size_t>(i));
    return i != 0 ? i : (state & 1) != 0 ? -1 : 0;
  }
};

[[noreturn]] void diverged() { std::abort(); }

void check(bool same) {
  if (!same) {
    diverged();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  input in(data, size);
  const long chunk = in.number(0, 12);
  const long chunks = in.number(1, 8);
  std::vector<unsigned long> ids(static_cast<std::size_t>(chunks));
  for (std::size_t i = 0; i < ids.size(); ++i) {
    ids[i] = i;
  }
  for (std::size_t i = ids.size(); i > 1; --i) {
    std::swap(ids[i - 1], ids[in.byte() % i]);
  }
  // Room for the chunk one past the list, which maps by its own index.
  const long physical = (chunks + 2) * std::max(chunk, 1L);
  const long logical = in.number(0, static_cast<long>(physical));
  std::string memory(static_cast<std::size_t>(physical), '\0');
  for (std::size_t i = 0; i < memory.size(); ++i) {
    memory[i] = static_cast<char>("ab\r\ncd\n"[i % 7]);
  }

  std::string device_memory = memory;
  norvane::io_buffer device;
  model m;
  m.memory = memory;
  std::string scratch(static_cast<std::size_t>(physical + 64), '\0');

  while (!in.empty()) {
    switch (in.byte() % 9) {
      case 0: {  // open
        const unsigned int mode = in.byte() & 63;
        const bool null = in.byte() % 8 == 0;
        device.open(null ? nullptr : device_memory.data(), logical, ids, chunk, mode, false);
        const bool refused = (mode & 48) == 32 || (mode & 33) == 33 || m.open;
        if (refused) {
          m.state |= io_device::failbit;
        } else {
          m.open = !null;
          m.size = logical;
          m.ids = ids;
          m.chunk = chunk;
          m.position = null ? -1 : 0;
          m.writable = (mode & 16) != 0;
          m.state = 0;
        }
        break;
      }
      case 1: {  // read
        const long count = in.number(-1, static_cast<long>(physical) + 2);
        std::string expected;
        m.read(count, &expected);
        std::fill(scratch.begin(), scratch.end(), '\0');
        device.read(scratch.data(), count);
        check(scratch.compare(0, expected.size(), expected) == 0);
        break;
      }
      case 2: {  // peek
        const long count = in.number(-1, static_cast<long>(physical) + 2);
        std::string expected;
        const long copied = m.copy(m.position, m.clamp(count), &expected);
        check(device.peek(scratch.data(), count) == copied);
        check(scratch.compare(0, expected.size(), expected) == 0);
        break;
      }
      case 3: {  // write
        const long count = in.number(0, 20);
        std::string bytes;
        for (long i = 0; i < count; ++i) {
          bytes.push_back(static_cast<char>(in.byte()));
        }
        m.write(bytes);
        device.write(bytes.data(), count);
        break;
      }
      case 4: {  // seek
        const long offset = in.number(-4, static_cast<long>(physical) + 4) - 4 * (in.byte() % 2);
        const int whence = in.byte() % 4;
        m.seek(offset, whence);
        device.seek(offset, static_cast<std::ios_base::seekdir>(whence));
        break;
      }
      case 5:  // tell
        check(device.tell() == m.tell());
        break;
      case 6: {  // read_line
        const long max = in.number(0, 12);
        const char delimiter = "\n\rc\0"[in.byte() % 4];
        bool found_model = false;
        bool found_device = true;
        std::string expected;
        const long result = m.read_line(&found_model, &expected, max, delimiter);
        std::vector<char> line(static_cast<std::size_t>(std::max(max, 1L)), 'x');
        check(device.read_line(&found_device, line.data(), max, delimiter) == result);
        check(found_device == found_model);
        check(std::memcmp(line.data(), expected.data(), expected.size()) == 0 && line[expected.size()] == 0);
        break;
      }
      case 7:  // close
        device.close();
        if (!m.open) {
          m.state |= io_device::failbit;
        } else {
          m.open = false;
          m.size = 0;
          m.ids.clear();
          m.chunk = 0;
          m.position = 0;
        }
        break;
      case 8:  // clear
        device.clear(0);
        m.state = 0;
        break;
    }
    check(device.state() == m.state);
    check(device.is_open() == m.open);
    check(device.size() == m.size);
    check(device_memory == m.memory);
  }
  return 0;
}
