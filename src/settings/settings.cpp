// The settings store: one JSON object in a file, merged at the top level
// with what is on disk whenever it is written.
#include <norvane/log.hpp>
#include <norvane/settings.hpp>
#include <norvane/standard_paths.hpp>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <system_error>

namespace norvane {

namespace details {

namespace {

std::string config_directory() {
  return standard_paths::writable_location(standard_paths::location::app_config);
}

// Relative names live in the configuration directory; an absolute name is
// used as it is.
std::filesystem::path settings_path(const std::string& file_name) {
  const std::filesystem::path name(file_name);
  if (name.has_root_directory()) {
    return name;
  }
  auto path = config_directory();
  if (!std::filesystem::path(path).filename().empty()) {
    path += '/';
  }
  path += file_name;
  return path;
}

bool missing(const std::filesystem::path& path) {
  std::error_code ec;
  const auto type = std::filesystem::status(path, ec).type();
  return type == std::filesystem::file_type::none || type == std::filesystem::file_type::not_found;
}

void log_error(std::string_view message) { get_norvane_logger()->log(log_level::error, "{}", message); }

// The file a chain of symbolic links ends at (the path itself when it is
// no link), so that a replaced file lands where the link points and the
// link stays a link. Empty for a loop or a chain longer than the kernel
// would follow.
std::filesystem::path link_target(std::filesystem::path path) {
  for (int hops = 0; hops <= 40; ++hops) {
    std::error_code ec;
    if (!std::filesystem::is_symlink(std::filesystem::symlink_status(path, ec))) {
      return path;
    }
    auto next = std::filesystem::read_symlink(path, ec);
    if (ec) {
      return {};
    }
    path = next.is_absolute() ? next : path.parent_path() / next;
  }
  return {};
}

bool write_all(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

enum class write_outcome { written, write_failed, no_replacement };

// Writes `text` to a new file beside `target` and renames it over the
// target, so that the old settings stay whole until the new ones are: a
// full disk or a file-size limit in the middle of the write used to leave
// half a document, which the next read rejected, losing every key. The
// target's own write permission still decides, as it did when the file was
// written in place, and a replacement keeps the target's mode and owner.
// no_replacement when the target is not a plain file or the directory
// takes no new file: the caller then writes in place. Durability across a
// power cut is left to the file system (no fsync), as before.
write_outcome replace_file(const std::filesystem::path& target, const std::string& text) {
  struct stat st {};
  const bool exists = ::stat(target.c_str(), &st) == 0;
  if (exists && !S_ISREG(st.st_mode)) {
    return write_outcome::no_replacement;
  }
  if (exists) {
    const int probe = ::open(target.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (probe < 0) {
      return write_outcome::no_replacement;
    }
    ::close(probe);
  }
  static std::atomic<unsigned> counter{0};
  const auto temporary =
      target.parent_path() / ("." + target.filename().string() + "." + std::to_string(::getpid()) + "." +
                              std::to_string(counter++) + ".tmp");
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) {
    // A directory we may not add to may still hold a file we may write.
    return !exists || errno == EACCES || errno == EPERM ? write_outcome::no_replacement
                                                        : write_outcome::write_failed;
  }
  if (exists) {
    // Best effort: only the owner or root may give the file away.
    static_cast<void>(::fchown(fd, st.st_uid, st.st_gid));
    static_cast<void>(::fchmod(fd, st.st_mode & 07777));
  }
  const bool written = write_all(fd, text);
  if (::close(fd) != 0 || !written || ::rename(temporary.c_str(), target.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return write_outcome::write_failed;
  }
  return write_outcome::written;
}

}  // namespace

bool settings_read_config(nlohmann::json* dictionary, const std::string& file_name) {
  try {
    const auto path = settings_path(file_name);
    std::ifstream in(path);
    dictionary->clear();
    if (in.is_open()) {
      in >> *dictionary;
      return true;
    }
    // No file yet is the normal first run, not an error.
    if (missing(path)) {
      return true;
    }
    log_error("Impossible to read in the settings file.");
  } catch (const std::exception& e) {
    get_norvane_logger()->log(log_level::error, "Exception thrown during settings reading: \"{}\".",
                              e.what());
  } catch (...) {
    log_error("Unexpected error thrown during settings reading.");
  }
  // Not clear(): a parse that failed half-way may have left an array in
  // place of the object, and the application must start from an empty object.
  *dictionary = nlohmann::json::object();
  return false;
}

bool settings_write_config(const std::string& file_name, const nlohmann::json* dictionary) {
  try {
    std::error_code ec;
    std::filesystem::create_directories(config_directory(), ec);
    if (ec) {
      // The trailing newline is part of the message as applications know it.
      log_error("Impossible to create the directory used for the settings.\n");
      return false;
    }
    // Serialised before the file is touched, so that a document that
    // cannot be written (invalid UTF-8) leaves the old file intact.
    const auto text = dictionary->dump();
    const auto path = settings_path(file_name);
    const auto target = link_target(path);
    if (target.empty()) {
      // A loop of links: there is no file to write, and none is made.
      log_error(missing(path) ? "Impossible to create the settings file."
                              : "Impossible to write in the settings file.");
      return false;
    }
    switch (replace_file(target, text)) {
      case write_outcome::written:
        return true;
      case write_outcome::write_failed:
        log_error("Impossible to write in the settings file.");
        return false;
      case write_outcome::no_replacement:
        break;
    }
    // Not a plain file, or a directory we may not add to: write in place.
    std::ofstream out(target, std::ios::out);
    if (out.is_open()) {
      out << text;
      out.flush();
      if (out) {
        return true;
      }
      log_error("Impossible to write in the settings file.");
      return false;
    }
    log_error(missing(target) ? "Impossible to create the settings file."
                              : "Impossible to write in the settings file.");
  } catch (const std::exception& e) {
    get_norvane_logger()->log(log_level::error, "Exception thrown during settings writing: \"{}\".",
                              e.what());
  } catch (...) {
    log_error("Unexpected error thrown during settings writing.");
  }
  return false;
}

}  // namespace details

class settings::pimpl {
public:
  explicit pimpl(const std::string& name) : file_name(name) {}

