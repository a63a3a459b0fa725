// Random version-4 identifiers, their text form and its validation.
#include <norvane/hash.hpp>

#include <random>

namespace norvane {
namespace {

int hex_digit_value(char c) noexcept { return c <= '9' ? c - '0' : c - 'a' + 10; }

bool is_hyphen_position(std::size_t i) noexcept { return i == 8 || i == 13 || i == 18 || i == 23; }

// One engine per thread keeps generation lock-free. minstd_rand is cheap and
// seeded once per thread; it is not meant to resist prediction.
std::minstd_rand& thread_engine() {
  thread_local std::minstd_rand engine(std::random_device{}());
  return engine;
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
  std::uniform_int_distribution<std::uint64_t> draw;
  auto& engine = thread_engine();
  const std::uint64_t first = draw(engine);
  const std::uint64_t second = draw(engine);
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
    bytes_[byte++] = static_cast<std::uint8_t>(hex_digit_value(text[i]) << 4 | hex_digit_value(text[i + 1]));
    ++i;
  }
}

bool operator==(const uuid& a, const uuid& b) noexcept { return a.bytes() == b.bytes(); }

std::string to_string(const uuid& id) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < id.bytes().size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      text += '-';
    }
    text += digits[id.bytes()[i] >> 4];
    text += digits[id.bytes()[i] & 0x0f];
  }
  return text;
}

const uuid uuid_null(std::string_view{});

}  // namespace norvane
