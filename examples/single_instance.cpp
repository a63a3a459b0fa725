// An application that runs for hours: one instance at a time (a second one
// is refused and told who holds the lock), its document saved whole or not
// at all, and its log rotated under the application's state directory.
#include <norvane/application.hpp>
#include <norvane/io.hpp>
#include <norvane/log.hpp>
#include <norvane/standard_paths.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace fs = std::filesystem;
using norvane::standard_paths;

int main(int argc, char** argv) {
  norvane::application_core app(argc, argv);
  app.set_organization_name("example");
  app.set_application_name("notes");

  // The runtime directory is per user and emptied at logout: the place for
  // locks. The lock dies with this process, however it ends.
  const fs::path runtime = standard_paths::writable_location(standard_paths::location::runtime);
  fs::create_directories(runtime);
  norvane::lock_file instance(runtime / "example.notes.lock");
  if (!instance.try_lock()) {
    const auto holder = instance.holder();
    std::fprintf(stderr, "already running as process %lld on %s\n", holder.pid, holder.host_name.c_str());
    return 1;
  }
  // What a second instance sees while this one runs.
  norvane::lock_file second(runtime / "example.notes.lock");
  if (second.try_lock()) {
    return 1;
  }
  std::printf("a second instance is refused while this one runs\n");

  // Logs belong in the state directory; 1 MiB a file, three older files kept.
  const fs::path state = standard_paths::writable_location(standard_paths::location::app_state);
  fs::create_directories(state);
  auto sink = std::make_shared<norvane::log_sink_rotating_file_threaded>(state / "notes.log", 1 << 20, 3);
  auto log = norvane::register_logger(std::make_shared<norvane::log_stream>("notes", sink));
  log->set_level(norvane::log_level::info);
  log->log(norvane::log_level::info, "started, lock held by process {}", instance.holder().pid);

  // The document is replaced whole: a crash at any moment leaves the old
  // file or the new one, never half of each.
  const fs::path data = standard_paths::writable_location(standard_paths::location::app_data);
  fs::create_directories(data);
  const std::string text = "first note\nsecond note\n";
  norvane::io_save_file save;
  save.open(data / "notes.txt");
  save.write(text.data(), static_cast<long>(text.size()));
  if (!save.commit()) {
    log->log(norvane::log_level::error, "could not save the notes");
    return 1;
  }
  log->log(norvane::log_level::info, "saved {} bytes", text.size());
  std::printf("saved %zu bytes to %s\n", text.size(), (data / "notes.txt").c_str());
  norvane::unregister_logger("notes");
}
