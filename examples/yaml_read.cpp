// Reading a YAML document, with typed access and positioned errors.
#include <norvane/yaml.hpp>

#include <cstdio>
#include <string>
#include <vector>

int main() {
  std::vector<std::string> errors;
  auto doc = norvane::yaml::read_yaml("server:\n  port: 8080\n  hosts: [alpha, beta]\n", errors);
  const int port = doc["server"]["port"].value_or(80);
  const auto timeout = doc["server"]["timeout"].get<int>();  // absent: empty optional
  std::printf("port %d, %zu hosts, first %s, timeout %s\n", port, doc["server"]["hosts"].size(),
              doc["server"]["hosts"][0].as<std::string>().c_str(), timeout ? "set" : "unset");

  auto bad = norvane::yaml::read_yaml("key: [unclosed\n", errors);
  if (!bad.is_valid()) {
    std::printf("error: %s\n", errors.back().c_str());  // "file:LINE:COL (OFFSETB): message"
  }
  return 0;
}
