// A scoped environment variable, and a fixture with its own configuration
// home and the identity studio/tool: relative names live in <config home>/studio.tool.
#pragma once

#include "support/log_capture.hpp"
#include "support/test_support.hpp"

#include <norvane/application.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace norvane::test {

// Sets (or, with a null value, unsets) one variable until the scope ends.
class scoped_env {
public:
  scoped_env(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;
    value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~scoped_env() { saved_ ? ::setenv(name_.c_str(), saved_->c_str(), 1) : ::unsetenv(name_.c_str()); }
  scoped_env(const scoped_env&) = delete;
  scoped_env& operator=(const scoped_env&) = delete;

private:
  std::string name_;
  std::optional<std::string> saved_;
};

class settings_fixture : public ::testing::Test {
protected:
  settings_fixture() {
    char* argv[] = {program_.data(), nullptr};  // an existing program: the application logs nothing
    app_ = std::make_unique<application_core>(1, argv);
    app_->set_organization_name("studio");
    app_->set_application_name("tool");
  }
  std::filesystem::path config_home() const { return home_ / "config"; }
  std::filesystem::path config_dir() const { return config_home() / "studio.tool"; }
  std::filesystem::path file(const std::string& name = "s.json") const { return config_dir() / name; }
  void write_settings(const std::string& text, const std::string& name = "s.json") {
    std::filesystem::create_directories(config_dir());
    write_file(file(name), text);
  }

  temp_dir home_;
  scoped_env config_env_{"XDG_CONFIG_HOME", config_home().c_str()};
  std::string program_ = "/proc/self/exe";
  std::unique_ptr<application_core> app_;
};

}  // namespace norvane::test
