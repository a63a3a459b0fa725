// sync() against the raw nlohmann steps it takes: parse the file, lay the
// dictionary over it, write it back. A 1 MB document of 10,000 keys over a
// file of the same size.
#include <norvane/settings.hpp>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

nlohmann::json document() {
  nlohmann::json j = nlohmann::json::object();
  for (int i = 0; i < 10'000; ++i) {
    j["key_" + std::to_string(i)] = std::string(85, static_cast<char>('a' + i % 26));
  }
  return j;
}

// A private directory, so the benchmark never touches the user's settings.
fs::path bench_file(const char* name) {
  static const fs::path dir = [] {
    std::string pattern = (fs::temp_directory_path() / "settings_bench_XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      std::abort();
    }
    return fs::path(pattern);
  }();
  return dir / name;
}

void write(const fs::path& path, const nlohmann::json& j) {
  std::ofstream out(path);
  out << j;
}

void sync_norvane(benchmark::State& state) {
  const auto path = bench_file("norvane.json");
  write(path, document());
  norvane::settings store(path.string());
  store.dictionary() = document();
  for (auto _ : state) {
    store.set_modified();
    store.sync();
  }
  state.counters["file_bytes"] = static_cast<double>(fs::file_size(path));
}

void sync_raw(benchmark::State& state) {
  const auto path = bench_file("raw.json");
  write(path, document());
  auto dictionary = document();
  for (auto _ : state) {
    nlohmann::json on_disk;
    {
      std::ifstream in(path);
      in >> on_disk;
    }
    on_disk.update(dictionary.cbegin(), dictionary.cend(), false);
    dictionary.swap(on_disk);
    std::ofstream out(path);
    out << dictionary;
  }
  state.counters["file_bytes"] = static_cast<double>(fs::file_size(path));
}

}  // namespace

BENCHMARK(sync_raw)->Name("sync_1MB_10k_keys/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(sync_norvane)->Name("sync_1MB_10k_keys/norvane")->Unit(benchmark::kMillisecond);
