// norvane: a command-line window on what the library knows and does.
#include "command.hpp"

#include <norvane/application.hpp>
#include <norvane/log.hpp>

#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <string>

namespace {

using namespace norvane_tool;

norvane::log_level level_named(const std::string& name) {
  static const std::map<std::string, norvane::log_level> levels = {
      {"trace", norvane::log_level::trace}, {"debug", norvane::log_level::debug},
      {"info", norvane::log_level::info},   {"warning", norvane::log_level::warning},
      {"error", norvane::log_level::error}, {"critical", norvane::log_level::critical},
      {"off", norvane::log_level::off}};
  const auto found = levels.find(name);
  if (found == levels.end()) {
    throw usage_error("unknown log level '" + name + "'");
  }
  return found->second;
}

// The library logs through its own stream; it and every named logger made
// afterwards write to the chosen sink at the chosen level.
void set_up_logging(const norvane::cmdline_parser& options) {
  const auto level = level_named(options.value("log-level"));
  const auto file = options.value("log-file");
  std::shared_ptr<norvane::log_sink> sink;
  if (file.empty()) {
    // Standard output carries the program's results.
    sink = std::make_shared<norvane::log_sink_stderr_colour>();
  } else {
    try {
      sink = std::make_shared<norvane::log_sink_file>(file, false);
    } catch (const std::exception& e) {
      // The sink's text ends in the system's reason ("...: Permission denied").
      const std::string what = e.what();
      const auto reason = what.rfind(": ");
      throw usage_error("cannot open log file '" + file + "'" +
                        (reason == std::string::npos ? std::string() : what.substr(reason)));
    }
  }
  norvane::install_default_log_sink(sink);
  norvane::set_default_log_level(level);
  auto stream = std::make_shared<norvane::log_stream>("norvane", sink);
  stream->set_level(level);
  set_norvane_logger(stream);
}

int dispatch(norvane::application_core& app) {
  norvane::cmdline_parser options("norvane", "");
  declare_options(options);
  auto words = positional_words(app.arguments());
  // A malformed value ("-n many") is reported by the parser through the
  // library logger, which is only set up after parsing: say it here too.
  if (!options.parse(app.arguments())) {
    throw usage_error("malformed command line (see --help)");
  }
  const std::string command = words.empty() ? std::string() : words.front();
  if (options.count("help") > 0) {
    std::cout << help_text(command);
    return exit_ok;
  }
  if (options.count("version") > 0) {
    std::cout << "norvane " << NORVANE_TOOL_VERSION << '\n';
    return exit_ok;
  }
  set_up_logging(options);
  if (words.empty()) {
    throw usage_error("no command given (see --help)");
  }
  const auto* row = find_command(command);
  if (row == nullptr) {
    throw usage_error("unknown command '" + command + "' (see --help)");
  }
  words.erase(words.begin());
  const invocation call{options, std::move(words)};
  check_options(call, command);
  return row->run(call);
}

}  // namespace

int main(int argc, char** argv) {
  norvane::application_core app(argc, argv);
  app.set_organization_name("norvane");
  app.set_application_name("norvane");
  app.set_application_version(NORVANE_TOOL_VERSION);
  try {
    return dispatch(app);
  } catch (const usage_error& e) {
    report(e.what());
    return exit_usage;
  } catch (const std::exception& e) {
    report(e.what());
    return exit_failure;
  }
}
