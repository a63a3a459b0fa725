// The spdlog sink behind every file sink: spdlog's file handling, plus an
// optional size limit with numbered older files, and reopening at the
// original path for rotation done by another program.
#pragma once

#include <spdlog/details/file_helper.h>
#include <spdlog/formatter.h>
#include <spdlog/sinks/base_sink.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace norvane::details {

struct file_rotation {
  // 0: the file grows without limit.
  std::size_t max_size_bytes = 0;
  // Older files kept beside the current one.
  std::size_t max_files = 0;
};

// "dir/app.log" and 2 give "dir/app.2.log"; a name without extension gets
// the number at its end ("dir/app.2").
std::filesystem::path numbered_file(const std::filesystem::path& path, std::size_t index);

template <typename Mutex>
class file_sink final : public spdlog::sinks::base_sink<Mutex> {
public:
  // Throws spdlog::spdlog_ex when the file cannot be opened.
  file_sink(std::filesystem::path path, bool truncate, std::unique_ptr<spdlog::formatter> formatter,
            file_rotation rotation = {});

  // Opens a new file at the original path and only then lets the old one
  // go, so a failure leaves the sink writing where it was. Returns why it
  // failed, empty on success.
  std::string reopen();

private:
  void sink_it_(const spdlog::details::log_msg& msg) override;
  void flush_() override;
  std::string rotate();
  std::string shift_older_files() const;
  std::unique_ptr<spdlog::details::file_helper> open_file(bool truncate) const;

  std::filesystem::path path_;
  file_rotation rotation_;
  std::unique_ptr<spdlog::details::file_helper> file_;
  std::size_t file_size_bytes_ = 0;
};

}  // namespace norvane::details
