// Untrusted settings files: the input is written as the settings file, a
// store is built on it and synced. Construction never throws; the
// dictionary is what nlohmann reads or, when that fails, an empty object;
// sync throws nothing but nlohmann's type error for a non-object document,
// and keeps the bytes of a file nlohmann cannot read in exactly one
// "<name>.corrupt-<stamp>" file beside it.
#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace {

const std::filesystem::path& settings_file() {
  static const std::filesystem::path path = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "fuzz_settings_XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      std::abort();
    }
    return std::filesystem::path(pattern) / "settings.json";
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  {
    std::ofstream out(settings_file(), std::ios::binary | std::ios::trunc);
    out << text;
  }
  // What nlohmann alone makes of the same bytes, read the same way.
  nlohmann::json expected;
  bool malformed = false;
  try {
    std::istringstream in(text);
    in >> expected;
  } catch (const nlohmann::json::exception&) {
    expected = nlohmann::json::object();
    malformed = true;
  }

  norvane::settings store(settings_file().string());
  // NaN never compares equal, so compare the serialised forms.
  const auto dump = [](const nlohmann::json& j) {
    return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  };
  if (dump(store.dictionary()) != dump(expected)) {
    __builtin_trap();
  }
  store.set_modified();
  try {
    store.sync();
    int kept = 0;
    const auto prefix = settings_file().filename().string() + ".corrupt-";
    for (const auto& entry : std::filesystem::directory_iterator(settings_file().parent_path())) {
      if (entry.path().filename().string().rfind(prefix, 0) == 0) {
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (bytes != text) {
          __builtin_trap();
        }
        ++kept;
        std::filesystem::remove(entry.path());
      }
    }
    if (kept != (malformed ? 1 : 0)) {
      __builtin_trap();
    }
  } catch (const nlohmann::json::type_error&) {
    // Only a document that is not an object may make the merge throw.
    if (store.dictionary().is_object() && expected.is_object()) {
      __builtin_trap();
    }
    // Without the file the destructor's sync has an object on both sides.
    std::filesystem::remove(settings_file());
    store.dictionary() = nlohmann::json::object();
  }
  return 0;
}
