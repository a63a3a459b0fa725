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
  std::string level;
  std::string message;
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

  // One entry per record, in spdlog's default layout; a message may span
  // lines, so records are split at each time stamp rather than at newlines.
  std::vector<log_entry> entries() {
    stream_->flush();
    const auto text = read_file(dir_ / "norvane.log");
    static const std::regex header(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] \[norvane\] \[(\w+)\] )");
    struct record {
      std::string level;
      std::size_t header;
      std::size_t body;
    };
    std::vector<record> records;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), header); it != std::sregex_iterator();
         ++it) {
      const auto at = static_cast<std::size_t>(it->position());
      records.push_back({(*it)[1].str(), at, at + static_cast<std::size_t>(it->length())});
    }
    std::vector<log_entry> entries;
    for (std::size_t i = 0; i < records.size(); ++i) {
      const auto end = i + 1 < records.size() ? records[i + 1].header : text.size();
      // Drop the line end that the layout adds after every message.
      entries.push_back({records[i].level, text.substr(records[i].body, end - records[i].body - 1)});
    }
    return entries;
  }

private:
  temp_dir dir_;
  std::shared_ptr<log_stream> previous_;
  std::shared_ptr<log_stream> stream_;
};

}  // namespace norvane::test
