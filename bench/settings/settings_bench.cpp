// sync() against the steps it takes, on a 1 MB document of 10,000 keys over
// a file of the same size:
// - sync_1MB_10k_keys: our sync (locked, fsynced) against the raw nlohmann
//   steps writing the file in place;
// - locked_fsync_vs_unlocked: our sync against the store's previous path
//   (new file beside, rename; no lock, no fsync);
// - save_1MB_fsync_vs_none: io_save_file's write, fsync, rename and
//   directory fsync against the same write and rename without the fsyncs:
//   the price of durability;
// - lock_share_of_sync_1MB: taking and releasing the lock file against a
//   whole sync: the lock's share of it.
#include <norvane/io.hpp>
#include <norvane/settings.hpp>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
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

// Write beside, rename over: the store's replacement before it locked and
// flushed.
void replace_unflushed(const fs::path& path, const std::string& text) {
  const auto temporary = path.string() + ".tmp";
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      ::close(fd) != 0 || ::rename(temporary.c_str(), path.c_str()) != 0) {
    std::abort();
  }
}

// What a sync does without the library: read the file, lay the dictionary
// over it at the top level, keep the result.
void merge_from_disk(const fs::path& path, nlohmann::json& dictionary) {
  nlohmann::json on_disk;
  {
    std::ifstream in(path);
    in >> on_disk;
  }
  on_disk.update(dictionary.cbegin(), dictionary.cend(), false);
  dictionary.swap(on_disk);
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
  if (store.modified()) {
    state.SkipWithError("sync failed");
  }
  state.counters["file_bytes"] = static_cast<double>(fs::file_size(path));
}

void write_stream(const fs::path& path, const nlohmann::json& dictionary) {
  std::ofstream out(path);
  out << dictionary;
}

void write_beside(const fs::path& path, const nlohmann::json& dictionary) {
  replace_unflushed(path, dictionary.dump());
}

// A sync as a program without the library writes it: over the file through
// a stream, or beside it and renamed over it, neither locked nor flushed.
void sync_plain(benchmark::State& state, const char* name,
                void (*store)(const fs::path&, const nlohmann::json&)) {
  const auto path = bench_file(name);
  write(path, document());
  auto dictionary = document();
  for (auto _ : state) {
    merge_from_disk(path, dictionary);
    store(path, dictionary);
  }
  state.counters["file_bytes"] = static_cast<double>(fs::file_size(path));
}

void save_norvane(benchmark::State& state) {
  const auto path = bench_file("save.json");
  const auto text = document().dump();
  for (auto _ : state) {
    norvane::io_save_file file;
    file.open(path);
    file.write(text.data(), static_cast<long>(text.size()));
    if (!file.commit()) {
      state.SkipWithError("commit failed");
    }
  }
}

void save_unflushed(benchmark::State& state) {
  const auto path = bench_file("save_raw.json");
  const auto text = document().dump();
  for (auto _ : state) {
    replace_unflushed(path, text);
  }
}

void lock_alone(benchmark::State& state) {
  norvane::lock_file lock(bench_file("alone.lock"));
  for (auto _ : state) {
    if (!lock.try_lock()) {
      state.SkipWithError("lock failed");
    }
    lock.unlock();
  }
}

void sync_in_place(benchmark::State& state) { sync_plain(state, "raw.json", write_stream); }
void sync_beside(benchmark::State& state) { sync_plain(state, "previous.json", write_beside); }

// The pairs as the file's heading lists them, each timed in milliseconds.
struct bench_pair {
  const char* name;
  void (*raw)(benchmark::State&);
  void (*norvane)(benchmark::State&);
};

[[maybe_unused]] const bool registered = [] {
  const bench_pair pairs[] = {
      {"sync_1MB_10k_keys", sync_in_place, sync_norvane},
      {"locked_fsync_vs_unlocked", sync_beside, sync_norvane},
      {"save_1MB_fsync_vs_none", save_unflushed, save_norvane},
      {"lock_share_of_sync_1MB", sync_norvane, lock_alone},
  };
  for (const auto& pair : pairs) {
    const std::string name = pair.name;
    benchmark::RegisterBenchmark((name + "/raw").c_str(), pair.raw)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((name + "/norvane").c_str(), pair.norvane)->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
