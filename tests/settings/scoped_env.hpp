// Sets or unsets one environment variable for a scope.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace norvane::test {

class scoped_env {
public:
  // A null value unsets the variable.
  scoped_env(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) {
      saved_ = old;
    }
    if (value != nullptr) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~scoped_env() {
    if (saved_) {
      ::setenv(name_.c_str(), saved_->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  scoped_env(const scoped_env&) = delete;
  scoped_env& operator=(const scoped_env&) = delete;

private:
  std::string name_;
  std::optional<std::string> saved_;
};

}  // namespace norvane::test
