// Replaces the library logger with one writing to a file in a temporary
// directory, and reads back what the library reported.
#pragma once

#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <memory>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

namespace norvane::test {

struct log_entry {
  std::string level, message;
  bool operator==(const log_entry&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const log_entry& e) {
    return out << "[" << e.level << "] \"" << e.message << "\"";
  }
};

class log_capture {
public:
  log_capture() : previous_(get_norvane_logger()) {
    stream_ =
        std::make_shared<log_stream>("norvane", std::make_shared<log_sink_file>(dir_ / "norvane.log", true));
    stream_->set_level(log_level::trace);
    set_norvane_logger(stream_);
  }
  ~log_capture() { set_norvane_logger(previous_); }
  log_capture(const log_capture&) = delete;
  log_capture& operator=(const log_capture&) = delete;

  // One entry per record; a message may span lines, so records are split at
  // each header, and each message ends before the next header's line end.
  std::vector<log_entry> entries() {
    stream_->flush();
    const auto text = read_file(dir_ / "norvane.log");
    static const std::regex header(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] \[norvane\] \[(\w+)\] )");
    std::vector<log_entry> entries;
    std::size_t body = 0;
    const auto end_last = [&](std::size_t next) {
      if (!entries.empty()) entries.back().message = text.substr(body, next - body - 1);
    };
    for (std::sregex_iterator it(text.begin(), text.end(), header), end; it != end; ++it) {
      end_last(static_cast<std::size_t>(it->position()));
      entries.push_back({(*it)[1].str(), ""});
      body = static_cast<std::size_t>(it->position() + it->length());
    }
    end_last(text.size());
    return entries;
  }

  // "[level] message" per record, joined with " | "; empty when none.
  std::string text() {
    std::string joined;
    for (const auto& e : entries()) joined += (joined.empty() ? "[" : " | [") + e.level + "] " + e.message;
    return joined;
  }

private:
  temp_dir dir_;
  std::shared_ptr<log_stream> previous_, stream_;
};

}  // namespace norvane::test
