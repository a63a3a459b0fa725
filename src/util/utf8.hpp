// Checking that bytes are UTF-8 text before a parser that trusts them sees
// them.
#pragma once

#include <cstddef>
#include <string_view>

namespace norvane::details {

enum class utf8_fault_kind { none, nul_byte, invalid_sequence };

struct utf8_fault {
  utf8_fault_kind kind = utf8_fault_kind::none;
  std::size_t offset = 0;  // of the first byte of the fault
};

// The first fault of `text`: a NUL byte (valid UTF-8, but parsers that stop
// at it would silently drop the rest), or a byte that does not start a
// well-formed sequence (stray continuation, overlong form, surrogate, above
// U+10FFFF, cut short by the end). Kind none when the text is clean.
utf8_fault find_utf8_fault(std::string_view text) noexcept;

}  // namespace norvane::details
