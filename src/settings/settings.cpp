// The settings store: one JSON object in a file, merged at the top level
// with what is on disk whenever it is written. A sync holds a lock file
// beside the settings file from its read to its rename, and replaces the
// file through a durable save, so that neither another process nor a crash
// loses a key.
#include "io/io_save_file_pimpl.hpp"
#include "io/lock_file_pimpl.hpp"

#include <norvane/log.hpp>
#include <norvane/settings.hpp>
#include <norvane/standard_paths.hpp>

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <system_error>

namespace norvane {

namespace details {

namespace {

// Long enough for any sync another process may be in the middle of, short
// enough that a stuck holder shows up as an error rather than a hang.
constexpr std::chrono::seconds lock_timeout{10};

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

void log_cannot_write(const std::filesystem::path& path) {
  log_error(missing(path) ? "Impossible to create the settings file."
                          : "Impossible to write in the settings file.");
}

bool create_config_directory() {
  std::error_code ec;
  std::filesystem::create_directories(config_directory(), ec);
  if (ec) {
    // The trailing newline is part of the message as applications know it.
    log_error("Impossible to create the directory used for the settings.\n");
    return false;
  }
  return true;
}

enum class read_result { read, missing, unreadable, malformed };

read_result read_settings(nlohmann::json* dictionary, const std::filesystem::path& path) {
  auto result = read_result::unreadable;
  try {
    std::ifstream in(path);
    dictionary->clear();
    if (in.is_open()) {
      result = read_result::malformed;
      in >> *dictionary;
      return read_result::read;
    }
    // No file yet is the normal first run, not an error.
    if (missing(path)) {
      return read_result::missing;
    }
    log_error("Impossible to read in the settings file.");
  } catch (const nlohmann::json::exception& e) {
    get_norvane_logger()->log(log_level::error, "Exception thrown during settings reading: \"{}\".",
                              e.what());
  } catch (const std::exception& e) {
    // Not the text but the file failed (a directory, an I/O error).
    result = read_result::unreadable;
    get_norvane_logger()->log(log_level::error, "Exception thrown during settings reading: \"{}\".",
                              e.what());
  } catch (...) {
    result = read_result::unreadable;
    log_error("Unexpected error thrown during settings reading.");
  }
  // Not clear(): a parse that failed half-way may have left an array in
  // place of the object, and the application must start from an empty object.
  *dictionary = nlohmann::json::object();
  return result;
}

// "20261123T101502.123Z": sortable, and distinct for files kept aside in
// the same second.
std::string utc_stamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  char text[32];
  const auto length = std::strftime(text, sizeof text, "%Y%m%dT%H%M%S", &utc);
  return std::string(text, length) + "." + std::to_string(1000 + millis).substr(1) + "Z";
}

// Gives the bytes of `file` a second name, <name>.corrupt-<stamp>, without
// moving them: until the new document has replaced the file, the file stays
// as it was. Empty when no name could be given.
std::filesystem::path keep_aside(const std::filesystem::path& file) {
  const auto base = file.string() + ".corrupt-" + utc_stamp();
  for (int n = 1; n < 100; ++n) {
    const std::filesystem::path aside = n == 1 ? base : base + "-" + std::to_string(n);
    if (::link(file.c_str(), aside.c_str()) == 0) {
      return aside;
    }
    if (errno == EEXIST) {
      continue;
    }
    // A file system without hard links gets a copy.
    std::error_code ec;
    if (std::filesystem::copy_file(file, aside, ec)) {
      return aside;
    }
    return {};
  }
  return {};
}

bool same_file(const std::filesystem::path& a, const std::filesystem::path& b) {
  struct stat sa {};
  struct stat sb {};
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// Replaces the file with `dictionary` as compact JSON, durably. With
// `malformed`, the unparsable bytes that were there are kept aside first.
bool write_settings(const std::filesystem::path& path, const nlohmann::json& dictionary, bool malformed) {
  try {
    // Serialised before the file is touched, so that a document that
    // cannot be written (invalid UTF-8) leaves the old file intact.
    const auto text = dictionary.dump();
    save_file file;
    auto ec = file.open(path);
    if (!ec) {
      ec = file.write(text.data(), static_cast<std::int64_t>(text.size()), 0);
    }
    std::filesystem::path aside;
    if (!ec && malformed) {
      aside = keep_aside(file.destination());
    }
    if (!ec) {
      ec = file.commit();
    }
    if (ec) {
      // Only a copy the failed save did not make redundant is removed.
      if (!aside.empty() && same_file(aside, file.destination())) {
        ::unlink(aside.c_str());
      }
      log_cannot_write(path);
      return false;
    }
    if (!aside.empty()) {
      get_norvane_logger()->log(log_level::error,
                                "The settings file could not be parsed; its content was kept in \"{}\".",
                                aside.string());
    }
    return true;
  } catch (const std::exception& e) {
    get_norvane_logger()->log(log_level::error, "Exception thrown during settings writing: \"{}\".",
                              e.what());
  } catch (...) {
    log_error("Unexpected error thrown during settings writing.");
  }
  return false;
}

}  // namespace

bool settings_read_config(nlohmann::json* dictionary, const std::string& file_name) {
  const auto result = read_settings(dictionary, settings_path(file_name));
  return result == read_result::read || result == read_result::missing;
}

bool settings_write_config(const std::string& file_name, const nlohmann::json* dictionary) {
  return create_config_directory() && write_settings(settings_path(file_name), *dictionary, false);
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
}

void settings::sync() {
  if (!details::create_config_directory()) {
    return;
  }
  const auto path = details::settings_path(impl_->file_name);
  // The whole read-merge-write under the lock: another process's keys
  // written between our read and our rename would otherwise be lost.
  lock_file::pimpl lock(path.string() + ".lock");
  if (const auto ec = lock.lock(details::lock_timeout)) {
    if (ec == std::errc::timed_out) {
      const auto who = lock.holder();
      get_norvane_logger()->log(
          log_level::error, "Impossible to lock the settings file: \"{}\" is held by process {} ({} on {}).",
          lock.path.string(), who.pid, who.application_name, who.host_name);
    } else {
      details::log_cannot_write(path);
    }
    return;
  }
  auto merged = nlohmann::json::object();
  const auto read = details::read_settings(&merged, path);
  if (merged.is_object()) {
    for (const auto& key : impl_->removed) {
      merged.erase(key);
    }
  }
  // Top-level keys only: a nested object of ours replaces the one on disk.
  merged.update(impl_->dictionary.cbegin(), impl_->dictionary.cend(), false);
  impl_->dictionary.swap(merged);
  if (details::write_settings(path, impl_->dictionary, read == details::read_result::malformed)) {
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
