// The devices side by side with the raw calls they stand in for: io_buffer
// reads, plain and through chunks taken in shuffled order, against memcpy of
// the same bytes from contiguous memory; io_file writes of 256 B, 4 KiB and
// 64 KiB against fwrite and fclose; io_file reads against read(2).
//
// Sizes come from the environment so that a quick run is possible:
//   NORVANE_BENCH_BUFFER_MiB (default 256), NORVANE_BENCH_FILE_MiB (default 256).
// The ratios are meant as medians: --benchmark_repetitions=5.
#include <norvane/io.hpp>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

long long env_MiB(const char* name, long long fallback) {
  const char* text = std::getenv(name);
  const long long value = text != nullptr ? std::atoll(text) : 0;
  return (value > 0 ? value : fallback) << 20;
}

const long long buffer_bytes = env_MiB("NORVANE_BENCH_BUFFER_MiB", 256);
const long long file_bytes = env_MiB("NORVANE_BENCH_FILE_MiB", 256);
constexpr long block = 64 << 10;
constexpr long chunk = 4 << 10;

// The ids of logical chunks of `chunk_bytes` over the source, shuffled.
std::vector<unsigned long> shuffled_ids(long chunk_bytes) {
  std::vector<unsigned long> ids(static_cast<std::size_t>(buffer_bytes / chunk_bytes));
  std::iota(ids.begin(), ids.end(), 0UL);
  std::shuffle(ids.begin(), ids.end(), std::mt19937(42));
  return ids;
}

// One source buffer for every buffer case, filled once.
const std::vector<char>& source() {
  static const std::vector<char> bytes = [] {
    std::vector<char> b(static_cast<std::size_t>(buffer_bytes));
    for (std::size_t i = 0; i < b.size(); i += 4096) {
      std::memset(b.data() + i, static_cast<int>(i / 4096), std::min<std::size_t>(4096, b.size() - i));
    }
    return b;
  }();
  return bytes;
}

const fs::path& scratch() {
  static const fs::path dir = [] {
    auto d = fs::temp_directory_path() / ("norvane-io-bench-" + std::to_string(::getpid()));
    fs::create_directories(d);
    std::atexit([] {
      fs::remove_all(fs::temp_directory_path() / ("norvane-io-bench-" + std::to_string(::getpid())));
    });
    return d;
  }();
  return dir;
}

// Reads the whole source in 64 KiB reads; `chunk_bytes` 0 reads it as one
// plain chunk, else through shuffled chunks of that size.
void buffer_read(benchmark::State& state, long chunk_bytes) {
  const auto& bytes = source();
  const auto ids = chunk_bytes > 0 ? shuffled_ids(chunk_bytes) : std::vector<unsigned long>{};
  std::vector<char> target(block);
  for (auto _ : state) {
    norvane::io_buffer device;
    if (chunk_bytes > 0) {
      device.open(const_cast<char*>(bytes.data()), static_cast<long>(buffer_bytes), ids, chunk_bytes,
                  norvane::io_device::in, false);
    } else {
      device.open(bytes.data(), static_cast<long>(buffer_bytes));
    }
    for (long long at = 0; at < buffer_bytes; at += block) {
      device.read(target.data(), block);
      benchmark::DoNotOptimize(target.data());
      benchmark::ClobberMemory();
    }
    if (!device.is_good()) {
      state.SkipWithError("short read");
    }
  }
  state.SetBytesProcessed(state.iterations() * buffer_bytes);
}

