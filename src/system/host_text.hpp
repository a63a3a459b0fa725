// Reading the kernel's small text files: the helpers the Linux host layer
// and its cgroup reader share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace norvane::details {

// The whole file, or empty when it cannot be read (missing, a directory, no
// permission). /proc files report a size of 0, so this reads to the end.
std::string read_text(const std::filesystem::path& path);

// `text` without ASCII whitespace at either end.
std::string_view trimmed(std::string_view text) noexcept;

// A non-negative decimal that fills the whole text; -1 otherwise.
std::int64_t parse_count(std::string_view text) noexcept;

// Calls `line_fn(line)` for each line of `text`, the last one even without
// its newline.
template <typename Fn>
void for_each_line(std::string_view text, Fn&& line_fn) {
  while (!text.empty()) {
    const auto end = text.find('\n');
    line_fn(text.substr(0, end));
    if (end == std::string_view::npos) {
      break;
    }
    text.remove_prefix(end + 1);
  }
}

}  // namespace norvane::details
