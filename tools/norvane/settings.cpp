// norvane settings: the program's own store under its configuration location.
#include "command.hpp"

#include <norvane/settings.hpp>

#include <iostream>

namespace norvane_tool {
namespace {

void expect_words(const invocation& call, std::size_t count, const char* usage) {
  if (call.words.size() != count) {
    throw usage_error(std::string("usage: norvane settings ") + usage);
  }
}

// Writes now rather than at destruction, where a failure could not change
// the exit code.
int write_back(norvane::settings& store) {
  store.sync();
  if (store.modified()) {
    report("could not write the settings file (--log-level error tells why)");
    return exit_failure;
  }
  return exit_ok;
}

}  // namespace

int run_settings(const invocation& call) {
  if (call.words.empty()) {
    throw usage_error("settings needs list, get KEY, set KEY JSON or remove KEY");
  }
  const auto& action = call.words[0];
  if (action != "list" && action != "get" && action != "set" && action != "remove") {
    throw usage_error("unknown settings command '" + action + "'");
  }
  norvane::settings store(call.value("file"));
  if (action == "list") {
    expect_words(call, 1, "list");
    for (const auto& key : store.keys()) {
      std::cout << key << '=' << store.get(key) << '\n';
    }
    return exit_ok;
  }
  const auto& key = call.words.size() > 1 ? call.words[1] : std::string();
  if (action == "get") {
    expect_words(call, 2, "get KEY");
    const auto value = store.get(key);
    if (value.empty()) {
      report("no setting '" + key + "'");
      return exit_failure;
    }
    std::cout << value << '\n';
    return exit_ok;
  }
  if (action == "set") {
    expect_words(call, 3, "set KEY JSON");
    if (!store.set(key, call.words[2])) {
      report("'" + call.words[2] + "' is not a JSON value");
      return exit_failure;
    }
    return write_back(store);
  }
  expect_words(call, 2, "remove KEY");
  if (!store.remove(key)) {
    report("no setting '" + key + "'");
    return exit_failure;
  }
  return write_back(store);
}

}  // namespace norvane_tool
