// Log records as JSON lines, for programs that read logs: one object per
// record on one line, strict JSON whatever bytes the message holds.
#pragma once

#include <spdlog/formatter.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace norvane::details {

// Appends `text` as the inside of a JSON string: quotes, backslashes and
// control bytes escaped, well-formed UTF-8 kept, each maximal ill-formed
// piece replaced by U+FFFD.
void append_json_string_body(std::string_view text, spdlog::memory_buf_t& out);

// {"time":"2026-11-21T10:00:00.123Z","level":"info","logger":"app","msg":"...","pid":7,"thread":8}
class json_lines_formatter final : public spdlog::formatter {
public:
  void format(const spdlog::details::log_msg& msg, spdlog::memory_buf_t& dest) override;
  std::unique_ptr<spdlog::formatter> clone() const override;

private:
  // Records come many to a second; the date and time of day are formatted
  // once per second.
  std::int64_t cached_second_ = INT64_MIN;
  char second_text_[19] = {};
};

}  // namespace norvane::details
