// Reading booleans and quoted strings off a string_scanner.
#include <norvane/strings.hpp>

#include <cctype>

namespace norvane {
namespace {

bool is_alnum(char c) noexcept { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

void advance(string_scanner* scanner, std::size_t count) noexcept {
  scanner->cursor += count;
  scanner->remaining -= count;
}

}  // namespace

bool parse_value_item(bool* out, string_scanner* scanner) {
  scanner->token_begin = scanner->cursor;
  scanner->token_end = nullptr;
  if (scanner->remaining == 0 || !is_alnum(*scanner->cursor)) {
    scanner->failed = true;
    return false;
  }
  std::size_t length = 0;
  while (length < scanner->remaining && is_alnum(scanner->cursor[length])) {
    ++length;
  }
  const std::string_view token(scanner->cursor, length);
  advance(scanner, length);
  if (scanner->failed) {
    return false;
  }
  if (token == "1" || token == "true" || token == "True") {
    *out = true;
    return true;
  }
  if (token == "0" || token == "false" || token == "False") {
    *out = false;
    return true;
  }
  return false;
}

bool parse_value_item(std::string* out, string_scanner* scanner) {
  if (scanner->remaining == 0 || (*scanner->cursor != '\'' && *scanner->cursor != '"')) {
    return false;
  }
  const char quote = *scanner->cursor;
  advance(scanner, 1);
  scanner->token_begin = scanner->cursor;
  scanner->token_end = nullptr;
  if (scanner->remaining == 0) {
    scanner->token_end = scanner->token_begin;
    scanner->failed = true;
    return false;
  }
  // A backslash does not protect the quote: the first matching one closes.
  const std::string_view rest(scanner->cursor, scanner->remaining);
  const std::size_t close = rest.find(quote);
  if (close == std::string_view::npos) {
    scanner->token_end = scanner->cursor + scanner->remaining;
    scanner->failed = true;
    return false;
  }
  scanner->token_end = scanner->cursor + close;
  advance(scanner, close + 1);
  if (scanner->failed) {
    return false;
  }
  return unescape(out, rest.substr(0, close), nullptr);
}

}  // namespace norvane
