#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

#include <cstdlib>

namespace norvane {
namespace {

using test::lines_of;
using test::read_file;

// The library logger is made once per process, so each case runs in a
// freshly started copy of this test program.
class NorvaneLogger : public ::testing::Test {
protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(NorvaneLogger, TakesTheDefaultsOfItsFirstUseAndIsRegistered) {
  // The child process makes its own temporary directory: all checks run there.
  EXPECT_EXIT(
      {
        test::temp_dir dir;
        const auto path = dir / "library.log";
        set_default_log_level(log_level::warning);
        install_default_log_sink(std::make_shared<log_sink_file>(path, true));
        auto logger = get_norvane_logger();
        // Later defaults do not change the logger already made.
        set_default_log_level(log_level::trace);
        logger->log(log_level::info, "{}", "below warning");
        logger->log(log_level::error, "{}", "Impossible to create the settings file.");
        logger->flush();
        const auto lines = lines_of(read_file(path));
        const bool ok =
            logger->name() == "norvane" && get_logger("norvane") == logger &&
            get_norvane_logger() == logger && logger->level() == log_level::warning && lines.size() == 1 &&
            test::is_default_layout(lines[0], "norvane", "error", "Impossible to create the settings file.");
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(NorvaneLogger, IsSilentWithoutConfiguration) {
  EXPECT_EXIT(
      {
        auto logger = get_norvane_logger();
        logger->log(log_level::critical, "nobody hears this");
        std::exit(logger->level() == log_level::off ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "^$");
}

TEST_F(NorvaneLogger, ReplacementLeavesTheRegistryAlone) {
  EXPECT_EXIT(
      {
        auto replacement = std::make_shared<log_stream>("mine", std::make_shared<log_sink_null>());
        set_norvane_logger(replacement);
        bool ok = get_norvane_logger() == replacement;
        auto registered = get_logger("norvane");
        ok = ok && registered != replacement && registered->name() == "norvane";
        set_norvane_logger(nullptr);
        ok = ok && get_norvane_logger() == nullptr && get_logger("norvane") == registered;
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace norvane
