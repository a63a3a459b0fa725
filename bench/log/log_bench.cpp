// The log stream against raw spdlog on the same kind of sink.
#include <norvane/log.hpp>

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>

#include <filesystem>

namespace {

std::filesystem::path bench_file(const char* name) { return std::filesystem::temp_directory_path() / name; }

void disabled_norvane(benchmark::State& state) {
  norvane::log_stream stream("bench", std::make_shared<norvane::log_sink_null>());
  stream.set_level(norvane::log_level::info);
  int i = 0;
  for (auto _ : state) {
    stream.log(norvane::log_level::debug, "value {}", i++);
    benchmark::ClobberMemory();
  }
}

void disabled_raw(benchmark::State& state) {
  spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_st>());
  logger.set_level(spdlog::level::info);
  int i = 0;
  for (auto _ : state) {
    // spdlog's own level check, inlined from its header.
    if (logger.should_log(spdlog::level::debug)) {
      logger.log(spdlog::level::debug, "value {}", i);
    }
    ++i;
    benchmark::ClobberMemory();
  }
}

void null_sink_norvane(benchmark::State& state) {
  norvane::log_stream stream("bench", std::make_shared<norvane::log_sink_null>());
  stream.set_level(norvane::log_level::info);
  int i = 0;
  for (auto _ : state) {
    stream.log(norvane::log_level::info, "value {}", i++);
  }
}

void null_sink_raw(benchmark::State& state) {
  spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_st>());
  logger.set_level(spdlog::level::info);
  int i = 0;
  for (auto _ : state) {
    logger.log(spdlog::level::info, "value {}", i++);
  }
}

void file_sink_norvane(benchmark::State& state) {
  const auto path = bench_file("norvane-bench-ours.log");
  {
    norvane::log_stream stream("bench", std::make_shared<norvane::log_sink_file>(path, true));
    stream.set_level(norvane::log_level::info);
    int i = 0;
    for (auto _ : state) {
      stream.log(norvane::log_level::info, "value {}", i++);
    }
  }
  std::filesystem::remove(path);
}

void file_sink_raw(benchmark::State& state) {
  const auto path = bench_file("norvane-bench-raw.log");
  {
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::basic_file_sink_st>(path.native(), true));
    logger.set_level(spdlog::level::info);
    int i = 0;
    for (auto _ : state) {
      logger.log(spdlog::level::info, "value {}", i++);
    }
  }
  std::filesystem::remove(path);
}

}  // namespace

BENCHMARK(disabled_raw)->Name("disabled_level/raw");
BENCHMARK(disabled_norvane)->Name("disabled_level/norvane");
BENCHMARK(null_sink_raw)->Name("admitted_to_null_sink/raw");
BENCHMARK(null_sink_norvane)->Name("admitted_to_null_sink/norvane");
BENCHMARK(file_sink_raw)->Name("admitted_to_file_sink/raw");
BENCHMARK(file_sink_norvane)->Name("admitted_to_file_sink/norvane");
