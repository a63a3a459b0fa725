// The settings store: one JSON object in a file, merged at the top level
// with what is on disk whenever it is written.
#include <norvane/log.hpp>
#include <norvane/settings.hpp>
#include <norvane/standard_paths.hpp>

#include <nlohmann/json.hpp>

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
    // Serialised before the file is truncated, so that a document that
    // cannot be written (invalid UTF-8) leaves the old file intact.
    const auto text = dictionary->dump();
    const auto path = settings_path(file_name);
    std::ofstream out(path, std::ios::out);
    if (out.is_open()) {
      out << text;
      out.flush();
      if (out) {
        return true;
      }
      log_error("Impossible to write in the settings file.");
      return false;
    }
    log_error(missing(path) ? "Impossible to create the settings file."
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
