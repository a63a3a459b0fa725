// Where an application keeps its files, and its JSON settings store.
#include <norvane/application.hpp>
#include <norvane/settings.hpp>
#include <norvane/standard_paths.hpp>

#include <cstdio>

int main(int argc, char** argv) {
  norvane::application_core app(argc, argv);
  app.set_organization_name("example");
  app.set_application_name("counter");

  using where = norvane::standard_paths::location;
  std::printf("config: %s\n", norvane::standard_paths::writable_location(where::app_config).c_str());
  std::printf("data:   %s\n", norvane::standard_paths::writable_location(where::app_data).c_str());

  // ~/.config/example.counter/settings.json; values travel as JSON text.
  norvane::settings store("settings.json");
  const auto runs = store.get("runs");
  const long next = runs.empty() ? 1 : std::stol(runs) + 1;
  store.set("runs", std::to_string(next));
  store.sync();  // or let the destructor write it
  std::printf("run number %ld\n", next);
  return store.modified() ? 1 : 0;
}
