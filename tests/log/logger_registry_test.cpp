// The registry of named loggers and the defaults new loggers take.
#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

namespace norvane {
namespace {

// The registry is process-wide: every test starts from the unconfigured
// state and leaves it so.
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

TEST_F(LoggerRegistry, DefaultsApplyToLoggersMadeAfterThem) {
  test::temp_dir dir;
  auto before = get_logger("r.before");
  EXPECT_EQ(before->level(), log_level::off);
  EXPECT_EQ(get_logger("r.before"), before);
  auto previous_null = details::logger_manager::instance().default_sink();
  install_default_log_sink(nullptr);  // a fresh null sink
  EXPECT_NE(details::logger_manager::instance().default_sink(), previous_null);
  EXPECT_NE(dynamic_cast<log_sink_null_threaded*>(details::logger_manager::instance().default_sink().get()),
            nullptr);

  set_default_log_level(log_level::info);
  install_default_log_sink(std::make_shared<log_sink_file>(dir / "defaults.log", true));
  auto after = get_logger("r.after");
  after->log(log_level::debug, "below the default level");
  after->log(log_level::info, "admitted");
  before->log(log_level::critical, "the old logger keeps its null sink");
  after->flush();
  EXPECT_TRUE(
      test::is_default_layout(test::read_file(dir / "defaults.log"), "r.after", "info", "admitted\n"));
  // make_default_logger takes the same defaults but registers nothing.
  auto loose = make_default_logger("r.loose");
  EXPECT_EQ(loose->level(), log_level::info);
  EXPECT_NE(get_logger("r.loose"), loose);
}

TEST_F(LoggerRegistry, NewestRegistrationWinsAndUnregisterForgets) {
  auto first = null_stream("r.dup");
  auto second = null_stream("r.dup");
  EXPECT_EQ(register_logger(first), first);
  EXPECT_EQ(details::logger_manager::instance().get_logger("r.dup", true), first);
  EXPECT_EQ(register_logger(second, false), second);
  EXPECT_EQ(get_logger("r.dup", false), second);
  std::weak_ptr<log_stream> watch = second;
  second.reset();
  unregister_logger("r.dup");
  EXPECT_TRUE(watch.expired());
  unregister_logger("r.never-there");
  EXPECT_NE(get_logger("r.dup"), first);  // a fresh one
}

TEST_F(LoggerRegistry, InstallingARegistryCarriesEntriesBothWays) {
  auto own_entry = register_logger(null_stream("r.carried"));
  auto external_only = null_stream("r.external");
  logger_registry external{{"r.carried", null_stream("r.carried")}, {"r.external", external_only}};
  install_logger_registry(&external);
  // Entries of the map being left overwrite same-named ones.
  EXPECT_EQ(external.at("r.carried"), own_entry);
  EXPECT_EQ(get_logger("r.external"), external_only);
  install_logger_registry(&external);  // already in use: nothing happens
  auto made_there = get_logger("r.made");
  EXPECT_EQ(external.at("r.made"), made_there);
  // Back on the own map, with the external entries copied over; the
  // external map keeps its entries.
  install_logger_registry(nullptr);
  EXPECT_EQ(get_logger("r.external"), external_only);
  EXPECT_EQ(get_logger("r.made"), made_there);
  EXPECT_EQ(external.count("r.made"), 1u);
}

}  // namespace
}  // namespace norvane
