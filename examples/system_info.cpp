// What the library can tell about the host.
#include <norvane/application.hpp>
#include <norvane/system_info.hpp>

#include <cstdio>

int main() {
  std::printf("platform %s\n", norvane::application_core::platform().c_str());
  for (const auto& cpu : norvane::system_info::all_cpus()) {
    std::printf("CPU %d: %s, %d cores\n", cpu.id(), cpu.model_name().c_str(), cpu.num_physical_cores());
  }
  const auto os = norvane::system_info::os();
  std::printf("%s %s, %.0f MiB\n", os.type().c_str(), os.version().c_str(),
              norvane::system_info::ram().total_MiB());
  return 0;
}
