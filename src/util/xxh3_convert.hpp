// xxHash's headers for the library's own sources, and the conversion of its
// 128-bit result. Kept out of include/ so that users never see xxHash.
#pragma once

#include <norvane/hash.hpp>

#if defined(__x86_64__) || defined(_M_X64)
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

#include <memory>

namespace norvane {

// Copies the two halves across unchanged, low first.
hash_128_t XXH128_to_hash_128_t(const XXH128_hash_t& hash);

}  // namespace norvane
