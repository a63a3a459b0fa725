#include "log/log_test_util.hpp"
#include "support/log_capture.hpp"

#include <gtest/gtest.h>

#include <spdlog/common.h>

#include <map>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using test::lines_of;
using test::read_file;

// Logs lines "line <from>".."line <to - 1>", all of one length, on a fresh stream over `sink`.
void log_lines(std::shared_ptr<log_sink> sink, int from, int to) {
  log_stream stream("r", std::move(sink));
  stream.set_level(log_level::info);
  for (int i = from; i < to; ++i) stream.log(log_level::info, "line {:04}", i);
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
    double limit_in_lines;  // the size limit, in lengths of one line
    std::size_t max_files;
    int restart_at, total;                     // a new sink takes over the file at restart_at
    std::map<int, std::vector<int>> expected;  // every file left (0: app.log), with its lines
  };
  const rotation_case cases[] = {
      {3, 2, 0, 10, {{0, {9}}, {1, {6, 7, 8}}, {2, {3, 4, 5}}}},
      {5, 3, 0, 4, {{0, {0, 1, 2, 3}}}},
      {3, 0, 0, 7, {{0, {6}}}},                        // no older files: emptied instead
      {0.5, 2, 0, 3, {{0, {2}}, {1, {1}}, {2, {0}}}},  // a longer line is not split
      {3, 1, 2, 4, {{0, {3}}, {1, {0, 1, 2}}}},        // a new sink counts what the file holds
  };
  test::temp_dir probe;
  log_lines(std::make_shared<log_sink_file>(probe / "one.log", true), 0, 1);
  const auto line_size = fs::file_size(probe / "one.log");
  for (const auto& c : cases) {
    for (bool threaded : {false, true}) {
      SCOPED_TRACE(::testing::Message() << c.total << " lines, threaded " << threaded);
      test::temp_dir dir;
      const auto limit = static_cast<std::size_t>(c.limit_in_lines * static_cast<double>(line_size));
      const auto make = [&]() -> std::shared_ptr<log_sink> {
        if (threaded)
          return std::make_shared<log_sink_rotating_file_threaded>(dir / "app.log", limit, c.max_files);
        return std::make_shared<log_sink_rotating_file>(dir / "app.log", limit, c.max_files);
      };
      log_lines(make(), 0, c.restart_at);
      log_lines(make(), c.restart_at, c.total);
      std::map<int, std::vector<int>> found;
      for (const auto& entry : fs::directory_iterator(dir.path())) {
        const auto name = entry.path().filename().string();
        found[name == "app.log" ? 0 : std::stoi(name.substr(4))] = line_numbers(entry.path());
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
  // Reopening counts what the file holds; a removed log directory comes back at the next rotation.
  auto sink = std::make_shared<log_sink_rotating_file>(dir / "logs" / "app.log", 1, 2);
  log_lines(sink, 0, 1);
  EXPECT_TRUE(sink->reopen());
  log_lines(sink, 1, 2);
  EXPECT_EQ(line_numbers(dir / "logs" / "app.log"), std::vector<int>{1});
  fs::remove_all(dir / "logs");
  log_lines(sink, 2, 3);
  EXPECT_EQ(line_numbers(dir / "logs" / "app.log"), std::vector<int>{2});
  // A rotation that cannot drop the oldest file keeps writing to the current one.
  fs::create_directories(dir / "logs" / "app.1.log");
  fs::create_directories(dir / "logs" / "app.2.log" / "not-empty");
  log_lines(sink, 3, 5);
  EXPECT_EQ(line_numbers(dir / "logs" / "app.log"), (std::vector<int>{2, 3, 4}));
}

// Moves the file away and reopens, removes the directory and reopens, then
// makes reopening fail: the sink keeps writing to the file it had.
TEST(FileSinks, ReopenStartsANewFileAtTheOriginalPathOrKeepsTheOldOne) {
  const auto check = [](auto make) {
    test::temp_dir dir;
    const auto path = dir / "logs" / "app.log";
    auto sink = make(path);
    log_stream stream("s", sink);
    stream.set_level(log_level::info);
    const auto write = [&](const char* text) { stream.log(log_level::info, "{}", text), stream.flush(); };
    write("first");
    fs::rename(path, dir / "moved.log");
    write("second");
    EXPECT_TRUE(sink->reopen());
    write("third");
    fs::remove_all(dir / "logs");
    EXPECT_TRUE(sink->reopen());
    write("fourth");
    fs::rename(path, dir / "kept.log");
    fs::create_directory(path);
    test::log_capture errors;
    EXPECT_FALSE(sink->reopen());
    write("fifth");
    ASSERT_EQ(errors.entries().size(), 1u);
    EXPECT_NE(errors.entries()[0].message.find("Failed opening file " + path.string()), std::string::npos);
    const auto moved = lines_of(read_file(dir / "moved.log")), kept = lines_of(read_file(dir / "kept.log"));
    ASSERT_TRUE(moved.size() == 2 && kept.size() == 2);
    EXPECT_TRUE(moved[1].find("second") != moved[1].npos && kept[1].find("fifth") != kept[1].npos);
  };
  check([](const fs::path& p) { return std::make_shared<log_sink_file>(p, false); });
  check([](const fs::path& p) { return std::make_shared<log_sink_rotating_file_threaded>(p, 1 << 20, 2); });
  check([](const fs::path& p) { return std::make_shared<log_sink_json_file>(p, false); });
}

}  // namespace
}  // namespace norvane
