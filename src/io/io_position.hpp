// Position arithmetic every device shares: where a seek lands and how many
// bytes a read may take, over a device whose data ends at a given length.
#pragma once

#include <cstdint>
#include <ios>

namespace norvane::details {

// The position a seek from `whence` by `offset` lands on, for a device at
// `position` whose data ends at `end`; -1 for an unknown `whence`, a sum
// that overflows or a negative target.
std::int64_t seek_target(std::int64_t position, std::int64_t end, long long offset,
                         std::ios_base::seekdir whence) noexcept;

// How many of `count` bytes a read at `position` takes from data ending at
// `end`: all of them, or what is left when the read would cross the end.
// Kept as devices have always clamped: a read whose end lands on 0 (for
// instance 0 bytes at position 0) takes everything left.
std::int64_t readable_count(std::int64_t position, std::int64_t end, std::int64_t count) noexcept;

}  // namespace norvane::details
