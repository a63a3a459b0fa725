// Log records with arbitrary bytes as JSON lines: every record is exactly
// one line that a strict parser accepts, and the message comes back byte for
// byte unless bytes had to be replaced.
#include "log/json_lines_formatter.hpp"

#include <spdlog/details/log_msg.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The first byte says how much of the rest is the logger name.
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t name_size = input.empty() ? 0 : std::min<std::size_t>(data[0], size - 1);
  const auto name = input.substr(std::min<std::size_t>(1, size), name_size);
  const auto message = input.substr(std::min<std::size_t>(1 + name_size, size));

  norvane::details::json_lines_formatter formatter;
  const spdlog::details::log_msg msg(spdlog::string_view_t(name.data(), name.size()), spdlog::level::warn,
                                     spdlog::string_view_t(message.data(), message.size()));
  spdlog::memory_buf_t line;
  formatter.format(msg, line);
  const std::string_view text(line.data(), line.size());
  if (text.empty() || text.back() != '\n' || text.find('\n') != text.size() - 1) {
    std::abort();
  }
  const auto record = nlohmann::json::parse(text.substr(0, text.size() - 1), nullptr, false);
  if (record.is_discarded() || !record.is_object() || record.size() != 6) {
    std::abort();
  }
  const auto same_unless_replaced = [](const std::string& parsed, std::string_view given) {
    return parsed == given || parsed.find("\xef\xbf\xbd") != std::string::npos;
  };
  if (!same_unless_replaced(record["msg"].get<std::string>(), message) ||
      !same_unless_replaced(record["logger"].get<std::string>(), name) || record["level"] != "warning") {
    std::abort();
  }
  return 0;
}
