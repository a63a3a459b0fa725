// Reading the YAML documents the tests are built on.
#pragma once

#include <norvane/yaml.hpp>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace norvane::test {

// The root of `text`, which must read without an error.
inline yaml::ryml_wrapper read_ok(std::string_view text) {
  std::vector<std::string> errors;
  yaml::ryml_wrapper h = yaml::read_yaml(text, errors);
  EXPECT_TRUE(errors.empty()) << errors.front();
  return h;
}

}  // namespace norvane::test
