// A log stream (its threshold, its sink's lifetime), the sinks (null, standard
// output, fan-out, plain, rotating and JSON-lines files), the registry of
// named loggers with the defaults new loggers take, and the library's logger.
#include "log/log_test_util.hpp"
#include "support/log_capture.hpp"

#include <gtest/gtest.h>

#include <spdlog/common.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <map>

namespace norvane {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using test::lines_of;
using test::read_file;
using test::unstamped;

// Logs `text` at error level through a fresh stream "s" on `sink`.
void log_one(std::shared_ptr<log_sink> sink, const std::string& text) {
  log_stream stream("s", std::move(sink));
  stream.set_level(log_level::trace);
  stream.log(log_level::error, "{}", text);
  stream.flush();
}

TEST(LogStream, WritesExactlyAtOrAboveItsThresholdAndIsSilentUntilOneIsSet) {
  test::temp_dir dir;
  log_stream stream("a name", std::make_shared<log_sink_file>(dir / "log.txt", true));
  EXPECT_EQ(stream.level(), log_level::off);
  stream.log(log_level::critical, "dropped");
  // A disabled level never formats, so a bad format passes silently.
  EXPECT_NO_THROW(stream.log(log_level::error, fmt::runtime("{} and {}"), 1));
  const char* names[] = {"trace", "debug", "info", "warning", "error", "critical"};
  std::string expected;
  for (int threshold = 0; threshold < 6; ++threshold) {
    stream.set_level(log_level(threshold));
    for (int level = 0; level < 6; ++level) {
      EXPECT_EQ(stream.should_log(log_level(level)), level >= threshold) << threshold << " vs " << level;
      stream.log(log_level(level), "{} at {}", level, threshold);
      if (level >= threshold)
        expected += fmt::format("[a name] [{}] {} at {}\n", names[level], level, threshold);
    }
  }
  stream.set_level(log_level::trace);
  EXPECT_THROW(stream.log(log_level::error, fmt::runtime("{:d}"), "text"), fmt::format_error);
  stream.log(log_level::info, "{}", std::string_view("a\0b", 3));
  stream.set_level(log_level::off);  // sink_it bypasses the threshold
  stream.sink_it(log_level::trace, log_msg(stream.name(), log_level::warning, "made by hand"));
  stream.flush();
  EXPECT_EQ(unstamped(read_file(dir / "log.txt")),
            expected + "[a name] [info] a\0b\n"s + "[a name] [warning] made by hand\n");
}

TEST(LogStream, ABorrowedSinkIsNeverDeleted) {
  test::temp_dir dir;
  auto* borrowed = new log_sink_file(dir / "borrowed.txt", true);
  { log_stream first("first", borrowed); }
  log_stream second("second", borrowed);
  delete borrowed;  // the stream kept the backend's sink, so it still writes
  second.set_level(log_level::info);
  second.log(log_level::info, "two");
  second.flush();
  EXPECT_EQ(unstamped(read_file(dir / "borrowed.txt")), "[second] [info] two\n");
}

// Standard output sinks write default lines and the others nothing; file
// sinks append, truncate or throw from the constructor.
TEST(LogSink, EachSinkWritesWhereItSays) {
  test::stdout_capture out;
  for (auto sink : std::initializer_list<std::shared_ptr<log_sink>>{
           std::make_shared<log_sink_null>(), std::make_shared<log_sink_null_threaded>(),
           std::make_shared<log_sink_distribution>(), std::make_shared<log_sink_stdout>(),
           std::make_shared<log_sink_stdout_threaded>(), std::make_shared<log_sink_stdout_colour>(),
           std::make_shared<log_sink_stdout_colour_threaded>()}) {
    log_one(sink, "to stdout");
  }
  // Standard output is a file here, so the colour sinks write no escape codes.
  const std::string line = "[s] [error] to stdout\n";
  EXPECT_EQ(unstamped(out.text()), line + line + line + line);
  test::temp_dir dir;
  const auto path = dir / "app.log";
  test::write_file(path, "earlier line\n");
  log_one(std::make_shared<log_sink_file>(path, false), "appended");
  EXPECT_EQ(unstamped(read_file(path)), "earlier line\n[s] [error] appended\n");
  log_one(std::make_shared<log_sink_file_threaded>(path, true), "fresh");
  EXPECT_EQ(unstamped(read_file(path)), "[s] [error] fresh\n");
  // A directory in the file's place cannot be opened, even by root; nor a file under a regular file.
  std::filesystem::create_directory(dir / "taken");
  EXPECT_THROW(log_sink_file_threaded(dir / "taken", true), std::exception);
  EXPECT_THROW(log_sink_file(path / "child.log", false), std::exception);
}

// The fan-out writes to each target in order and keeps their backend sinks
// alive after the wrappers are gone.
TEST(LogSink, DistributionWritesToEachTargetInOrderAndKeepsThemAlive) {
  const auto check = [](auto fan) {
    test::temp_dir dir;
    {
      auto a = std::make_shared<log_sink_file>(dir / "a.log", true);
      fan->set_sinks({a, std::make_shared<log_sink_file>(dir / "b.log", true), a});
    }
    log_one(fan, "twice here, once there");
    fan->set_sinks({});
    log_one(fan, "gone");
    EXPECT_EQ(unstamped(read_file(dir / "a.log")),
              "[s] [error] twice here, once there\n"
              "[s] [error] twice here, once there\n");
    EXPECT_EQ(unstamped(read_file(dir / "b.log")), "[s] [error] twice here, once there\n");
  };
  check(std::make_shared<log_sink_distribution>());
  check(std::make_shared<log_sink_distribution_threaded>());
}

// Logs lines "line <from>".."line <to - 1>", all of one length.
void log_lines(std::shared_ptr<log_sink> sink, int from, int to) {
  for (int i = from; i < to; ++i) log_one(sink, fmt::format("line {:04}", i));
}

// The numbers of the lines in a file, in file order.
std::vector<int> line_numbers(const fs::path& file) {
  std::vector<int> numbers;
  for (const auto& line : lines_of(test::unstamped(read_file(file)))) {
    EXPECT_EQ(line.substr(0, 17), "[s] [error] line ");
    numbers.push_back(std::stoi(line.substr(17)));
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

// Every message gives one line that a strict parser accepts; ill-formed
// UTF-8 pieces become U+FFFD each.
TEST(JsonLinesSink, EveryMessageGivesOneStrictJsonLine) {
  const std::string bad = "\xef\xbf\xbd", controls = "new\nline\ttab\rret\bb\ff nul\0one\x01u\x1f\x7f"s;
  const std::pair<std::string, std::string> cases[] = {
      {R"(quote " backslash \ slash /)", R"(quote " backslash \ slash /)"},
      {controls, controls},
      {"\xc3\xa9 \xe0\xa0\x80 \xf4\x8f\xbf\xbf", "\xc3\xa9 \xe0\xa0\x80 \xf4\x8f\xbf\xbf"},
      {"lone \x80\x80\x80\x80, \xff", "lone " + bad + bad + bad + bad + ", " + bad},
      {"cut \xe2\x82", "cut " + bad},
      {"cut \303before ascii", "cut " + bad + "before ascii"},
      {"overlong \xc0\xaf \xe0\x9f\xbf", "overlong " + bad + bad + " " + bad + bad + bad},
      {"surrogate \xed\xa0\x80", "surrogate " + bad + bad + bad},
      {"past U+10FFFF \xf4\x90\x80\x80", "past U+10FFFF " + bad + bad + bad + bad},
      {"", ""},
  };
  test::temp_dir dir;
  test::stdout_capture out;
  for (auto sink : {std::shared_ptr<log_sink>(std::make_shared<log_sink_json_file>(dir / "app.jsonl", true)),
                    std::shared_ptr<log_sink>(std::make_shared<log_sink_json_stdout_threaded>())}) {
    log_stream stream("odd \"name\"\n", sink);
    stream.set_level(log_level::info);
    for (const auto& c : cases) stream.log(log_level::warning, "{}", c.first);
  }
  static const std::regex rfc3339(R"(^(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.\d{3}Z$)");
  for (const auto& text : {test::read_file(dir / "app.jsonl"), out.text()}) {
    const auto lines = test::lines_of(text);
    ASSERT_EQ(lines.size(), std::size(cases));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const auto record = nlohmann::json::parse(lines[i]);
      const std::string time = record["time"];
      EXPECT_EQ(record, nlohmann::json({{"msg", cases[i].second},
                                        {"level", "warning"},
                                        {"time", time},
                                        {"logger", "odd \"name\"\n"},
                                        {"pid", ::getpid()},
                                        {"thread", ::gettid()}}))
          << i;
      std::smatch m;
      ASSERT_TRUE(std::regex_match(time, m, rfc3339)) << time;
      std::tm utc{};
      ::strptime(m[1].str().c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
      EXPECT_LE(std::abs(::timegm(&utc) - std::time(nullptr)), 5) << "not UTC: " << time;
    }
  }
}

// The registry is process-wide: every test starts from the unconfigured state and leaves it so.
class LoggerRegistry : public ::testing::Test {
protected:
  void SetUp() override { TearDown(); }
  void TearDown() override {
    install_logger_registry(nullptr);
    install_default_log_sink(nullptr);
    set_default_log_level(log_level::off);
    for (const char* name : {"r.before", "r.after", "r.loose", "r.dup", "r.carried", "r.external", "r.made"})
      unregister_logger(name);
  }
  static std::shared_ptr<log_stream> null_stream(const char* name) {
    return std::make_shared<log_stream>(name, std::make_shared<log_sink_null>());
  }
};

TEST_F(LoggerRegistry, DefaultsApplyToLoggersMadeAfterThemAndTheNewestRegistrationWins) {
  test::temp_dir dir;
  auto before = get_logger("r.before");
  EXPECT_TRUE(before->level() == log_level::off && get_logger("r.before") == before);
  install_default_log_sink(nullptr);  // a fresh null sink
  EXPECT_NE(dynamic_cast<log_sink_null_threaded*>(details::logger_manager::instance().default_sink().get()),
            nullptr);
  set_default_log_level(log_level::info);
  install_default_log_sink(std::make_shared<log_sink_file>(dir / "defaults.log", true));
  auto after = get_logger("r.after");
  after->log(log_level::debug, "below the default level");
  after->log(log_level::info, "admitted");
  before->log(log_level::critical, "the old logger keeps its null sink");
  after->flush();
  EXPECT_EQ(test::unstamped(test::read_file(dir / "defaults.log")), "[r.after] [info] admitted\n");
  // make_default_logger takes the same defaults but registers nothing.
  auto loose = make_default_logger("r.loose");
  EXPECT_EQ(loose->level(), log_level::info);
  EXPECT_NE(get_logger("r.loose"), loose);
  // The newest registration wins; unregistering forgets.
  auto first = null_stream("r.dup"), second = null_stream("r.dup");
  EXPECT_EQ(register_logger(first), first);
  EXPECT_EQ(register_logger(second, false), second);
  EXPECT_EQ(get_logger("r.dup", false), second);
  std::weak_ptr<log_stream> watch = second;
  second.reset();
  unregister_logger("r.dup");
  EXPECT_TRUE(watch.expired());
  EXPECT_NE(get_logger("r.dup"), first);  // a fresh one
}

TEST_F(LoggerRegistry, InstallingARegistryCarriesEntriesBothWays) {
  auto own_entry = register_logger(null_stream("r.carried"));
  auto external_only = null_stream("r.external");
  logger_registry external{{"r.carried", null_stream("r.carried")}, {"r.external", external_only}};
  install_logger_registry(&external);
  EXPECT_EQ(external.at("r.carried"), own_entry);  // entries of the map being left win
  EXPECT_EQ(get_logger("r.external"), external_only);
  install_logger_registry(&external);  // already in use: nothing happens
  auto made_there = get_logger("r.made");
  EXPECT_EQ(external.at("r.made"), made_there);
  // Back on the own map, with the external entries copied over; the external map keeps its entries.
  install_logger_registry(nullptr);
  EXPECT_EQ(get_logger("r.external"), external_only);
  EXPECT_EQ(get_logger("r.made"), made_there);
  EXPECT_EQ(external.count("r.made"), 1u);
}

// The library logger is made once per process, so each case runs in a
// freshly started copy of this test program.
TEST(NorvaneLogger, TakesTheDefaultsOfItsFirstUseAndIsRegistered) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        test::temp_dir dir;
        set_default_log_level(log_level::warning);
        install_default_log_sink(std::make_shared<log_sink_file>(dir / "library.log", true));
        auto logger = get_norvane_logger();
        set_default_log_level(log_level::trace);  // later defaults do not change the logger already made
        logger->log(log_level::info, "{}", "below warning");
        logger->log(log_level::error, "{}", "Impossible to create the settings file.");
        logger->flush();
        const bool ok = logger->name() == "norvane" && get_logger("norvane") == logger &&
                        get_norvane_logger() == logger && logger->level() == log_level::warning &&
                        test::unstamped(test::read_file(dir / "library.log")) ==
                            "[norvane] [error] Impossible to create the settings file.\n";
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  // Unconfigured it is silent, and replacing it leaves the registry alone.
  EXPECT_EXIT(
      {
        auto registered = get_norvane_logger();
        registered->log(log_level::critical, "nobody hears this");
        auto replacement = std::make_shared<log_stream>("mine", std::make_shared<log_sink_null>());
        set_norvane_logger(replacement);
        bool ok = registered->level() == log_level::off && get_norvane_logger() == replacement;
        set_norvane_logger(nullptr);
        ok = ok && get_norvane_logger() == nullptr && get_logger("norvane") == registered;
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "^$");
}

}  // namespace
}  // namespace norvane
