// The bridge from xxHash's own 128-bit result to hash_128_t, for code that
// calls xxHash directly beside this library. Kept out of hash.hpp so that
// only its users need xxHash's development files.
#pragma once

#include <norvane/export.hpp>
#include <norvane/hash.hpp>

#include <xxhash.h>

namespace norvane {

// The two halves copied across unchanged, low first.
NORVANE_API hash_128_t XXH128_to_hash_128_t(const XXH128_hash_t& hash) noexcept;

}  // namespace norvane
