// The log stream against raw spdlog on the same kind of sink, and the
// rotating and JSON-lines file sinks against the plain file sink.
#include <norvane/log.hpp>

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>

#include <filesystem>

namespace {

std::filesystem::path bench_file(const char* name) { return std::filesystem::temp_directory_path() / name; }

// A stream at level info on the null sink, given lines of `level`: debug
// lines stop at the level test, info lines reach the sink.
template <norvane::log_level level>
void null_sink_norvane(benchmark::State& state) {
  norvane::log_stream stream("bench", std::make_shared<norvane::log_sink_null>());
  stream.set_level(norvane::log_level::info);
  int i = 0;
  for (auto _ : state) {
    stream.log(level, "value {}", i++);
    benchmark::ClobberMemory();
  }
}

// The same with spdlog's own level check, inlined from its header.
template <spdlog::level::level_enum level>
void null_sink_raw(benchmark::State& state) {
  spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_st>());
  logger.set_level(spdlog::level::info);
  int i = 0;
  for (auto _ : state) {
    if (logger.should_log(level)) {
      logger.log(level, "value {}", i);
    }
    ++i;
    benchmark::ClobberMemory();
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

// One stream over `sink`, logging a typical record per iteration.
void log_to(benchmark::State& state, const std::shared_ptr<norvane::log_sink>& sink) {
  norvane::log_stream stream("bench", sink);
  stream.set_level(norvane::log_level::info);
  int i = 0;
  for (auto _ : state) {
    stream.log(norvane::log_level::info, "connection {} accepted from \"{}\", {} bytes queued", i++,
               "client-7", 4096);
  }
}

void plain_file(benchmark::State& state) {
  const auto path = bench_file("norvane-bench-plain.log");
  log_to(state, std::make_shared<norvane::log_sink_file>(path, true));
  std::filesystem::remove(path);
}

void json_lines_file(benchmark::State& state) {
  const auto path = bench_file("norvane-bench.jsonl");
  log_to(state, std::make_shared<norvane::log_sink_json_file>(path, true));
  std::filesystem::remove(path);
}

// Rotating every 4 MiB, so the cost of renaming is in the figure.
void rotating_file(benchmark::State& state) {
  log_to(state, std::make_shared<norvane::log_sink_rotating_file>(bench_file("norvane-bench-rotating.log"),
                                                                  4 << 20, 2));
  for (const char* name :
       {"norvane-bench-rotating.log", "norvane-bench-rotating.1.log", "norvane-bench-rotating.2.log"}) {
    std::filesystem::remove(bench_file(name));
  }
}

}  // namespace

BENCHMARK(null_sink_raw<spdlog::level::debug>)->Name("disabled_level/raw");
BENCHMARK(null_sink_norvane<norvane::log_level::debug>)->Name("disabled_level/norvane");
BENCHMARK(null_sink_raw<spdlog::level::info>)->Name("admitted_to_null_sink/raw");
BENCHMARK(null_sink_norvane<norvane::log_level::info>)->Name("admitted_to_null_sink/norvane");
BENCHMARK(file_sink_raw)->Name("admitted_to_file_sink/raw");
BENCHMARK(file_sink_norvane)->Name("admitted_to_file_sink/norvane");
// "raw" is the plain file sink here: the ratios say what the record layout
// and the size limit cost on top of it.
BENCHMARK(plain_file)->Name("json_lines_over_plain_file/raw");
BENCHMARK(json_lines_file)->Name("json_lines_over_plain_file/norvane");
BENCHMARK(plain_file)->Name("rotating_over_plain_file/raw");
BENCHMARK(rotating_file)->Name("rotating_over_plain_file/norvane");
