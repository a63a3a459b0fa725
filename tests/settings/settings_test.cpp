#include "settings/scoped_env.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/application.hpp>
#include <norvane/settings.hpp>
#include <norvane/standard_paths.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <string>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;
using test::log_entry;

std::vector<log_entry> one_error(const std::string& message) { return {{"error", message}}; }

// Each test runs with its own configuration home and the identity studio/tool,
// so the settings directory is <config home>/studio.tool.
class Settings : public ::testing::Test {
protected:
  Settings() : config_env_("XDG_CONFIG_HOME", (home_ / "config").c_str()) {
    char* argv[] = {program_.data(), nullptr};
    app_ = std::make_unique<application_core>(1, argv);
    app_->set_organization_name("studio");
    app_->set_application_name("tool");
  }

  fs::path config_dir() const { return home_ / "config" / "studio.tool"; }
  std::string file_text(const std::string& name) const { return test::read_file(config_dir() / name); }
  void write_settings(const std::string& name, const std::string& text) {
    fs::create_directories(config_dir());
    test::write_file(config_dir() / name, text);
  }

  test::temp_dir home_;
  test::scoped_env config_env_;
  // An existing program path, so that constructing the application logs nothing.
  std::string program_ = "/proc/self/exe";
  std::unique_ptr<application_core> app_;
  test::log_capture log_;
};

// What nlohmann's stream reader reports for `text`.
std::string parse_error_of(const std::string& text) {
  std::istringstream in(text);
  json j;
  try {
    in >> j;
  } catch (const json::exception& e) {
    return e.what();
  }
  return "no error";
}

TEST_F(Settings, FirstRunStartsEmptyAndWritesCompactJsonWhenModified) {
  {
    settings s("settings.json");
    EXPECT_EQ(s.dictionary(), json::object());
    EXPECT_FALSE(fs::exists(config_dir()));
    s.dictionary()["name"] = "A b";
    s.dictionary()["list"] = {1, 2.5, nullptr};
    s.dictionary()["nested"] = {{"on", true}};
    s.set_modified();
  }
  EXPECT_EQ(file_text("settings.json"), R"({"list":[1,2.5,null],"name":"A b","nested":{"on":true}})");
  EXPECT_TRUE(log_.entries().empty());
  // Read back as it was written.
  const settings again("settings.json");
  EXPECT_EQ(again.dictionary()["list"][1], 2.5);
  EXPECT_FALSE(again.modified());
}

TEST_F(Settings, SyncMergesTopLevelKeysOverTheFile) {
  write_settings("s.json", R"({"a":1,"b":2,"n":{"x":1,"y":2}})");
  settings s("s.json");
  s.dictionary() = {{"b", 3}, {"n", {{"y", 3}}}};
  // Someone else adds a key after we read.
  write_settings("s.json", R"({"a":1,"b":2,"c":4,"n":{"x":1,"y":2}})");
  s.set_modified();
  s.sync();
  EXPECT_FALSE(s.modified());
  const json expected = {{"a", 1}, {"b", 3}, {"c", 4}, {"n", {{"y", 3}}}};
  EXPECT_EQ(s.dictionary(), expected);
  EXPECT_EQ(json::parse(file_text("s.json")), expected);
  // A sync without changes still picks up the file and rewrites it.
  write_settings("s.json", R"({"d":5})");
  s.sync();
  EXPECT_EQ(s.dictionary()["d"], 5);
  EXPECT_EQ(s.dictionary()["a"], 1);
  EXPECT_TRUE(log_.entries().empty());
}

TEST_F(Settings, OnlyAModifiedStoreIsWrittenAtDestruction) {
  {
    settings s("quiet.json");
    s.dictionary()["x"] = 1;
  }
  EXPECT_FALSE(fs::exists(config_dir() / "quiet.json"));
  {
    settings s("quiet.json");
    s.dictionary()["x"] = 1;
    s.set_modified();
    s.sync();
    s.dictionary()["x"] = 2;  // after the sync, and not marked
  }
  EXPECT_EQ(file_text("quiet.json"), R"({"x":1})");
}

TEST_F(Settings, AbsoluteNamesIgnoreTheConfigurationDirectory) {
  test::temp_dir elsewhere;
  const auto path = (elsewhere / "abs.json").string();
  {
    settings s(path);
    s.dictionary()["k"] = "v";
    s.set_modified();
  }
  EXPECT_EQ(test::read_file(path), R"({"k":"v"})");
  // The configuration directory is still created, as for any write.
  EXPECT_FALSE(fs::exists(config_dir() / "abs.json"));
}

