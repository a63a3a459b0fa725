// Shared helpers for the unit tests.
#pragma once

#include <filesystem>
#include <string>

namespace norvane::test {

// A fresh temporary directory, removed with its content when the object goes.
class temp_dir {
public:
  temp_dir();
  ~temp_dir();
  temp_dir(const temp_dir&) = delete;
  temp_dir& operator=(const temp_dir&) = delete;
  const std::filesystem::path& path() const noexcept { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

private:
  std::filesystem::path path_;
};

// The whole content of a file; empty when it cannot be read.
std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, const std::string& content);

// Redirects file descriptor 1 into a file for its lifetime; text() gives
// what was written so far.
class stdout_capture {
public:
  stdout_capture();
  ~stdout_capture();
  stdout_capture(const stdout_capture&) = delete;
  stdout_capture& operator=(const stdout_capture&) = delete;
  std::string text();

private:
  temp_dir dir_;
  int saved_fd_ = -1;
};

}  // namespace norvane::test
