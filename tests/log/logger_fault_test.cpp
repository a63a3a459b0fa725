// The library logger on a full device, a full file system, a read-only one:
// write failures go to spdlog's error handler (standard error), a file that
// cannot be opened is the sink constructor's exception, and the program
// carries on and exits normally. Each case is a child process.
#include "support/fault_support.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>
#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <spdlog/common.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <regex>
#include <string>

namespace norvane {
namespace {

namespace fs = std::filesystem;

constexpr int records = 5000;

// What an application does after its log went bad: more logging through
// the library (a refused settings write logs an error) and settings.
std::string carry_on(const fs::path& work) {
  const nlohmann::json document = {{"a", 1}};
  const bool refused = !details::settings_write_config("/proc/version", &document);
  bool synced = false;
  {
    settings store((work / "s.json").string());
    store.set("k", "1");
    store.sync();
    synced = !store.modified() && test::read_file(work / "s.json") == R"({"k":1})";
  }
  return std::string("refused=") + (refused ? "1" : "0") + " synced=" + (synced ? "1" : "0");
}

// Logs `records` lines through the library logger on `sink`, then flushes.
std::string log_through(std::shared_ptr<log_sink> sink) {
  auto stream = std::make_shared<log_stream>("norvane", std::move(sink));
  stream->set_level(log_level::info);
  set_norvane_logger(stream);
  for (int i = 0; i < records; ++i) {
    get_norvane_logger()->log(log_level::info, "record {} of {}, padded to fill buffers quickly", i, records);
  }
  get_norvane_logger()->flush();
  return "logged ";
}

struct destination_case {
  const char* name;
  bool needs_mounts;
  // Makes the sink (or throws as its constructor does) inside the child.
  std::function<std::shared_ptr<log_sink>(const fs::path& dir)> make_sink;
  std::string report;            // what the child says it did
  std::string first_error_line;  // a pattern for the first line on standard error; empty: no line
};

TEST(LoggerFault, AFailingLogDestinationIsReportedAndTheProgramCarriesOn) {
  const std::string carried_on = "refused=1 synced=1";
  const std::string stamp =
      R"(\[\*\*\* LOG ERROR #0001 \*\*\*\] \[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] \[norvane\] )";
  const destination_case cases[] = {
      {"/dev/full, one thread", false,
       [](const fs::path&) { return std::make_shared<log_sink_file>("/dev/full", false); },
       "logged " + carried_on, stamp + R"(\{Failed writing to file /dev/full: No space left on device\})"},
      // The healthy control: about a hundred rotations report nothing.
      {"rotating in a healthy directory", false,
       [](const fs::path& dir) { return std::make_shared<log_sink_rotating_file>(dir / "app.log", 4096, 2); },
       "logged " + carried_on, ""},
      {"a full file system", true,
       [](const fs::path& dir) {
         test::mount_tmpfs(dir, 64 * 1024);
         auto sink = std::make_shared<log_sink_file>(dir / "app.log", true);
         test::fill_file_system(dir);
         return sink;
       },
       "logged " + carried_on, stamp + R"(\{Failed writing to file .*/app\.log: No space left on device\})"},
      // Opening is where a read-only file system refuses.
      {"a read-only file system", true,
       [](const fs::path& dir) -> std::shared_ptr<log_sink> {
         test::mount_tmpfs(dir, 64 * 1024);
         test::remount_read_only(dir);
         return std::make_shared<log_sink_file>(dir / "app.log", true);
       },
       "thrown: Failed opening file " + (fs::path("<dir>") / "app.log").string() +
           " for writing: Read-only file system " + carried_on,
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::temp_dir dir;
    test::temp_dir work;
    const auto outcome = test::run_in_child(
        [&] {
          if (c.needs_mounts) {
            test::enter_private_mounts();
          }
          std::string report;
          try {
            report = log_through(c.make_sink(dir.path()));
          } catch (const spdlog::spdlog_ex& e) {
            report = std::string("thrown: ") + e.what() + " ";
            set_norvane_logger(std::make_shared<log_stream>("norvane", std::make_shared<log_sink_null>()));
          }
          return report + carry_on(work.path());
        },
        60, true);
    if (outcome.could_not_set_up()) {
      GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
    }
    EXPECT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    auto report = outcome.report;
    if (const auto at = report.find(dir.path().string()); at != std::string::npos) {
      report.replace(at, dir.path().string().size(), "<dir>");
    }
    EXPECT_EQ(report, c.report);
    // An empty pattern means nothing on standard error at all.
    const auto first_line = outcome.errors.substr(0, outcome.errors.find('\n'));
    EXPECT_TRUE(c.first_error_line.empty() ? outcome.errors.empty()
                                           : std::regex_match(first_line, std::regex(c.first_error_line)))
        << outcome.errors;
  }
}

}  // namespace
}  // namespace norvane
