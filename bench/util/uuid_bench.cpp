// Identifiers against libuuid: random ones against uuid_generate_random,
// time-ordered ones (version 7) against libuuid's time-based version 1,
// uuid_generate_time, its nearest call (this libuuid has no version 7).
#include <norvane/hash.hpp>

#include <benchmark/benchmark.h>
#include <uuid/uuid.h>

namespace {

void uuid_norvane(benchmark::State& state) {
  for (auto _ : state) {
    const norvane::uuid id;
    benchmark::DoNotOptimize(id.bytes());
  }
}

void uuid_raw(benchmark::State& state) {
  for (auto _ : state) {
    uuid_t id;
    uuid_generate_random(id);
    benchmark::DoNotOptimize(id);
  }
}

void uuid_v7_norvane(benchmark::State& state) {
  for (auto _ : state) {
    const auto id = norvane::uuid::v7();
    benchmark::DoNotOptimize(id.bytes());
  }
}

void uuid_time_raw(benchmark::State& state) {
  for (auto _ : state) {
    uuid_t id;
    uuid_generate_time(id);
    benchmark::DoNotOptimize(id);
  }
}

}  // namespace

BENCHMARK(uuid_raw)->Name("uuid_random/raw");
BENCHMARK(uuid_norvane)->Name("uuid_random/norvane");
BENCHMARK(uuid_time_raw)->Name("uuid_time_ordered/raw");
BENCHMARK(uuid_v7_norvane)->Name("uuid_time_ordered/norvane");
// The shared sequence under contention: every thread draws from one word.
BENCHMARK(uuid_v7_norvane)->Name("uuid_time_ordered_4_threads/norvane")->Threads(4);
