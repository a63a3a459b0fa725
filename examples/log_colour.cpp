// Logging to a coloured standard output: install a default sink and level,
// then fetch named loggers anywhere in the program.
#include <norvane/log.hpp>

int main() {
  norvane::install_default_log_sink(std::make_shared<norvane::log_sink_stdout_colour_threaded>());
  norvane::set_default_log_level(norvane::log_level::info);

  auto log = norvane::get_logger("example");
  log->log(norvane::log_level::debug, "not shown: below the default level");
  log->log(norvane::log_level::info, "norvane_core is up, {} + {} = {}", 2, 2, 4);
  log->log(norvane::log_level::warning, "this is a {}", "warning");
  log->log(norvane::log_level::error, "and this an error");
  return 0;
}
