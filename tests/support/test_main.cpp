// Every test binary runs with HOME and the XDG base directories pointing
// into a private temporary directory, so no test can touch the real user's
// files.
#include "support/test_support.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
  norvane::test::temp_dir home;
  ::setenv("HOME", home.path().c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
  ::setenv("XDG_CACHE_HOME", (home / ".cache").c_str(), 1);
  ::setenv("XDG_STATE_HOME", (home / ".local/state").c_str(), 1);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
