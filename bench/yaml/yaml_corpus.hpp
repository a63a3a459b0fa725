// Generated YAML documents of the shape services configuration takes:
// nested maps and sequences, numbers, booleans, quoted strings with
// escapes, folded and literal block scalars. Deterministic for a size.
#pragma once

#include <cstddef>
#include <string>

namespace norvane::bench {

inline std::string generate_yaml_document(std::size_t target_bytes) {
  static const char* const tiers[] = {"frontend", "backend", "batch", "storage"};
  static const char* const levels[] = {"debug", "info", "warning", "error"};
  std::string out;
  out.reserve(target_bytes + 2048);
  out +=
      "# Generated service catalogue\nversion: 3\ndefaults: &defaults\n  restart: always\n  timeout: 30s\n";
  out += "services:\n";
  for (std::size_t i = 0; out.size() < target_bytes; ++i) {
    const std::string id = std::to_string(i);
    out += "  svc-" + id + ":\n";
    out += "    image: \"registry.example.com/team-" + std::to_string(i % 17) + "/svc-" + id + ":1." +
           std::to_string(i % 9) + "." + std::to_string(i % 23) + "\"\n";
    out += "    replicas: " + std::to_string(1 + i % 5) + "\n";
    out += "    cpu: " + std::to_string(i % 4) + "." + std::to_string(25 * (i % 4)) + "\n";
    out += "    enabled: " + std::string(i % 3 ? "true" : "false") + "\n";
    out += "    ports: [" + std::to_string(8000 + i % 1000) + ", " + std::to_string(9000 + i % 1000) + "]\n";
    out += "    env:\n";
    out += "      - name: LOG_LEVEL\n        value: " + std::string(levels[i % 4]) + "\n";
    out += "      - name: TIMEOUT_MS\n        value: \"" + std::to_string(100 * (i % 50)) + "\"\n";
    out += "    labels: {tier: " + std::string(tiers[i % 4]) + ", owner: 'team-" + std::to_string(i % 17) +
           "', cost-centre: " + std::to_string(1000 + i % 97) + "}\n";
    if (i % 2 == 0) {
      out += "    description: >\n      Handles the requests of tenant " + id +
             " and forwards\n      them to the storage tier after validation.\n";
    } else {
      out += "    script: |\n      #!/bin/sh\n      exec /app/svc --id " + id + " --verbose\n";
    }
    out += "    note: \"quoted \\\"text\\\" with a\\ttab and caf\\u00e9\"\n";
    out += "    owner: null\n";
  }
  return out;
}

}  // namespace norvane::bench
