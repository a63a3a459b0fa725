// The one-shot XXH3 hashes. Inputs of up to 240 bytes never reach XXH3's
// vectorised loop, so they run xxHash's code inlined here, saving the call
// into the dispatcher; a 64-byte hash costs only a few nanoseconds, so that
// call would be a tenth of it. Longer inputs take the runtime-dispatched path.
#include "util/xxh3_long.hpp"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace norvane {
namespace {

// XXH3's own threshold between its short-input and its striped algorithms.
constexpr std::size_t short_input_max = 240;

}  // namespace

std::uint64_t hash_xxh64(std::string_view data) {
  if (data.size() <= short_input_max) {
    return XXH3_64bits(data.data(), data.size());
  }
  return details::xxh3_64_long(data);
}

hash_128_t hash_xxh128(std::string_view data) {
  if (data.size() <= short_input_max) {
    const XXH128_hash_t hash = XXH3_128bits(data.data(), data.size());
    return hash_128_t{hash.low64, hash.high64};
  }
  return details::xxh3_128_long(data);
}

}  // namespace norvane
