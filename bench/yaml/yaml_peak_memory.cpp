// Peak memory of read_yaml on the generated 20 MB document, as a multiple
// of the input size. The document is written to a file and read back by a
// fresh copy of this program, so that generating it does not count.
#include <norvane/yaml.hpp>

#include "yaml_corpus.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

long peak_rss_kib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

long current_rss_kib() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) {
      return std::strtol(line.c_str() + 6, nullptr, 10);
    }
  }
  return 0;
}

int measure(const char* path) {
  std::string text;
  {
    std::ifstream in(path, std::ios::binary);
    text.resize(static_cast<std::size_t>(std::filesystem::file_size(path)));
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
  }
  const long before = current_rss_kib();
  const long peak_before = peak_rss_kib();
  std::vector<std::string> errors;
  {
    auto doc = norvane::yaml::read_yaml(text, errors);
    if (!errors.empty() || !doc.is_valid()) {
      std::fprintf(stderr, "read failed: %s\n", errors.empty() ? "?" : errors.front().c_str());
      return 1;
    }
  }
  const long peak = peak_rss_kib();
  const double input_mib = static_cast<double>(text.size()) / (1 << 20);
  const double used_mib = static_cast<double>(peak - before) / 1024;
  std::printf(
      "input %.1f MiB; resident before %.1f MiB (peak so far %.1f MiB); peak during read_yaml %.1f MiB\n",
      input_mib, before / 1024.0, peak_before / 1024.0, peak / 1024.0);
  std::printf("read_yaml peak memory: %.1f MiB = %.2f x input\n", used_mib, used_mib / input_mib);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--measure") {
    return measure(argv[2]);
  }
  const std::filesystem::path file = std::filesystem::temp_directory_path() / "norvane_yaml_peak_memory.yaml";
  {
    std::ofstream out(file, std::ios::binary);
    out << norvane::bench::generate_yaml_document(20u << 20);
  }
  const std::string command = std::string("\"") + argv[0] + "\" --measure \"" + file.string() + "\"";
  const int status = std::system(command.c_str());
  std::filesystem::remove(file);
  return status == 0 ? 0 : 1;
}
