// The incremental hasher base: byte counting and the record's ownership.
#include "util/hasher_pimpl.hpp"

#include "util/hex_digit.hpp"

namespace norvane {

hasher::hasher(hasher_pimpl& impl) noexcept : impl_(&impl) {}

hasher::~hasher() = default;

void hasher::update(const void* data, std::size_t size) {
  impl_->absorb(data, size);
  impl_->size_hashed += size;
}

std::uint64_t hasher::size_hashed() const noexcept { return impl_->size_hashed; }

namespace details {

std::string digest_to_hex(const unsigned char* digest, std::size_t size, bool uppercase) {
  std::string text(2 * size, '\0');
  bytes_to_hex(digest, size, text.data(), uppercase);
  return text;
}

}  // namespace details
}  // namespace norvane
