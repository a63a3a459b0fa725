// norvane uuid: random identifiers, one a line: version 4, or version 7
// (time-ordered) with --v7.
#include "command.hpp"

#include <norvane/hash.hpp>

#include <iostream>

namespace norvane_tool {

int run_uuid(const invocation& call) {
  if (!call.words.empty()) {
    throw usage_error("uuid takes no arguments (use -n N for more than one)");
  }
  const long count = std::stol(call.value("count"));
  if (count < 0) {
    throw usage_error("-n needs a count of 0 or more");
  }
  const bool time_ordered = call.given("v7");
  for (long i = 0; i < count; ++i) {
    std::cout << norvane::to_string(time_ordered ? norvane::uuid::v7() : norvane::uuid()) << '\n';
  }
  return exit_ok;
}

}  // namespace norvane_tool
