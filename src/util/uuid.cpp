// Random (version 4) and time-ordered (version 7) identifiers, their text
// form and its validation.
#include <norvane/hash.hpp>

#include "util/hex_digit.hpp"

#include <atomic>
#include <chrono>
#include <random>

namespace norvane {
namespace {

bool is_hyphen_position(std::size_t i) noexcept { return i == 8 || i == 13 || i == 18 || i == 23; }

// One engine per thread keeps generation lock-free. minstd_rand is cheap and
// seeded once per thread; it is not meant to resist prediction.
std::minstd_rand& thread_engine() {
  thread_local std::minstd_rand engine(std::random_device{}());
  return engine;
}

std::uint64_t draw_random() {
  std::uniform_int_distribution<std::uint64_t> draw;
  return draw(thread_engine());
}

// The last version-7 time and sequence handed out in this process, as
// milliseconds << 16 | sequence. One word, so that one compare-and-swap
// orders every thread's draws; a relaxed one suffices, as all draws touch
// this word alone and its modification order already agrees with the
// order in which threads see each other's draws.
std::atomic<std::uint64_t> last_v7{0};

constexpr int sequence_bits = 16;

// A new millisecond starts its sequence at a small random value (method 1 of
// RFC 9562, section 6.2), leaving at least 65520 draws before the sequence
// would carry into the time field. Within the same millisecond, or when the
// clock stepped back, the sequence counts on from the last value.
std::uint64_t next_v7_state(std::uint64_t now_ms, std::uint64_t start) noexcept {
  std::uint64_t last = last_v7.load(std::memory_order_relaxed);
  for (;;) {
    const std::uint64_t next = (last >> sequence_bits) < now_ms ? now_ms << sequence_bits | start : last + 1;
    if (last_v7.compare_exchange_weak(last, next, std::memory_order_relaxed)) {
      return next;
    }
  }
}

std::uint64_t unix_time_ms() noexcept {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(since_epoch).count();
  return ms > 0 ? static_cast<std::uint64_t>(ms) & 0xffff'ffff'ffff : 0;
}

}  // namespace

bool validate_uuid_str(std::string_view text) noexcept {
  if (text.size() != 36) {
    return false;
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (is_hyphen_position(i)) {
      if (c != '-') {
        return false;
      }
    } else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) {
      return false;
    }
  }
  return true;
}

namespace details {

random_uuid::random_uuid() noexcept {
  bytes_.fill(0);
  const std::uint64_t first = draw_random();
  const std::uint64_t second = draw_random();
  for (std::size_t i = 0; i < 8; ++i) {
    bytes_[i] = static_cast<std::uint8_t>(first >> (8 * i));
    bytes_[8 + i] = static_cast<std::uint8_t>(second >> (8 * i));
  }
  bytes_[8] = static_cast<std::uint8_t>((bytes_[8] & 0x3f) | 0x80);  // RFC 4122 variant
  bytes_[6] = static_cast<std::uint8_t>((bytes_[6] & 0x0f) | 0x40);  // version 4
}

}  // namespace details

// The base has already drawn a random identifier; parsing overwrites it.
uuid::uuid(std::string_view text) noexcept {
  if (!validate_uuid_str(text)) {
    bytes_.fill(0);
    return;
  }
  std::size_t byte = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '-') {
      continue;
    }
    bytes_[byte++] =
        static_cast<std::uint8_t>(details::hex_digit(text[i]) << 4 | details::hex_digit(text[i + 1]));
    ++i;
  }
}

// Layout: 48 bits of milliseconds, version 7, the sequence's top 12 bits,
// variant 10, the sequence's low 4 bits, 58 random bits. The sequence
// lies above every random bit, so byte order follows draw order.
uuid uuid::v7() noexcept {
  // Two raw draws of the engine give 62 bits, enough for the 58 random bits
  // and the 4-bit sequence start; the 64-bit distribution of the random
  // form would cost as much again as everything else here.
  auto& engine = thread_engine();
  const std::uint64_t high = engine();
  const std::uint64_t random = high << 31 | engine();
  const std::uint64_t state = next_v7_state(unix_time_ms(), random >> 58);
  const std::uint64_t ms = state >> sequence_bits;
  const auto sequence = static_cast<unsigned>(state & 0xffff);
  std::array<std::uint8_t, 16> bytes;
  for (std::size_t i = 0; i < 6; ++i) {
    bytes[i] = static_cast<std::uint8_t>(ms >> (40 - 8 * i));
  }
  bytes[6] = static_cast<std::uint8_t>(0x70 | sequence >> 12);
  bytes[7] = static_cast<std::uint8_t>(sequence >> 4);
  bytes[8] = static_cast<std::uint8_t>(0x80 | (sequence & 0x0f) << 2 | (random & 0x03));
  for (std::size_t i = 9; i < 16; ++i) {
    bytes[i] = static_cast<std::uint8_t>(random >> (2 + 8 * (i - 9)));
  }
  return uuid(bytes);
}

bool operator==(const uuid& a, const uuid& b) noexcept { return a.bytes() == b.bytes(); }

std::strong_ordering operator<=>(const uuid& a, const uuid& b) noexcept { return a.bytes() <=> b.bytes(); }

std::string to_string(const uuid& id) {
  std::string text(36, '-');
  const unsigned char* bytes = id.bytes().data();
  char* out = text.data();
  // Groups of 4, 2, 2, 2 and 6 bytes, each followed by the hyphen already there.
  for (const std::size_t group : {4, 2, 2, 2, 6}) {
    details::bytes_to_hex(bytes, group, out, false);
    bytes += group;
    out += 2 * group + 1;
  }
  return text;
}

const uuid uuid_null(std::string_view{});

}  // namespace norvane
