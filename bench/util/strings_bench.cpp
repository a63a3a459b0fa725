// Throughput of split and unescape over 1 MB of text. There is no
// dependency call to compare with, so these report MB/s only.
#include <norvane/strings.hpp>

#include <benchmark/benchmark.h>

#include <string>

namespace {

std::string csv_text() {
  std::string text;
  for (int i = 0; text.size() < 1000000; ++i) {
    text += "field" + std::to_string(i) + (i % 8 == 7 ? ",,\n" : ",");
  }
  return text;
}

std::string escaped_text() {
  std::string text;
  for (int i = 0; text.size() < 1000000; ++i) {
    text += i % 4 == 0 ? R"(plain words \t\x41\101\n)" : "and some more plain text ";
  }
  return text;
}

void split_1MB(benchmark::State& state) {
  const std::string text = csv_text();
  for (auto _ : state) {
    benchmark::DoNotOptimize(norvane::split(text, ",\n"));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void unescape_1MB(benchmark::State& state) {
  const std::string text = escaped_text();
  std::string out;
  for (auto _ : state) {
    norvane::unescape(&out, text, nullptr);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void unescape_in_place_1MB(benchmark::State& state) {
  const std::string text = escaped_text();
  std::string work;
  for (auto _ : state) {
    state.PauseTiming();
    work = text;
    state.ResumeTiming();
    norvane::unescape(&work, work, nullptr);
    benchmark::DoNotOptimize(work.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

}  // namespace

BENCHMARK(split_1MB)->Name("split_1MB/norvane");
BENCHMARK(unescape_1MB)->Name("unescape_1MB/norvane");
BENCHMARK(unescape_in_place_1MB)->Name("unescape_in_place_1MB/norvane");
