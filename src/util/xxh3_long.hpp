// The runtime-dispatched XXH3 entry points for the one-shot hashes, kept
// apart from the translation unit that inlines xxHash for short inputs.
#pragma once

#include <norvane/hash.hpp>

#include <cstdint>
#include <string_view>

namespace norvane::details {

std::uint64_t xxh3_64_long(std::string_view data);
hash_128_t xxh3_128_long(std::string_view data);

}  // namespace norvane::details