  std::string file_name;
  nlohmann::json dictionary = nlohmann::json::object();
  bool modified = false;
  // Keys taken out with remove() since the last successful write: the
  // merge would otherwise bring them back from the file.
  std::set<std::string, std::less<>> removed;
};

settings::settings(const std::string& file_name) : impl_(new pimpl(file_name)) {
  details::settings_read_config(&impl_->dictionary, impl_->file_name);
}

settings::~settings() {
  if (impl_->modified) {
    sync();
  }
  delete impl_;
}

void settings::sync() {
  auto merged = nlohmann::json::object();
  details::settings_read_config(&merged, impl_->file_name);
  if (merged.is_object()) {
    for (const auto& key : impl_->removed) {
      merged.erase(key);
    }
  }
  // Top-level keys only: a nested object of ours replaces the one on disk.
  merged.update(impl_->dictionary.cbegin(), impl_->dictionary.cend(), false);
  impl_->dictionary.swap(merged);
  if (details::settings_write_config(impl_->file_name, &impl_->dictionary)) {
    impl_->modified = false;
    impl_->removed.clear();
  }
}

nlohmann::json& settings::dictionary() { return impl_->dictionary; }

const nlohmann::json& settings::dictionary() const { return impl_->dictionary; }

void settings::set_modified() { impl_->modified = true; }

bool settings::modified() const { return impl_->modified; }

std::vector<std::string> settings::keys() const {
  std::vector<std::string> names;
  if (impl_->dictionary.is_object()) {
    for (const auto& item : impl_->dictionary.items()) {
      names.push_back(item.key());
    }
  }
  return names;
}

std::string settings::get(std::string_view key) const {
  const auto& dictionary = impl_->dictionary;
  if (!dictionary.is_object()) {
    return {};
  }
  const auto it = dictionary.find(key);
  // Invalid UTF-8 read from a file is replaced rather than thrown.
  return it == dictionary.end() ? std::string()
                                : it->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool settings::set(std::string_view key, std::string_view json_text) {
  auto value = nlohmann::json::parse(json_text, nullptr, false);
  if (value.is_discarded()) {
    get_norvane_logger()->log(log_level::error, "Invalid JSON value for the settings key \"{}\".", key);
    return false;
  }
  if (!impl_->dictionary.is_object()) {
    get_norvane_logger()->log(log_level::error, "{}", "The settings document is not a JSON object.");
    return false;
  }
  std::string name(key);
  impl_->removed.erase(name);
  impl_->dictionary[std::move(name)] = std::move(value);
  impl_->modified = true;
  return true;
}

bool settings::remove(std::string_view key) {
  std::string name(key);
  if (!impl_->dictionary.is_object() || impl_->dictionary.erase(name) == 0) {
    return false;
  }
  impl_->removed.insert(std::move(name));
  impl_->modified = true;
  return true;
}

}  // namespace norvane
