// Persistent application settings: one JSON document in a file under the
// application's configuration directory, written back on sync() or when a
// modified store is destroyed.
//
// Across processes and crashes, nothing is lost:
// - sync() holds an exclusive lock (a lock_file named after the settings
//   file plus ".lock", beside it) from its read to its write, so syncs from
//   any number of processes and threads take turns and every top-level key
//   one of them wrote survives the others' merges. A key two of them change
//   holds the last writer's value. A lock held elsewhere for more than 10 s
//   makes sync() log an error and write nothing; the lock of a process that
//   dies goes with it.
// - The file is replaced whole (a new file beside it, flushed to disk,
//   renamed over it, the directory flushed): a crash or a power cut leaves
//   the old document or the new one, never a mix or an empty file.
// - A file that exists but does not parse is not thrown away: the sync that
//   replaces it keeps its bytes as <file name>.corrupt-<UTC time stamp>
//   and logs an error naming that file.
#pragma once

#include <norvane/export.hpp>

// Only the forward declarations: include <nlohmann/json.hpp> to work on
// the dictionary itself.
#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace norvane {

class NORVANE_API settings {
public:
  class pimpl;

  // `file_name` is relative to standard_paths' app_config location, or
  // absolute. The file is read at once: a missing file gives an empty
  // object silently; an unreadable or malformed one is logged through the
  // library logger and also gives an empty object.
  explicit settings(const std::string& file_name);
  // Writes the document when it is marked modified.
  ~settings();
  settings(const settings&) = delete;
  settings& operator=(const settings&) = delete;

  // Under the lock: re-reads the file, replaces its top-level keys with the
  // dictionary's (a nested object is replaced whole, not merged), keeps the
  // merge as the dictionary and writes it as compact JSON, creating the
  // directory when needed. The modified mark is cleared only when the write
  // succeeded; a lock not taken within 10 s leaves the dictionary and the
  // mark as they were. A directory that takes no new file (read-only) fails.
  // Failures are logged, not thrown, except nlohmann::json::type_error
  // when the file or the dictionary holds something other than an object.
  void sync();

  // Changing the dictionary does not mark it modified: call set_modified().
  nlohmann::json& dictionary();
  const nlohmann::json& dictionary() const;
  void set_modified();
  bool modified() const;

  // Top-level keys without including nlohmann/json.hpp. Values travel as
  // JSON text ("3", "\"text\"", "{\"a\":1}"). set and remove mark the
  // document modified when they change it.
  std::vector<std::string> keys() const;
  // The compact JSON text of the key's value; empty when there is no such key.
  std::string get(std::string_view key) const;
  // False, with an error logged, when `json_text` is not valid JSON or the
  // document is not an object.
  bool set(std::string_view key, std::string_view json_text);
  // False when the key was not there. Unlike erasing from dictionary(),
  // which the merge of sync() undoes, the key also leaves the file at the
  // next successful sync.
  bool remove(std::string_view key);

private:
  std::unique_ptr<pimpl> impl_;
};

namespace details {

// Reads the settings file into `dictionary`, replacing it. True when the
// file was read or does not exist; false, with the dictionary emptied and
// an error logged, when it exists but cannot be read or parsed.
NORVANE_API bool settings_read_config(nlohmann::json* dictionary, const std::string& file_name);
// Replaces the file with `dictionary` as compact JSON (without the lock that
// sync() takes), creating the configuration directory first. False, with an
// error logged, when that fails; the old file is then untouched.
NORVANE_API bool settings_write_config(const std::string& file_name, const nlohmann::json* dictionary);

}  // namespace details

}  // namespace norvane
