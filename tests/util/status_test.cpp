#include <norvane/status.hpp>

#include <gtest/gtest.h>

#include <future>
#include <system_error>
#include <utility>

namespace {

using norvane::status;

status failed_with_contexts() {
  return status(ENOENT, std::generic_category(), {"opening settings", "at start-up"});
}

TEST(status, default_and_ok_report_success_in_the_generic_category) {
  const status st;
  EXPECT_EQ(st.value(), 0);
  EXPECT_EQ(&st.category(), &std::generic_category());
  EXPECT_TRUE(static_cast<bool>(st));
  EXPECT_TRUE(st.contextual_messages().empty());
  EXPECT_EQ(st.message(": "), std::generic_category().message(0));
  EXPECT_EQ(st.message(""), st.category_message());
  EXPECT_TRUE(st == status::ok());

  const std::error_code code = st;
  EXPECT_EQ(code.value(), 0);
  EXPECT_EQ(&code.category(), &std::generic_category());
  EXPECT_FALSE(code);  // the reverse of the status's own test
}

TEST(status, failure_converts_and_composes_its_message) {
  const status st = failed_with_contexts();
  EXPECT_FALSE(static_cast<bool>(st));
  EXPECT_EQ(st.value(), ENOENT);
  EXPECT_EQ(st.category_message(), std::generic_category().message(ENOENT));
  EXPECT_EQ(st.message(": "), std::generic_category().message(ENOENT) + ": opening settings: at start-up");
  EXPECT_EQ(st.default_error_condition(), std::errc::no_such_file_or_directory);

  const std::error_code code = st;
  EXPECT_EQ(code, std::error_code(ENOENT, std::generic_category()));
  EXPECT_EQ(code, std::errc::no_such_file_or_directory);

  const status in_system(ENOENT, std::system_category(), {});
  EXPECT_EQ(&in_system.category(), &std::system_category());
  EXPECT_EQ(in_system.default_error_condition(), std::errc::no_such_file_or_directory);
}

TEST(status, equality_is_value_and_category_address_only) {
  EXPECT_TRUE(status(0, std::generic_category(), {}) == status());
  EXPECT_TRUE(status(5, std::generic_category(), {"a"}) == status(5, std::generic_category(), {"b", "c"}));
  EXPECT_FALSE(status(5, std::generic_category(), {}) == status(5, std::system_category(), {}));
  EXPECT_FALSE(status(5, std::generic_category(), {}) == status(6, std::generic_category(), {}));
  EXPECT_TRUE(status(5, std::generic_category(), {}) != status(6, std::generic_category(), {}));
}

TEST(status, clear_returns_to_success_and_generic_category) {
  status st(EIO, std::system_category(), {"reading"});
  st.clear();
  EXPECT_TRUE(st == status::ok());
  EXPECT_TRUE(static_cast<bool>(st));
  EXPECT_EQ(&st.category(), &std::generic_category());
  EXPECT_TRUE(st.contextual_messages().empty());
}

TEST(status, copies_are_independent_values) {
  const status original = failed_with_contexts();
  status copy(original);
  EXPECT_EQ(copy.contextual_messages(), original.contextual_messages());
  copy.clear();
  EXPECT_EQ(original.value(), ENOENT);
  EXPECT_EQ(original.contextual_messages().size(), 2u);

  status target(EIO, std::system_category(), {"x", "y", "z"});
  target = original;
  EXPECT_TRUE(target == original);
  EXPECT_EQ(target.contextual_messages(), original.contextual_messages());
  EXPECT_EQ(&target.category(), &std::generic_category());

  status& alias = target;
  target = alias;  // self copy leaves it untouched
  EXPECT_EQ(target.message("|"), original.message("|"));
}

TEST(status, moves_hand_over_the_record) {
  status source = failed_with_contexts();
  status moved(std::move(source));
  EXPECT_EQ(moved.value(), ENOENT);
  EXPECT_EQ(moved.contextual_messages().size(), 2u);

  // A moved-from status can be assigned to again and is then usable.
  source = status(EPERM, std::generic_category(), {"again"});
  EXPECT_EQ(source.value(), EPERM);
  EXPECT_EQ(source.message(" - "), std::generic_category().message(EPERM) + " - again");

  status target(EIO, std::generic_category(), {"old"});
  target = std::move(moved);
  EXPECT_EQ(target.value(), ENOENT);
  EXPECT_EQ(target.contextual_messages().front(), "opening settings");

  // Moving into itself empties it by design; assigning afterwards revives it.
  status& alias = target;
  target = std::move(alias);
  target = status::ok();
  EXPECT_TRUE(static_cast<bool>(target));
}

TEST(status, is_one_pointer_wide) { EXPECT_EQ(sizeof(status), sizeof(void*)); }

}  // namespace
