// Uses the installed library the way an application does; exits 0 when the
// calls behave.
#include <norvane/norvane.hpp>

#include <cstdio>

int main() {
  norvane::install_default_log_sink(std::make_shared<norvane::log_sink_stdout_colour_threaded>());
  norvane::set_default_log_level(norvane::log_level::info);
  auto logger = norvane::get_logger("consumer");
  logger->log(norvane::log_level::info, "linked against norvane_core {}", "0.19");
  if (logger->level() != norvane::log_level::info || norvane::get_logger("consumer") != logger) {
    std::puts("unexpected logger state");
    return 1;
  }
  return 0;
}
