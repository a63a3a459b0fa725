// The JSON-lines layout and its string escaper. The escaper copies runs of
// plain characters in one append and looks at each other byte once, so a
// record costs about what spdlog's default layout costs.
#include "log/json_lines_formatter.hpp"

#include <spdlog/details/log_msg.h>

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

namespace norvane::details {

namespace {

constexpr auto plain_bytes = [] {
  std::array<bool, 256> plain{};
  for (int c = 0x20; c < 0x80; ++c) {
    plain[static_cast<std::size_t>(c)] = c != '"' && c != '\\';
  }
  return plain;
}();

// Whether any of eight bytes needs a look of its own: below 0x20, a quote,
// a backslash, or 0x80 and above. Exact, by the usual word-at-a-time tests.
bool has_special_byte(std::uint64_t bytes) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t high = 0x8080808080808080;
  const auto zero_in = [](std::uint64_t v) { return (v - ones) & ~v & high; };
  const auto below_space = (bytes - ones * 0x20) & ~bytes & high;
  return (below_space | zero_in(bytes ^ (ones * '"')) | zero_in(bytes ^ (ones * '\\')) | (bytes & high)) != 0;
}

void append(spdlog::memory_buf_t& out, std::string_view text) {
  out.append(text.data(), text.data() + text.size());
}

// The bytes JSON gives a short escape; every other control byte is \u00XX.
constexpr std::pair<unsigned char, std::string_view> short_escapes[] = {
    {'"', "\\\""}, {'\\', "\\\\"}, {'\b', "\\b"}, {'\f', "\\f"}, {'\n', "\\n"}, {'\r', "\\r"}, {'\t', "\\t"}};

void append_escaped_ascii(unsigned char c, spdlog::memory_buf_t& out) {
  for (const auto& [byte, escape] : short_escapes) {
    if (c == byte) {
      return append(out, escape);
    }
  }
  static constexpr char hex[] = "0123456789abcdef";
  const char code[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xf]};
  append(out, std::string_view(code, sizeof code));
}

struct utf8_sequence {
  std::size_t length;
  bool well_formed;
};

// The sequence starting at `p`: its length when well formed (no overlong
// form, no surrogate, nothing past U+10FFFF), else the length of its longest
// prefix that could still have become well formed, at least one byte.
utf8_sequence next_sequence(const unsigned char* p, const unsigned char* end) {
  const unsigned char lead = *p;
  std::size_t continuation_bytes = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xbf;
  if (lead >= 0xc2 && lead <= 0xdf) {
    continuation_bytes = 1;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    continuation_bytes = 2;
    low = lead == 0xe0 ? 0xa0 : 0x80;
    high = lead == 0xed ? 0x9f : 0xbf;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    continuation_bytes = 3;
    low = lead == 0xf0 ? 0x90 : 0x80;
    high = lead == 0xf4 ? 0x8f : 0xbf;
  } else {
    return {1, false};
  }
  for (std::size_t i = 1; i <= continuation_bytes; ++i) {
    if (p + i == end || p[i] < low || p[i] > high) {
      return {i, false};
    }
    low = 0x80;
    high = 0xbf;
  }
  return {continuation_bytes + 1, true};
}

// getpid() is a system call per record otherwise; a forked child renews it.
std::atomic<int> cached_process_id{0};

void renew_process_id() { cached_process_id.store(::getpid(), std::memory_order_relaxed); }

int process_id() {
  static const bool renewed_after_fork = [] {
    renew_process_id();
    return ::pthread_atfork(nullptr, nullptr, renew_process_id) == 0;
  }();
  static_cast<void>(renewed_after_fork);
  return cached_process_id.load(std::memory_order_relaxed);
}

void put_digits(char* at, unsigned value, int count) {
  for (int i = count - 1; i >= 0; --i) {
    at[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
}

}  // namespace

void append_json_string_body(std::string_view text, spdlog::memory_buf_t& out) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = p + text.size();
  while (p != end) {
    const auto* run = p;
    while (end - p >= 8) {
      std::uint64_t bytes;
      std::memcpy(&bytes, p, sizeof bytes);
      if (has_special_byte(bytes)) {
        break;
      }
      p += 8;
    }
    while (p != end && plain_bytes[*p]) {
      ++p;
    }
    out.append(reinterpret_cast<const char*>(run), reinterpret_cast<const char*>(p));
    if (p == end) {
      break;
    }
    if (*p < 0x80) {
      append_escaped_ascii(*p++, out);
      continue;
    }
    const auto sequence = next_sequence(p, end);
    if (sequence.well_formed) {
      out.append(reinterpret_cast<const char*>(p), reinterpret_cast<const char*>(p + sequence.length));
    } else {
      append(out, "\xef\xbf\xbd");
    }
    p += sequence.length;
  }
}

void json_lines_formatter::format(const spdlog::details::log_msg& msg, spdlog::memory_buf_t& dest) {
  using namespace std::chrono;
  const auto since_epoch = duration_cast<milliseconds>(msg.time.time_since_epoch());
  const auto second = floor<seconds>(since_epoch);
  if (second.count() != cached_second_) {
    cached_second_ = second.count();
    const std::time_t t = static_cast<std::time_t>(cached_second_);
    std::tm utc{};
    ::gmtime_r(&t, &utc);
    put_digits(second_text_, static_cast<unsigned>(utc.tm_year + 1900), 4);
    second_text_[4] = '-';
    put_digits(second_text_ + 5, static_cast<unsigned>(utc.tm_mon + 1), 2);
    second_text_[7] = '-';
    put_digits(second_text_ + 8, static_cast<unsigned>(utc.tm_mday), 2);
    second_text_[10] = 'T';
    put_digits(second_text_ + 11, static_cast<unsigned>(utc.tm_hour), 2);
    second_text_[13] = ':';
    put_digits(second_text_ + 14, static_cast<unsigned>(utc.tm_min), 2);
    second_text_[16] = ':';
    put_digits(second_text_ + 17, static_cast<unsigned>(utc.tm_sec), 2);
  }
  // The fixed pieces are put together on the stack and appended in two
  // calls, instead of one call per piece.
  char head[80];
  char* at = head;
  const auto put = [&at](std::string_view text) {
    std::memcpy(at, text.data(), text.size());
    at += text.size();
  };
  put(R"({"time":")");
  put(std::string_view(second_text_, sizeof second_text_));
  *at++ = '.';
  put_digits(at, static_cast<unsigned>((since_epoch - second).count()), 3);
  at += 3;
  put(R"(Z","level":")");
  const auto level = spdlog::level::to_string_view(msg.level);
  put(std::string_view(level.data(), level.size()));
  put(R"(","logger":")");
  dest.append(head, at);
  append_json_string_body(std::string_view(msg.logger_name.data(), msg.logger_name.size()), dest);
  append(dest, R"(","msg":")");
  append_json_string_body(std::string_view(msg.payload.data(), msg.payload.size()), dest);

  at = head;
  put(R"(","pid":)");
  const fmt::format_int pid(process_id());
  put(std::string_view(pid.data(), pid.size()));
  put(R"(,"thread":)");
  const fmt::format_int thread(msg.thread_id);
  put(std::string_view(thread.data(), thread.size()));
  put("}\n");
  dest.append(head, at);
}

std::unique_ptr<spdlog::formatter> json_lines_formatter::clone() const {
  return std::make_unique<json_lines_formatter>();
}

}  // namespace norvane::details
