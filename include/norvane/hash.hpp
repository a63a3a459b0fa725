// SHA-1, SHA-256 and XXH3 digests, hexadecimal text, and UUIDs. OpenSSL and
// xxHash do the hashing underneath; neither header is needed here.
#pragma once

#include <norvane/export.hpp>

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace norvane {

// A 128-bit hash, low half first (the layout of xxHash's XXH128_hash_t).
struct hash_128_t {
  std::uint64_t low64 = 0;
  std::uint64_t high64 = 0;
  friend bool operator==(const hash_128_t&, const hash_128_t&) = default;
};

// Two hex digits per byte of `input`, high nibble first, no separators.
NORVANE_API void string_to_hex(std::string input, std::string& output, bool uppercase);

// The one-shot digests take the length as a 32-bit count: an input of 4 GiB
// or more is hashed over its length modulo 2^32 only. Use the hashers below
// for large inputs.
//
// 40 UPPER-case hex digits; empty (with an error logged) if OpenSSL fails.
NORVANE_API std::string hash_sha1(std::string_view data);
// 64 lower-case hex digits. The case differs from hash_sha1 on purpose.
NORVANE_API std::string hash_sha256(std::string_view data);
// XXH3 64-bit, unseeded. Despite the name this is not the older XXH64.
NORVANE_API std::uint64_t hash_xxh64(std::string_view data);
// XXH3 128-bit, unseeded.
NORVANE_API hash_128_t hash_xxh128(std::string_view data);

struct hasher_pimpl;

// Incremental hashing without a length limit: update() any number of times,
// then finish(), which gives what the one-shot function gives for the whole
// input and starts over with empty input. size_hashed() helps show progress.
class NORVANE_API hasher {
public:
  // Adopts a heap-allocated record: the hasher frees it.
  explicit hasher(hasher_pimpl& impl) noexcept;
  virtual ~hasher();
  hasher(const hasher&) = delete;
  hasher& operator=(const hasher&) = delete;

  void update(const void* data, std::size_t size);
  void update(std::string_view data) { update(data.data(), data.size()); }
  // Bytes given to update() since construction or the last finish().
  std::uint64_t size_hashed() const noexcept;

protected:
  hasher_pimpl& handle() const noexcept { return *impl_; }

private:
  std::unique_ptr<hasher_pimpl> impl_;
};

class NORVANE_API sha1_hasher : public hasher {
public:
  sha1_hasher();
  ~sha1_hasher() override;
  // As hash_sha1: upper-case hex, empty with an error logged on failure.
  std::string finish();
};

class NORVANE_API sha256_hasher : public hasher {
public:
  sha256_hasher();
  ~sha256_hasher() override;
  // As hash_sha256: lower-case hex, empty with an error logged on failure.
  std::string finish();
};

class NORVANE_API xxh3_64_hasher : public hasher {
public:
  xxh3_64_hasher();
  ~xxh3_64_hasher() override;
  std::uint64_t finish();
};

class NORVANE_API xxh3_128_hasher : public hasher {
public:
  xxh3_128_hasher();
  ~xxh3_128_hasher() override;
  hash_128_t finish();
};

// True only for the 36-character lower-case form with hyphens at 8, 13, 18
// and 23: upper case, braces, "urn:uuid:" and the bare 32 digits are rejected.
NORVANE_API bool validate_uuid_str(std::string_view text) noexcept;

namespace details {
// Sixteen bytes, byte i being the i-th hex pair of the text form. The default
// constructor draws a random version-4 identifier from a per-thread
// std::minstd_rand seeded once from std::random_device: unique in practice,
// but predictable, so not for secrets.
class NORVANE_API random_uuid {
public:
  random_uuid() noexcept;
  const std::array<std::uint8_t, 16>& bytes() const noexcept { return bytes_; }

protected:
  // Takes the bytes as they are and draws nothing.
  explicit random_uuid(const std::array<std::uint8_t, 16>& bytes) noexcept : bytes_(bytes) {}

  std::array<std::uint8_t, 16> bytes_;
};
}  // namespace details

class NORVANE_API uuid : public details::random_uuid {
public:
  // A fresh random identifier.
  uuid() noexcept = default;
  // The identifier `text` names, or all zero bytes (uuid_null) when
  // validate_uuid_str(text) fails.
  explicit uuid(std::string_view text) noexcept;

  // A time-ordered identifier (version 7): the Unix time in milliseconds in
  // the first 48 bits, then a 16-bit sequence kept for the whole process,
  // then random bits from the same generator as the random identifiers. An
  // identifier drawn after another in this process, on any thread, compares
  // greater, also within one millisecond and when the clock steps back.
  static uuid v7() noexcept;

private:
  explicit uuid(const std::array<std::uint8_t, 16>& bytes) noexcept : random_uuid(bytes) {}
};

NORVANE_API bool operator==(const uuid& a, const uuid& b) noexcept;
// Byte order, which is also the order of the text forms: for version-7
// identifiers, the order in which they were drawn.
NORVANE_API std::strong_ordering operator<=>(const uuid& a, const uuid& b) noexcept;
// The 36-character lower-case text form.
NORVANE_API std::string to_string(const uuid& id);

// Sixteen zero bytes.
NORVANE_API extern const uuid uuid_null;

}  // namespace norvane
