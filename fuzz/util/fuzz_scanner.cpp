// Sequences of parse_value_item calls on one scanner, and split, over
// untrusted text: the scanner's pointers stay inside the text and every
// split piece is a non-empty run free of delimiters.
#include <norvane/strings.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

void check(bool condition) {
  if (!condition) {
    std::abort();
  }
}

void scan(std::string_view text, std::uint8_t program) {
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  norvane::string_scanner s;
  s.cursor = begin;
  s.remaining = text.size();
  for (int step = 0; s.remaining > 0 && step < 4096; ++step) {
    const char* before = s.cursor;
    const bool want_bool = (program >> (step % 8)) & 1;
    bool flag = false;
    std::string value;
    const bool ok = want_bool ? norvane::parse_value_item(&flag, &s) : norvane::parse_value_item(&value, &s);
    check(s.cursor >= before && s.cursor <= end && s.cursor + s.remaining == end);
    check(s.token_begin == nullptr || (s.token_begin >= begin && s.token_begin <= end));
    check(s.token_end == nullptr || (s.token_end >= s.token_begin && s.token_end <= end));
    check(!ok || !s.failed);
    if (ok && !want_bool) {
      check(value.size() <= static_cast<std::size_t>(s.cursor - before));
    }
    if (s.failed) {
      s.failed = false;  // a caller may clear it and go on
    }
    if (s.cursor == before && s.remaining > 0) {
      ++s.cursor;  // skip what neither form accepts
      --s.remaining;
    }
  }
}

void split_checked(std::string_view text, std::string_view delimiters) {
  const auto pieces = norvane::split(text, delimiters);
  const char* last_end = text.data();
  for (const auto piece : pieces) {
    check(!piece.empty());
    check(piece.data() >= last_end && piece.data() + piece.size() <= text.data() + text.size());
    check(piece.find_first_of(delimiters) == std::string_view::npos);
    last_end = piece.data() + piece.size();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::uint8_t program = data[0];
  const std::size_t delimiter_count = data[1] % 4;
  if (size < 2 + delimiter_count) {
    return 0;
  }
  const std::string delimiters(reinterpret_cast<const char*>(data) + 2, delimiter_count);
  const std::size_t text_size = size - 2 - delimiter_count;
  const auto exact = std::make_unique<char[]>(text_size);
  std::copy(data + 2 + delimiter_count, data + size, exact.get());
  const std::string_view text(exact.get(), text_size);
  scan(text, program);
  split_checked(text, delimiters);
  return 0;
}
