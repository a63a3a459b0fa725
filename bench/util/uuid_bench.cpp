// Identifiers against libuuid: random ones against uuid_generate_random,
// time-ordered ones (version 7) against libuuid's time-based version 1,
// uuid_generate_time, its nearest call (this libuuid has no version 7).
#include <norvane/hash.hpp>

#include <benchmark/benchmark.h>
#include <uuid/uuid.h>

namespace {

norvane::uuid random_norvane() { return norvane::uuid(); }

template <norvane::uuid (*make)()>
void norvane_ids(benchmark::State& state) {
  for (auto _ : state) {
    const auto id = make();
    benchmark::DoNotOptimize(id.bytes());
  }
}

template <void (*generate)(uuid_t)>
void libuuid_ids(benchmark::State& state) {
  for (auto _ : state) {
    uuid_t id;
    generate(id);
    benchmark::DoNotOptimize(id);
  }
}

}  // namespace

BENCHMARK(libuuid_ids<uuid_generate_random>)->Name("uuid_random/raw");
BENCHMARK(norvane_ids<random_norvane>)->Name("uuid_random/norvane");
BENCHMARK(libuuid_ids<uuid_generate_time>)->Name("uuid_time_ordered/raw");
BENCHMARK(norvane_ids<norvane::uuid::v7>)->Name("uuid_time_ordered/norvane");
// The shared sequence under contention: every thread draws from one word.
BENCHMARK(norvane_ids<norvane::uuid::v7>)->Name("uuid_time_ordered_4_threads/norvane")->Threads(4);
