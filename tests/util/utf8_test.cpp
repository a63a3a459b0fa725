// UTF-8 validation: the first fault and its offset, through both the
// eight-byte ASCII path and the byte-by-byte one.
#include "util/utf8.hpp"

#include <gtest/gtest.h>

#include <string>

using norvane::details::find_utf8_fault;
using norvane::details::utf8_fault_kind;

TEST(Utf8, FindsTheFirstFaultAndItsOffset) {
  struct row {
    std::string text;
    utf8_fault_kind kind;
    std::size_t offset;
  };
  const auto none = utf8_fault_kind::none;
  const auto nul = utf8_fault_kind::nul_byte;
  const auto bad = utf8_fault_kind::invalid_sequence;
  const row rows[] = {
      {"", none, 0},
      {"plain ASCII, longer than one word", none, 0},
      {"\xc3\xa9\xe2\x82\xac\xf0\x9d\x84\x9e\xf4\x8f\xbf\xbf", none, 0},  // é € 𝄞 U+10FFFF
      {std::string("ab\0c", 4), nul, 2},
      {std::string("abcdefghij\0", 11), nul, 10},  // after a full ASCII word
      {"a\x80", bad, 1},                           // a lone continuation byte
      {"\xc0\x80", bad, 0},                        // overlong NUL
      {"\xe0\x9f\xbf", bad, 0},                    // overlong three-byte form
      {"\xf0\x8f\xbf\xbf", bad, 0},                // overlong four-byte form
      {"ok \xed\xa0\x80", bad, 3},                 // a UTF-16 surrogate
      {"\xf4\x90\x80\x80", bad, 0},                // above U+10FFFF
      {"abcdefgh\xe2\x82", bad, 8},                // cut short by the end
      {"\xe2\x28\xa1", bad, 0},                    // a continuation byte missing
      {"12345678\xc3\xa9\xff", bad, 10},           // the fault after a valid sequence
  };
  for (const row& r : rows) {
    const auto fault = find_utf8_fault(r.text);
    EXPECT_EQ(fault.kind, r.kind) << r.text;
    if (r.kind != none) {
      EXPECT_EQ(fault.offset, r.offset) << r.text;
    }
    // Shifting the text against the eight-byte words moves the fault with it.
    for (std::size_t shift = 1; shift < 8; ++shift) {
      const auto shifted = find_utf8_fault(std::string(shift, 'x') + r.text);
      EXPECT_EQ(shifted.kind, r.kind) << shift << ": " << r.text;
      EXPECT_EQ(shifted.offset, r.kind == none ? 0 : r.offset + shift) << shift << ": " << r.text;
    }
  }
}
