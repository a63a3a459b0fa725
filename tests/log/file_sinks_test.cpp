#include "log/log_test_util.hpp"
#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

#include <spdlog/common.h>

#include <functional>
#include <map>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using test::lines_of;
using test::read_file;

// Logs lines "line 0".."line N-1" of one length on a fresh stream over `sink`.
void log_lines(std::shared_ptr<log_sink> sink, int from, int to) {
  log_stream stream("r", std::move(sink));
  stream.set_level(log_level::info);
  for (int i = from; i < to; ++i) {
    stream.log(log_level::info, "line {:04}", i);
  }
  stream.flush();
}

// The numbers of the lines in a file, in file order.
std::vector<int> line_numbers(const fs::path& file) {
  std::vector<int> numbers;
  for (const auto& line : lines_of(read_file(file))) {
    EXPECT_TRUE(test::is_default_layout(line, "r", "info", line.substr(line.size() - 9))) << line;
    numbers.push_back(std::stoi(line.substr(line.size() - 4)));
  }
  return numbers;
}

TEST(RotatingFileSink, KeepsWholeLinesInNumberedFilesAndDropsTheOldest) {
  struct rotation_case {
    const char* name;
    double limit_in_lines;  // the size limit, in lengths of one line
    std::size_t max_files;
    int restart_at;  // a new sink takes over the file here, or -1
    int total;
    std::map<std::string, std::vector<int>> expected;  // every file left, with its line numbers
  };
  const rotation_case cases[] = {
      {"rotates and drops the oldest",
       3,
       2,
       -1,
       10,
       {{"app.log", {9}}, {"app.1.log", {6, 7, 8}}, {"app.2.log", {3, 4, 5}}}},
      {"under the limit", 5, 3, -1, 4, {{"app.log", {0, 1, 2, 3}}}},
      {"no older files: emptied instead", 3, 0, -1, 7, {{"app.log", {6}}}},
      {"a line longer than the limit is not split",
       0.5,
       2,
       -1,
       3,
       {{"app.log", {2}}, {"app.1.log", {1}}, {"app.2.log", {0}}}},
      {"a new sink counts what the file holds", 3, 1, 2, 4, {{"app.log", {3}}, {"app.1.log", {0, 1, 2}}}},
  };
  test::temp_dir probe;
  log_lines(std::make_shared<log_sink_file>(probe / "one.log", true), 0, 1);
  const auto line_size = fs::file_size(probe / "one.log");
  for (const auto& c : cases) {
    for (bool threaded : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (threaded ? ", threaded" : ""));
      test::temp_dir dir;
      const auto limit = static_cast<std::size_t>(c.limit_in_lines * static_cast<double>(line_size));
      const auto make = [&]() -> std::shared_ptr<log_sink> {
        if (threaded) {
          return std::make_shared<log_sink_rotating_file_threaded>(dir / "app.log", limit, c.max_files);
        }
        return std::make_shared<log_sink_rotating_file>(dir / "app.log", limit, c.max_files);
      };
      const int restart = c.restart_at < 0 ? c.total : c.restart_at;
      log_lines(make(), 0, restart);
      log_lines(make(), restart, c.total);
      std::map<std::string, std::vector<int>> found;
      for (const auto& entry : fs::directory_iterator(dir.path())) {
        found[entry.path().filename().string()] = line_numbers(entry.path());
        EXPECT_LE(fs::file_size(entry.path()), std::max(limit, line_size)) << entry.path();
      }
      EXPECT_EQ(found, c.expected);
    }
  }
}

TEST(RotatingFileSink, BadLimitsAndFaultsNeverLoseALine) {
  test::temp_dir dir;
  // A limit of 0 bytes is refused before any file is made.
  EXPECT_THROW(log_sink_rotating_file(dir / "zero" / "app.log", 0, 3), spdlog::spdlog_ex);
  EXPECT_FALSE(fs::exists(dir / "zero"));

  // A log directory removed while the sink runs comes back at the next rotation.
  auto sink = std::make_shared<log_sink_rotating_file>(dir / "logs" / "app.log", 1, 2);
  log_lines(sink, 0, 1);
  fs::remove_all(dir / "logs");
  log_lines(sink, 1, 2);
  EXPECT_EQ(line_numbers(dir / "logs" / "app.log"), std::vector<int>{1});

  // A rotation that cannot drop the oldest file keeps writing to the current one.
  fs::create_directories(dir / "logs" / "app.1.log");
  fs::create_directories(dir / "logs" / "app.2.log" / "not-empty");
  log_lines(sink, 2, 4);
  EXPECT_EQ(line_numbers(dir / "logs" / "app.log"), (std::vector<int>{1, 2, 3}));
}

TEST(FileSinks, ReopenStartsANewFileAtTheOriginalPath) {
  using factory = std::function<std::shared_ptr<log_sink>(const fs::path&)>;
  using reopener = std::function<bool(log_sink&)>;
  const std::pair<factory, reopener> kinds[] = {
      {[](const fs::path& p) { return std::make_shared<log_sink_file>(p, false); },
       [](log_sink& s) { return static_cast<log_sink_file&>(s).reopen(); }},
      {[](const fs::path& p) { return std::make_shared<log_sink_file_threaded>(p, false); },
       [](log_sink& s) { return static_cast<log_sink_file_threaded&>(s).reopen(); }},
      {[](const fs::path& p) { return std::make_shared<log_sink_rotating_file_threaded>(p, 1 << 20, 2); },
       [](log_sink& s) { return static_cast<log_sink_rotating_file_threaded&>(s).reopen(); }},
      {[](const fs::path& p) { return std::make_shared<log_sink_json_file>(p, false); },
       [](log_sink& s) { return static_cast<log_sink_json_file&>(s).reopen(); }},
  };
  for (const auto& [make, reopen] : kinds) {
    test::temp_dir dir;
    const auto path = dir / "logs" / "app.log";
    auto sink = make(path);
    log_stream stream("s", sink);
    stream.set_level(log_level::info);
    const auto write = [&](const char* text) {
      stream.log(log_level::info, "{}", text);
      stream.flush();
    };
    write("first");
    fs::rename(path, dir / "moved.log");
    write("second");
    EXPECT_TRUE(reopen(*sink));
    write("third");
    // A vanished directory is made again.
    fs::remove_all(dir / "logs");
    EXPECT_TRUE(reopen(*sink));
    write("fourth");
    // A path that cannot be opened: reported once, and writing goes on where it was.
    fs::rename(path, dir / "kept.log");
    fs::create_directory(path);
    test::log_capture errors;
    EXPECT_FALSE(reopen(*sink));
    write("fifth");
    ASSERT_EQ(errors.entries().size(), 1u);
    EXPECT_NE(errors.entries()[0].message.find("Failed opening file " + path.string()), std::string::npos);
    EXPECT_EQ(lines_of(read_file(dir / "moved.log")).size(), 2u);
    const auto kept = lines_of(read_file(dir / "kept.log"));
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_NE(kept[0].find("fourth"), std::string::npos);
    EXPECT_NE(kept[1].find("fifth"), std::string::npos);
  }
}

}  // namespace
}  // namespace norvane
