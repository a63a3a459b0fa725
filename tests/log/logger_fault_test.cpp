// The library logger on a full device, a full or read-only file system, each
// in a child process: write failures go to standard error, a file that cannot
// be opened is the sink constructor's exception, and the program carries on.
#include "support/fault_support.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>
#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <spdlog/common.h>

#include <functional>
#include <regex>

namespace norvane {
namespace {

namespace fs = std::filesystem;

// Logs 5000 records through the library logger on `sink`, then does what an
// application does after its log went bad: more logging through the library
// (a refused settings write logs an error) and settings.
std::string log_and_carry_on(const std::function<std::shared_ptr<log_sink>()>& make_sink,
                             const fs::path& work) {
  std::string report = "logged ";
  try {
    auto stream = std::make_shared<log_stream>("norvane", make_sink());
    stream->set_level(log_level::info);
    set_norvane_logger(stream);
    for (int i = 0; i < 5000; ++i) {
      get_norvane_logger()->log(log_level::info, "record {} of 5000, padded to fill buffers quickly", i);
    }
    get_norvane_logger()->flush();
  } catch (const spdlog::spdlog_ex& e) {
    report = std::string("thrown: ") + e.what() + " ";
    set_norvane_logger(std::make_shared<log_stream>("norvane", std::make_shared<log_sink_null>()));
  }
  const nlohmann::json document = {{"a", 1}};
  const bool refused = !details::settings_write_config("/proc/version", &document);
  settings store((work / "s.json").string());
  store.set("k", "1");
  store.sync();
  const bool synced = !store.modified() && test::read_file(work / "s.json") == R"({"k":1})";
  return report + "refused=" + (refused ? "1" : "0") + " synced=" + (synced ? "1" : "0");
}

TEST(LoggerFault, AFailingLogDestinationIsReportedAndTheProgramCarriesOn) {
  const std::string ok = "refused=1 synced=1", full = ": No space left on device\\}";
  const std::string stamp =
      R"(\[\*\*\* LOG ERROR #0001 \*\*\*\] \[[-\d: ]{19}\] \[norvane\] \{Failed writing to file )";
  struct destination_case {
    bool needs_mounts;
    std::function<std::shared_ptr<log_sink>(const fs::path& dir)> make_sink;  // runs in the child
    std::string report;                                                       // what the child says it did
    std::string first_error_line;  // a pattern for the first line on standard error; empty: nothing at all
  };
  const destination_case cases[] = {
      {false, [](const fs::path&) { return std::make_shared<log_sink_file>("/dev/full", false); },
       "logged " + ok, stamp + "/dev/full" + full},
      // The healthy control: about a hundred rotations report nothing.
      {false,
       [](const fs::path& dir) { return std::make_shared<log_sink_rotating_file>(dir / "app.log", 4096, 2); },
       "logged " + ok, ""},
      {true,
       [](const fs::path& dir) {
         test::mount_tmpfs(dir, 64 * 1024);
         auto sink = std::make_shared<log_sink_file>(dir / "app.log", true);
         test::fill_file_system(dir);
         return sink;
       },
       "logged " + ok, stamp + ".*/app\\.log" + full},
      // Opening is where a read-only file system refuses.
      {true,
       [](const fs::path& dir) {
         test::mount_tmpfs(dir, 64 * 1024);
         test::remount_read_only(dir);
         return std::make_shared<log_sink_file>(dir / "app.log", true);
       },
       "thrown: Failed opening file <dir>/app.log for writing: Read-only file system " + ok, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.report + " / " + c.first_error_line);
    test::temp_dir dir, work;
    const auto outcome = test::run_in_child(
        [&] {
          if (c.needs_mounts) test::enter_private_mounts();
          return log_and_carry_on([&] { return c.make_sink(dir.path()); }, work.path());
        },
        60, true);
    if (outcome.could_not_set_up()) GTEST_SKIP() << "no private tmpfs on this machine: " << outcome.report;
    EXPECT_TRUE(outcome.exited_cleanly()) << outcome.describe();
    EXPECT_EQ(std::regex_replace(outcome.report, std::regex(dir.path().string()), "<dir>"), c.report);
    const auto first_line = outcome.errors.substr(0, outcome.errors.find('\n'));
    EXPECT_TRUE(c.first_error_line.empty() ? outcome.errors.empty()
                                           : std::regex_match(first_line, std::regex(c.first_error_line)))
        << outcome.errors;
  }
}

}  // namespace
}  // namespace norvane
