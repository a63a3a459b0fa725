// HOME and the XDG base directories point into a private temporary
// directory, so no test can touch the real user's files.
#include "support/test_support.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
  norvane::test::temp_dir home;
  ::setenv("HOME", home.path().c_str(), 1);
  for (const auto& [name, sub] : {std::pair{"XDG_CONFIG_HOME", ".config"},
                                  {"XDG_DATA_HOME", ".local/share"},
                                  {"XDG_CACHE_HOME", ".cache"},
                                  {"XDG_STATE_HOME", ".local/state"}}) {
    ::setenv(name, (home / sub).c_str(), 1);
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
