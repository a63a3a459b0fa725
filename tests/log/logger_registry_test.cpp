#include "log/log_test_util.hpp"
#include "support/test_support.hpp"

#include <norvane/log.hpp>

#include <gtest/gtest.h>

namespace norvane {
namespace {

using test::lines_of;
using test::read_file;

// The registry is process-wide: every test starts from the unconfigured
// state and leaves it so.
class LoggerRegistry : public ::testing::Test {
protected:
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }
  static void reset() {
    install_logger_registry(nullptr);
    install_default_log_sink(nullptr);
    set_default_log_level(log_level::off);
  }
};

TEST_F(LoggerRegistry, UnconfiguredLoggersAreSilentAndReused) {
  test::stdout_capture out;
  auto first = get_logger("registry.unconfigured");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->name(), "registry.unconfigured");
  EXPECT_EQ(first->level(), log_level::off);
  first->log(log_level::critical, "silent");
  EXPECT_EQ(get_logger("registry.unconfigured"), first);
  EXPECT_EQ(out.text(), "");
  unregister_logger("registry.unconfigured");
}

TEST_F(LoggerRegistry, DefaultsApplyToLoggersMadeAfterThem) {
  test::temp_dir dir;
  auto before = get_logger("registry.before");
  auto sink = std::make_shared<log_sink_file>(dir / "defaults.log", true);
  set_default_log_level(log_level::info);
  install_default_log_sink(sink);
  auto& manager = details::logger_manager::instance();
  EXPECT_EQ(manager.default_sink(), sink);
  EXPECT_EQ(manager.default_level(), log_level::info);

  auto after = get_logger("registry.after");
  EXPECT_EQ(after->level(), log_level::info);
  after->log(log_level::debug, "below the default level");
  after->log(log_level::info, "admitted");
  before->log(log_level::critical, "the old logger keeps its null sink");
  after->flush();
  const auto lines = lines_of(read_file(dir / "defaults.log"));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(test::is_default_layout(lines[0], "registry.after", "info", "admitted"));
  EXPECT_EQ(before->level(), log_level::off);

  // make_default_logger uses the same defaults but registers nothing.
  auto loose = make_default_logger("registry.loose");
  EXPECT_EQ(loose->level(), log_level::info);
  EXPECT_NE(get_logger("registry.loose"), loose);

  for (const char* name : {"registry.before", "registry.after", "registry.loose"}) {
    unregister_logger(name);
  }
}

TEST_F(LoggerRegistry, NullDefaultSinkBecomesAFreshNullSink) {
  auto& manager = details::logger_manager::instance();
  auto previous = manager.default_sink();
  install_default_log_sink(nullptr);
  auto now = manager.default_sink();
  ASSERT_NE(now, nullptr);
  EXPECT_NE(now, previous);
  EXPECT_NE(dynamic_cast<log_sink_null_threaded*>(now.get()), nullptr);
}

TEST_F(LoggerRegistry, NewestRegistrationWinsAndUnregisterForgets) {
  auto first = std::make_shared<log_stream>("registry.dup", std::make_shared<log_sink_null>());
  auto second = std::make_shared<log_stream>("registry.dup", std::make_shared<log_sink_null>());
  EXPECT_EQ(register_logger(first), first);
  EXPECT_EQ(get_logger("registry.dup"), first);
  EXPECT_EQ(register_logger(second, false), second);
  EXPECT_EQ(get_logger("registry.dup", false), second);

  std::weak_ptr<log_stream> watch = second;
  second.reset();
  unregister_logger("registry.dup");
  EXPECT_TRUE(watch.expired());
  unregister_logger("registry.never-there");
  // A fresh one is made on the next lookup.
  EXPECT_NE(get_logger("registry.dup"), first);
  unregister_logger("registry.dup");
}

TEST_F(LoggerRegistry, InstallingARegistryCarriesEntriesBothWays) {
  auto own_entry =
      register_logger(std::make_shared<log_stream>("registry.carried", std::make_shared<log_sink_null>()));
  auto stale = std::make_shared<log_stream>("registry.carried", std::make_shared<log_sink_null>());
  auto external_only = std::make_shared<log_stream>("registry.external", std::make_shared<log_sink_null>());

  logger_registry external{{"registry.carried", stale}, {"registry.external", external_only}};
  install_logger_registry(&external);
  // Entries of the map being left overwrite same-named ones.
  EXPECT_EQ(external.at("registry.carried"), own_entry);
  EXPECT_EQ(get_logger("registry.external"), external_only);
  install_logger_registry(&external);  // no-op: already in use
  EXPECT_EQ(external.size(), 2u + (external.count("norvane") ? 1u : 0u));

  auto made_there = get_logger("registry.made-there");
  EXPECT_EQ(external.at("registry.made-there"), made_there);

  install_logger_registry(nullptr);
  // Back on the own map, with the external entries copied over; the external
  // map keeps its entries.
  EXPECT_EQ(get_logger("registry.external"), external_only);
  EXPECT_EQ(get_logger("registry.made-there"), made_there);
  EXPECT_EQ(external.count("registry.made-there"), 1u);
  install_logger_registry(nullptr);  // no-op: already on the own map

  for (const char* name : {"registry.carried", "registry.external", "registry.made-there"}) {
    unregister_logger(name);
  }
}

TEST_F(LoggerRegistry, FreeFunctionsReachTheSameManager) {
  auto& manager = details::logger_manager::instance();
  auto stream = std::make_shared<log_stream>("registry.same", std::make_shared<log_sink_null>());
  register_logger(stream);
  EXPECT_EQ(manager.get_logger("registry.same", true), stream);
  manager.unregister_logger("registry.same", true);
  EXPECT_NE(get_logger("registry.same"), stream);
  unregister_logger("registry.same");
}

}  // namespace
}  // namespace norvane
