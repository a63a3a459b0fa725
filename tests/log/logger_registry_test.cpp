// The registry of named loggers, the defaults new loggers take, and the library's own logger.
#include "log/log_test_util.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

namespace norvane {
namespace {

// The registry is process-wide: every test starts from the unconfigured state and leaves it so.
class LoggerRegistry : public ::testing::Test {
protected:
  void SetUp() override { TearDown(); }
  void TearDown() override {
    install_logger_registry(nullptr);
    install_default_log_sink(nullptr);
    set_default_log_level(log_level::off);
    for (const char* name :
         {"r.before", "r.after", "r.loose", "r.dup", "r.carried", "r.external", "r.made"}) {
      unregister_logger(name);
    }
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