void memcpy_blocks(benchmark::State& state) {
  const auto& bytes = source();
  std::vector<char> target(block);
  for (auto _ : state) {
    for (long long at = 0; at < buffer_bytes; at += block) {
      std::memcpy(target.data(), bytes.data() + at, block);
      benchmark::DoNotOptimize(target.data());
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * buffer_bytes);
}

// The same shuffled chunks copied by hand: the cost of the access pattern
// itself, against which the device's own overhead shows.
void BM_buffer_read_same_chunks_raw(benchmark::State& state) {
  const auto& bytes = source();
  const auto ids = shuffled_ids(chunk);
  std::vector<char> target(block);
  for (auto _ : state) {
    std::size_t k = 0;
    for (long long at = 0; at < buffer_bytes; at += block) {
      for (long piece = 0; piece < block; piece += chunk, ++k) {
        std::memcpy(target.data() + piece, bytes.data() + ids[k] * chunk, chunk);
      }
      benchmark::DoNotOptimize(target.data());
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * buffer_bytes);
}

void BM_buffer_read_64KiB_norvane(benchmark::State& state) { buffer_read(state, 0); }
void BM_buffer_read_64KiB_raw(benchmark::State& state) { memcpy_blocks(state); }
template <long chunk_KiB>
void BM_buffer_read_64KiB_chunks_shuffled_norvane(benchmark::State& state) {
  buffer_read(state, chunk_KiB << 10);
}
void BM_buffer_read_64KiB_chunks_shuffled_raw(benchmark::State& state) { memcpy_blocks(state); }

// Each run writes a fresh file and removes it untimed, so dirty pages of
// one run do not slow the next.
void file_write(benchmark::State& state, long size, bool ours) {
  std::vector<char> piece(static_cast<std::size_t>(size), 'w');
  const auto path = scratch() / "write.bin";
  for (auto _ : state) {
    if (ours) {
      norvane::io_file file;
      file.open(path, norvane::io_device::out);
      for (long long at = 0; at < file_bytes; at += size) {
        file.write(piece.data(), size);
      }
      file.close();
      if (!file.is_good()) {
        state.SkipWithError("io_file write failed");
      }
    } else {
      std::FILE* f = std::fopen(path.c_str(), "wb");
      for (long long at = 0; at < file_bytes; at += size) {
        std::fwrite(piece.data(), 1, static_cast<std::size_t>(size), f);
      }
      std::fclose(f);
    }
    state.PauseTiming();
    if (fs::file_size(path) != static_cast<std::uintmax_t>(file_bytes)) {
      state.SkipWithError("wrong file size");
    }
    fs::remove(path);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * file_bytes);
}

void BM_file_write_64KiB_norvane(benchmark::State& state) { file_write(state, block, true); }
void BM_file_write_64KiB_raw(benchmark::State& state) { file_write(state, block, false); }
void BM_file_write_4KiB_norvane(benchmark::State& state) { file_write(state, 4 << 10, true); }
void BM_file_write_4KiB_raw(benchmark::State& state) { file_write(state, 4 << 10, false); }
void BM_file_write_256B_norvane(benchmark::State& state) { file_write(state, 256, true); }
void BM_file_write_256B_raw(benchmark::State& state) { file_write(state, 256, false); }

const fs::path& read_source() {
  static const fs::path path = [] {
    auto p = scratch() / "read.bin";
    std::FILE* f = std::fopen(p.c_str(), "wb");
    std::vector<char> piece(block);
    for (long long at = 0; at < file_bytes; at += block) {
      std::memset(piece.data(), static_cast<int>(at / block), piece.size());
      std::fwrite(piece.data(), 1, piece.size(), f);
    }
    std::fclose(f);
    return p;
  }();
  return path;
}

void BM_file_read_64KiB_norvane(benchmark::State& state) {
  const auto& path = read_source();
  std::vector<char> target(block);
  for (auto _ : state) {
    norvane::io_file file;
    file.open(path, norvane::io_device::in);
    long long total = 0;
    while (total < file_bytes) {
      file.read(target.data(), block);
      benchmark::DoNotOptimize(target.data());
      total += block;
    }
    if (!file.is_good()) {
      state.SkipWithError("short read");
    }
  }
  state.SetBytesProcessed(state.iterations() * file_bytes);
}

void BM_file_read_64KiB_raw(benchmark::State& state) {
  const auto& path = read_source();
  std::vector<char> target(block);
  for (auto _ : state) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    long long total = 0;
    while (total < file_bytes) {
      const ssize_t n = ::read(fd, target.data(), block);
      if (n <= 0) {
        state.SkipWithError("short read");
        break;
      }
      benchmark::DoNotOptimize(target.data());
      total += n;
    }
    ::close(fd);
  }
  state.SetBytesProcessed(state.iterations() * file_bytes);
}

}  // namespace

BENCHMARK(BM_buffer_read_64KiB_norvane)->Name("buffer_read_64KiB/norvane")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_buffer_read_64KiB_raw)->Name("buffer_read_64KiB/raw")->Unit(benchmark::kMillisecond);
// The raw side of each chunked case is the same bytes read contiguously.
BENCHMARK(BM_buffer_read_64KiB_chunks_shuffled_norvane<4>)
    ->Name("buffer_read_64KiB_chunks_4KiB_shuffled/norvane")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_buffer_read_64KiB_chunks_shuffled_raw)
    ->Name("buffer_read_64KiB_chunks_4KiB_shuffled/raw")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_buffer_read_64KiB_chunks_shuffled_norvane<64>)
    ->Name("buffer_read_64KiB_chunks_64KiB_shuffled/norvane")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_buffer_read_64KiB_chunks_shuffled_raw)
    ->Name("buffer_read_64KiB_chunks_64KiB_shuffled/raw")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_buffer_read_64KiB_chunks_shuffled_norvane<1024>)
    ->Name("buffer_read_64KiB_chunks_1MiB_shuffled/norvane")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_buffer_read_64KiB_chunks_shuffled_raw)
    ->Name("buffer_read_64KiB_chunks_1MiB_shuffled/raw")
    ->Unit(benchmark::kMillisecond);
// Against the same shuffled chunks copied by hand: the device's own cost.
BENCHMARK(BM_buffer_read_64KiB_chunks_shuffled_norvane<4>)
    ->Name("buffer_read_chunks_4KiB_shuffled_vs_same_chunks/norvane")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_buffer_read_same_chunks_raw)
    ->Name("buffer_read_chunks_4KiB_shuffled_vs_same_chunks/raw")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_write_64KiB_norvane)->Name("file_write_64KiB/norvane")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_write_64KiB_raw)->Name("file_write_64KiB/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_write_4KiB_norvane)->Name("file_write_4KiB/norvane")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_write_4KiB_raw)->Name("file_write_4KiB/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_write_256B_norvane)->Name("file_write_256B/norvane")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_write_256B_raw)->Name("file_write_256B/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_read_64KiB_norvane)->Name("file_read_64KiB/norvane")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_file_read_64KiB_raw)->Name("file_read_64KiB/raw")->Unit(benchmark::kMillisecond);
