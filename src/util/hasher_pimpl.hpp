// The private record behind norvane::hasher: each algorithm derives its own
// record and supplies how bytes are absorbed.
#pragma once

#include <norvane/hash.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

namespace norvane {

struct hasher_pimpl {
  virtual ~hasher_pimpl() = default;
  virtual void absorb(const void* data, std::size_t size) = 0;
  std::uint64_t size_hashed = 0;
};

namespace details {
// Lower- or upper-case hex of a digest, the form the text digests use.
std::string digest_to_hex(const unsigned char* digest, std::size_t size, bool uppercase);
}  // namespace details

}  // namespace norvane
