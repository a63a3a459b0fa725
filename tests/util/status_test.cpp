// A status: success or an error code with context lines, as a value.
#include <norvane/status.hpp>

#include <gtest/gtest.h>

#include <system_error>
#include <utility>

namespace {

using norvane::status;

TEST(Status, SuccessAndFailureConvertAndCompose) {
  const status ok;
  EXPECT_TRUE(static_cast<bool>(ok));
  EXPECT_EQ(&ok.category(), &std::generic_category());
  EXPECT_EQ(ok.message(": "), std::generic_category().message(0));
  EXPECT_FALSE(std::error_code(ok));

  const status failed(ENOENT, std::system_category(), {"opening settings", "at start-up"});
  EXPECT_FALSE(static_cast<bool>(failed));
  EXPECT_EQ(failed.message(": "), failed.category_message() + ": opening settings: at start-up");
  EXPECT_EQ(failed.default_error_condition(), std::errc::no_such_file_or_directory);
  EXPECT_EQ(std::error_code(failed), std::error_code(ENOENT, std::system_category()));

  // Equal when value and category are; the context lines do not count.
  EXPECT_TRUE(status(5, std::generic_category(), {"a"}) == status(5, std::generic_category(), {"b", "c"}));
  EXPECT_FALSE(status(5, std::generic_category(), {}) == status(5, std::system_category(), {}));
  EXPECT_TRUE(status(5, std::generic_category(), {}) != status(6, std::generic_category(), {}));
  EXPECT_TRUE(status(0, std::generic_category(), {}) == status::ok());
}

TEST(Status, CopiesMovesAndClearAreIndependentValues) {
  const status original(ENOENT, std::system_category(), {"opening settings", "at start-up"});
  status copy(original);
  copy.clear();
  EXPECT_TRUE(copy == status::ok());
  EXPECT_TRUE(copy.contextual_messages().empty());
  EXPECT_EQ(original.contextual_messages().size(), 2u);

  status target(EIO, std::generic_category(), {"x", "y", "z"});
  target = original;
  status& alias = target;
  target = alias;
  EXPECT_EQ(&target.category(), &std::system_category());
  EXPECT_EQ(target.message("|"), original.message("|"));

  status moved(std::move(target));
  EXPECT_EQ(moved.message("|"), original.message("|"));
  // A moved-from status can be assigned to again.
  target = status(EPERM, std::generic_category(), {"again"});
  EXPECT_EQ(target.message(" - "), std::generic_category().message(EPERM) + " - again");
  target = std::move(moved);
  EXPECT_EQ(target.value(), ENOENT);
}

}  // namespace
