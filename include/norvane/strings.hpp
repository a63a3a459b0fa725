// Splitting, trimming, prefix and suffix tests, backslash-escape decoding and
// the parsing of numbers, booleans and quoted strings out of text. Nothing
// here throws except on allocation failure, and nothing allocates except to
// build a result.
#pragma once

#include <norvane/export.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace norvane {

// The non-empty pieces of `text` between any of the `delimiters` characters,
// as views into `text`. Empty pieces are dropped: split("a,,b,", ",") gives
// {"a", "b"}, and split(",", ",") gives nothing. No delimiters: one piece.
NORVANE_API std::vector<std::string_view> split(std::string_view text, std::string_view delimiters);

// Byte comparisons; an empty prefix or suffix always matches.
NORVANE_API bool starts_with(std::string_view text, std::string_view prefix) noexcept;
NORVANE_API bool ends_with(std::string_view text, std::string_view suffix) noexcept;

// Decodes C escapes (\n, \t, \", \\, \101 octal, \x41 hex, ...) from `in` into
// `*out`. `in` may view `*out` itself, which unescapes in place. On bad input
// returns false and, when `error_message` is not null, stores why; `*out` is
// then unspecified. Hex escapes take every following hex digit into a 32-bit
// value, so "\x100000041" decodes to "A" (the leading digits fall off).
NORVANE_API bool unescape(std::string* out, std::string_view in, std::string* error_message);

// Strip ASCII whitespace (space, \t, \n, \v, \f, \r) from one end of the view
// in place and return how many characters went.
NORVANE_API std::size_t remove_leading_whitespace(std::string_view& text) noexcept;
NORVANE_API std::size_t remove_trailing_whitespace(std::string_view& text) noexcept;

// strtoll/strtod on text.data(): the size of the view is IGNORED and the text
// is read up to a NUL, so the view must be followed by a NUL or by a
// character that cannot continue the number. Leading whitespace is skipped,
// trailing characters are ignored ("12abc" gives 12). Return whether any
// character was consumed. The integer form writes `*out` only on success;
// the double form always writes it (0.0 when nothing parsed).
NORVANE_API bool parse_numeric(long long* out, std::string_view text) noexcept;
NORVANE_API bool parse_numeric(double* out, std::string_view text) noexcept;

// A cursor over caller text, advanced by parse_value_item. Fill `cursor` and
// `remaining`, zero the rest. Once `failed` is set every further
// parse_value_item returns false; nothing clears it but the caller.
struct string_scanner {
  const char* cursor = nullptr;
  std::size_t remaining = 0;
  const char* token_begin = nullptr;
  // Null while the token ends at `cursor`.
  const char* token_end = nullptr;
  bool failed = false;
};

// Reads a run of letters and digits (no whitespace is skipped) and accepts
// exactly "1", "true", "True" (true) and "0", "false", "False" (false). An
// unknown word such as "TRUE" is consumed and returns false without setting
// `failed`; no word at all sets `failed`.
NORVANE_API bool parse_value_item(bool* out, string_scanner* scanner);
// Reads a '...' or "..." token and unescapes its inside. A backslash does not
// protect the quote: the first matching quote ends the token. No quote at the
// cursor returns false without consuming; a missing closing quote sets `failed`.
NORVANE_API bool parse_value_item(std::string* out, string_scanner* scanner);

namespace details {
// The decoder behind unescape: writes into `out`'s existing buffer, which
// must hold at least in.size() characters, and sets `*out_length` to the
// number produced on success.
NORVANE_API bool unescape_impl(std::string* out, std::size_t* out_length, std::string_view in,
                               std::string* error_message);
}  // namespace details

}  // namespace norvane

// Between UTF-8 and the locale's encoding. Locales are UTF-8 on the
// platforms we build for, so both return a copy.
NORVANE_API std::string utf8_to_locale(const std::string& text);
NORVANE_API std::string locale_to_utf8(const std::string& text);
