// norvane info: the library's build, the host, and where this program may write.
#include "command.hpp"

#include <norvane/application.hpp>
#include <norvane/standard_paths.hpp>
#include <norvane/system_info.hpp>

#include <nlohmann/json.hpp>

#include <iostream>
#include <thread>
#include <utility>

namespace norvane_tool {
namespace {

using location = norvane::standard_paths::location;

const std::pair<const char*, location> locations[] = {
    {"app_config", location::app_config},
    {"app_data", location::app_data},
    {"org_config", location::org_config},
    {"org_data", location::org_data},
    {"home", location::home},
    {"generic_data", location::generic_data},
    {"temp", location::temp},
    {"app_cache", location::app_cache},
    {"app_state", location::app_state},
    {"runtime", location::runtime},
};

nlohmann::ordered_json describe() {
  nlohmann::ordered_json info;
  info["library_version"] = NORVANE_TOOL_VERSION;
  info["platform"] = norvane::application_core::platform();
  auto& cpus = info["cpus"] = nlohmann::ordered_json::array();
  int physical = 0;
  for (const auto& cpu : norvane::system_info::all_cpus()) {
    cpus.push_back({{"id", cpu.id()},
                    {"model", cpu.model_name()},
                    {"physical_cores", cpu.num_physical_cores()},
                    {"frequency_mhz", cpu.regular_frequency_mhz()}});
    physical += cpu.num_physical_cores() > 0 ? cpu.num_physical_cores() : 0;
  }
  info["physical_cores"] = physical;
  info["logical_cores"] = std::thread::hardware_concurrency();
  // What this process may use: its affinity mask and cgroup CPU quota.
  info["usable_cores"] = norvane::system_info::usable_cores();
  const auto os = norvane::system_info::os();
  info["os"] = {{"type", os.type()}, {"version", os.version()}};
  const auto ram = norvane::system_info::ram();
  info["memory_mib"] = ram.total_MiB();
  info["memory_limit_mib"] = ram.limit_MiB();
  info["memory_available_mib"] = ram.available_MiB();
  auto& paths = info["locations"] = nlohmann::ordered_json::object();
  for (const auto& [name, where] : locations) {
    paths[name] = norvane::standard_paths::writable_location(where);
  }
  info["image"] = norvane::module_path();
  return info;
}

void print_text(const nlohmann::ordered_json& info) {
  std::cout << "norvane_core " << info["library_version"].get<std::string>() << " ("
            << info["platform"].get<std::string>() << ")\n";
  for (const auto& cpu : info["cpus"]) {
    std::cout << "cpu " << cpu["id"] << ": " << cpu["model"].get<std::string>() << ", "
              << cpu["physical_cores"] << " physical cores";
    if (cpu["frequency_mhz"].get<long long>() > 0) {
      std::cout << ", " << cpu["frequency_mhz"] << " MHz";
    }
    std::cout << '\n';
  }
  std::cout << "cores: " << info["physical_cores"] << " physical, " << info["logical_cores"] << " logical, "
            << info["usable_cores"] << " usable\n";
  std::cout << "os: " << info["os"]["type"].get<std::string>() << ' '
            << info["os"]["version"].get<std::string>() << '\n';
  const auto mib = [](const nlohmann::ordered_json& value) {
    const double figure = value.get<double>();
    return figure < 0 ? std::string("unknown") : std::to_string(static_cast<long long>(figure)) + " MiB";
  };
  std::cout << "memory: " << mib(info["memory_mib"]) << ", limit " << mib(info["memory_limit_mib"])
            << ", available " << mib(info["memory_available_mib"]) << '\n';
  for (const auto& [name, path] : info["locations"].items()) {
    std::cout << name << ": " << path.get<std::string>() << '\n';
  }
  std::cout << "image: " << info["image"].get<std::string>() << '\n';
}

}  // namespace

int run_info(const invocation& call) {
  if (!call.words.empty()) {
    throw usage_error("info takes no arguments");
  }
  const auto info = describe();
  if (call.given("json")) {
    std::cout << info.dump(2) << '\n';
  } else {
    print_text(info);
  }
  return exit_ok;
}

}  // namespace norvane_tool