// A file that does not parse gives an empty document; the sync that
// replaces it first keeps its bytes beside it, under a name of their own.
TEST_F(Settings, UnparsableFilesGiveAnEmptyObjectAndAreKeptAsideByTheNextSync) {
  const std::pair<std::string, std::string> cases[] = {{"invalid.json", "{x"},
                                                       {"empty.json", ""},
                                                       {"truncated.json", R"({"a": [1, 2)"},
                                                       {"half_array.json", "[1, x"}};
  for (const auto& [name, text] : cases) {
    SCOPED_TRACE(name);
    write_settings(name, text);
    test::log_capture log;
    settings s(name);
    EXPECT_EQ(s.dictionary(), json::object());
    const log_entry read_error{"error",
                               "Exception thrown during settings reading: \"" + parse_error_of(text) + "\"."};
    EXPECT_EQ(log.entries(), std::vector<log_entry>{read_error});
    s.set("b", "2");
    s.sync();
    EXPECT_EQ(file_text(name), R"({"b":2})");
    std::vector<fs::path> kept;
    for (const auto& entry : fs::directory_iterator(config_dir())) {
      if (entry.path().filename().string().rfind(name + ".corrupt-", 0) == 0) {
        kept.push_back(entry.path());
      }
    }
    ASSERT_EQ(kept.size(), 1u);
    // <name>.corrupt-YYYYMMDDTHHMMSS.mmmZ
    EXPECT_EQ(kept[0].filename().string().size(), name.size() + 29) << kept[0];
    EXPECT_EQ(test::read_file(kept[0]), text);
    EXPECT_EQ(log.entries(),
              (std::vector<log_entry>{
                  read_error,
                  read_error,
                  {"error", "The settings file could not be parsed; its content was kept in \"" +
                                kept[0].string() + "\"."}}));
  }
}

TEST_F(Settings, ADirectoryInPlaceOfTheFile) {
  fs::create_directories(config_dir() / "dir.json");
  settings s("dir.json");
  EXPECT_EQ(s.dictionary(), json::object());
  // Opening a directory for reading succeeds; the first read fails and the
  // standard library reports it by exception.
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].message.rfind("Exception thrown during settings reading: \"", 0), 0u) << entries[0];
  EXPECT_NE(entries[0].message.find("Is a directory\"."), std::string::npos) << entries[0];
  test::log_capture write_log;
  s.set_modified();
  s.sync();
  EXPECT_TRUE(s.modified());
  // The read inside sync fails the same way, then the write.
  const auto sync_entries = write_log.entries();
  ASSERT_EQ(sync_entries.size(), 2u);
  EXPECT_EQ(sync_entries[0], entries[0]);
  EXPECT_EQ(sync_entries[1], (log_entry{"error", "Impossible to write in the settings file."}));
  s.dictionary().clear();
}

TEST_F(Settings, AFileThatCannotBeOpenedForReading) {
  write_settings("locked.json", R"({"a":1})");
  const auto locked = config_dir() / "locked.json";
  ::chmod(locked.c_str(), 0);
  std::string name = "locked.json";
  if (::access(locked.c_str(), R_OK) == 0) {
    // Running as root, where permissions do not stop reading: use a
    // write-only kernel file instead (it is only ever read here).
    name = "/proc/sys/vm/drop_caches";
    if (::access(name.c_str(), R_OK) == 0 || !fs::exists(name)) {
      GTEST_SKIP() << "no unreadable file available";
    }
  }
  const settings s(name);
  EXPECT_EQ(s.dictionary(), json::object());
  EXPECT_EQ(log_.entries(), one_error("Impossible to read in the settings file."));
}

TEST_F(Settings, WriteFailuresKeepTheModifiedMark) {
  {
    // The file's own directory does not exist and is not created.
    settings s("missing/sub/s.json");
    s.dictionary()["a"] = 1;
    s.set_modified();
    test::log_capture log;
    s.sync();
    EXPECT_TRUE(s.modified());
    EXPECT_EQ(log.entries(), one_error("Impossible to create the settings file."));
    s.dictionary().erase("a");
    // Still marked: the destructor tries again and logs again.
  }
  {
    // A file that exists but cannot be written, even by root.
    test::log_capture log;
    const json document = {{"a", 1}};
    EXPECT_FALSE(details::settings_write_config("/proc/version", &document));
    EXPECT_EQ(log.entries(), one_error("Impossible to write in the settings file."));
  }
}

