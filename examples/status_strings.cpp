// Status values that collect context on the way up, and the string helpers.
#include <norvane/status.hpp>
#include <norvane/strings.hpp>

#include <cerrno>
#include <cstdio>
#include <string>

norvane::status load(const std::string& path) {
  if (path.empty()) {
    return norvane::status(ENOENT, std::generic_category(), {"opening '" + path + "'"});
  }
  return norvane::status::ok();
}

int main() {
  if (auto st = load(""); !st) {
    std::printf("failed: %s\n", st.message(": ").c_str());  // "No such file or directory: opening ''"
  }

  for (auto field : norvane::split("alpha,,beta,gamma", ",")) {  // empty pieces are dropped
    std::printf("field: %.*s\n", static_cast<int>(field.size()), field.data());
  }

  long long number = 0;
  if (norvane::parse_numeric(&number, "42")) {
    std::printf("number: %lld\n", number);
  }

  std::string text, error;
  if (!norvane::unescape(&text, R"(bad \q escape)", &error)) {
    std::printf("unescape: %s\n", error.c_str());
  }
  return 0;
}
