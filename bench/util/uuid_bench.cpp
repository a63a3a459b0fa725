// Random identifiers against libuuid's uuid_generate_random.
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

}  // namespace

BENCHMARK(uuid_raw)->Name("uuid_random/raw");
BENCHMARK(uuid_norvane)->Name("uuid_random/norvane");
