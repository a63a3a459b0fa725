// Texts that libfyaml 0.7.12 cannot reject safely, found before it sees them.
#pragma once

#include <cstddef>
#include <string_view>

namespace norvane::yaml::details {

// libfyaml releases the pending simple key twice when a ':' that ends a
// simple key inside an explicit ("? ") key is followed by blanks holding a
// tab and then a block indicator ("? x\t:\t: y"): its error path hands the
// key back to its free list a second time, and the parser then crashes or
// frees memory twice when it is destroyed. libfyaml refuses such text
// anyway ("cannot use tab for indentation of block entry"), so the reader
// refuses it first, at the same tab. The test is a line-by-line
// approximation of libfyaml's state: any "? " seen before, a key before the
// ':' on its line. It may also refuse the rare document where the explicit
// key was already closed and a later "key:<tab>|" starts a block scalar.
// Returns the offset of the tab, or npos.
std::size_t find_tab_before_block_indicator(std::string_view text) noexcept;

}  // namespace norvane::yaml::details