TEST_F(Settings, AConfigurationDirectoryUnderARegularFile) {
  // The configuration home itself is a file: no directory can go below it.
  test::write_file(home_ / "config", "");
  settings s("s.json");
  EXPECT_TRUE(log_.entries().empty());
  s.dictionary()["a"] = 1;
  s.set_modified();
  s.sync();
  EXPECT_TRUE(s.modified());
  EXPECT_EQ(log_.entries(), one_error("Impossible to create the directory used for the settings.\n"));
  // Once the directory can be made, the kept mark gets the document written.
  fs::remove(home_ / "config");
  s.sync();
  EXPECT_FALSE(s.modified());
  EXPECT_EQ(file_text("s.json"), R"({"a":1})");
}

TEST_F(Settings, NonObjectDocumentsLetTheTypeErrorThroughSync) {
  write_settings("array.json", "[1,2]");
  settings from_array("array.json");
  EXPECT_TRUE(log_.entries().empty());
  EXPECT_EQ(from_array.dictionary(), json::array({1, 2}));
  // The key accessors find nothing and change nothing in a non-object.
  EXPECT_TRUE(from_array.keys().empty());
  EXPECT_EQ(from_array.get("0"), "");
  EXPECT_FALSE(from_array.remove("0"));
  EXPECT_FALSE(from_array.set("a", "1"));
  EXPECT_EQ(log_.entries(), one_error("The settings document is not a JSON object."));
  EXPECT_FALSE(from_array.modified());
  EXPECT_THROW(from_array.sync(), json::type_error);
  EXPECT_EQ(file_text("array.json"), "[1,2]");

  // Our object over a file that holds a number.
  write_settings("number.json", "{}");
  settings over_number("number.json");
  write_settings("number.json", "42");
  over_number.dictionary()["a"] = 1;
  EXPECT_THROW(over_number.sync(), json::type_error);
  EXPECT_EQ(file_text("number.json"), "42");
}

TEST_F(Settings, ADocumentThatCannotBeSerialisedLeavesTheFileAlone) {
  write_settings("utf8.json", R"({"a":1})");
  settings s("utf8.json");
  s.dictionary()["bad"] = std::string("\xff");
  s.set_modified();
  s.sync();
  EXPECT_TRUE(s.modified());
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].message.rfind(
                "Exception thrown during settings writing: \"[json.exception.type_error.316]", 0),
            0u)
      << entries[0].message;
  EXPECT_EQ(file_text("utf8.json"), R"({"a":1})");
  s.dictionary().erase("bad");
}

TEST_F(Settings, TopLevelKeysAsJsonText) {
  settings s("keys.json");
  EXPECT_TRUE(s.keys().empty());
  EXPECT_TRUE(s.set("width", "640"));
  EXPECT_TRUE(s.set("title", R"("My \"app\"")"));
  EXPECT_TRUE(s.set("window", R"({"x": 1, "y": [2, 3]})"));
  EXPECT_TRUE(s.modified());
  EXPECT_EQ(s.keys(), (std::vector<std::string>{"title", "width", "window"}));
  EXPECT_EQ(s.get("width"), "640");
  EXPECT_EQ(s.get("title"), R"("My \"app\"")");
  EXPECT_EQ(s.get("window"), R"({"x":1,"y":[2,3]})");
  EXPECT_EQ(s.get("absent"), "");

  EXPECT_FALSE(s.set("width", "six hundred"));
  EXPECT_EQ(log_.entries(), one_error("Invalid JSON value for the settings key \"width\"."));
  EXPECT_EQ(s.get("width"), "640");

  s.sync();
  EXPECT_FALSE(s.modified());
  EXPECT_FALSE(s.remove("absent"));
  EXPECT_FALSE(s.modified());
  EXPECT_TRUE(s.remove("width"));
  EXPECT_TRUE(s.modified());
  s.sync();
  EXPECT_EQ(file_text("keys.json"), R"({"title":"My \"app\"","window":{"x":1,"y":[2,3]}})");
  // Erasing from the dictionary directly is undone by the merge.
  s.dictionary().erase("title");
  s.set_modified();
  s.sync();
  EXPECT_EQ(s.get("title"), R"("My \"app\"")");
}

}  // namespace
}  // namespace norvane
