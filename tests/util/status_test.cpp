// A status: success or an error code with context lines, as a value.
#include <norvane/status.hpp>

#include <gtest/gtest.h>

namespace {

using norvane::status;

TEST(Status, ComparesByCodeAndKeepsItsContextThroughCopiesAndMoves) {
  EXPECT_TRUE(static_cast<bool>(status()) && status().message(": ") == std::generic_category().message(0));
  const status failed(ENOENT, std::system_category(), {"opening settings", "at start-up"});
  EXPECT_FALSE(static_cast<bool>(failed));
  EXPECT_EQ(failed.message(": "), failed.category_message() + ": opening settings: at start-up");
  EXPECT_EQ(failed.default_error_condition(), std::errc::no_such_file_or_directory);
  EXPECT_EQ(std::error_code(failed), std::error_code(ENOENT, std::system_category()));
  // Equal when value and category are; the context lines do not count.
  EXPECT_TRUE(status(5, std::generic_category(), {"a"}) == status(5, std::generic_category(), {"b", "c"}));
  EXPECT_FALSE(status(5, std::generic_category(), {}) == status(5, std::system_category(), {}));
  EXPECT_TRUE(status(5, std::generic_category(), {}) != status(6, std::generic_category(), {}));
  status copy(failed);
  copy.clear();
  EXPECT_TRUE(copy == status::ok() && copy.contextual_messages().empty() &&
              failed.contextual_messages().size() == 2);
  status target(EIO, std::generic_category(), {"x", "y", "z"});
  target = failed;
  status& alias = target;
  target = alias;
  EXPECT_TRUE(&target.category() == &std::system_category() && target.message("|") == failed.message("|"));
  status moved(std::move(target));
  target = status(EPERM, std::generic_category(), {"again"});  // a moved-from status can be assigned to
  EXPECT_EQ(target.message(" - "), std::generic_category().message(EPERM) + " - again");
  target = std::move(moved);
  EXPECT_EQ(target.message("|"), failed.message("|"));
}

}  // namespace
