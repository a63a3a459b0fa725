#include "support/test_support.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace norvane::test {
namespace fs = std::filesystem;

temp_dir::temp_dir() {
  auto name = (fs::temp_directory_path() / "norvane-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot create a temporary directory");
  path_ = name;
}

temp_dir::~temp_dir() {
  std::error_code ec, ignored;
  // Tests may leave read-only directories behind; make them removable.
  for (auto it = fs::recursive_directory_iterator(path_, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(path_, ec);
}

std::string read_file(const fs::path& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}

void write_file(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

stdout_capture::stdout_capture() : saved_fd_((std::fflush(stdout), ::dup(1))) {
  const int fd = ::open((dir_ / "stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (saved_fd_ < 0 || fd < 0) throw std::runtime_error("cannot capture standard output");
  ::dup2(fd, 1);
  ::close(fd);
}

stdout_capture::~stdout_capture() {
  std::fflush(stdout);
  ::dup2(saved_fd_, 1);
  ::close(saved_fd_);
}

std::string stdout_capture::text() { return std::fflush(stdout), read_file(dir_ / "stdout"); }

}  // namespace norvane::test
