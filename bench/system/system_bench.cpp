// The host layer and the cached facade against reading the same /proc files
// directly, the way an application without the library would.
#include "system/host_info.hpp"

#include <norvane/system_info.hpp>

#include <benchmark/benchmark.h>
#include <sched.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string slurp(const char* path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return std::move(content).str();
}

// The first "model name" of /proc/cpuinfo, by a plain line scan.
std::string raw_model_name() {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("model name", 0) == 0) {
      return line.substr(line.find(':') + 2);
    }
  }
  return {};
}

void describe_cpus_norvane(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(norvane::details::read_host_cpus("/"));
  }
}

void describe_cpus_raw(benchmark::State& state) {
  for (auto _ : state) {
    const auto text = slurp("/proc/cpuinfo");
    int processors = 0;
    for (auto pos = text.find("processor"); pos != std::string::npos; pos = text.find("processor", pos + 1)) {
      ++processors;
    }
    benchmark::DoNotOptimize(processors);
  }
}

void describe_memory_norvane(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(norvane::details::read_host_ram("/"));
  }
}

void describe_memory_raw(benchmark::State& state) {
  for (auto _ : state) {
    long long kib = -1;
    if (std::FILE* f = std::fopen("/proc/meminfo", "r")) {
      if (std::fscanf(f, "MemTotal: %lld kB", &kib) != 1) {
        kib = -1;
      }
      std::fclose(f);
    }
    benchmark::DoNotOptimize(kib);
  }
}

void cpu_model_per_call_norvane(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(norvane::system_info::all_cpus().front().model_name().size());
  }
}

void cpu_model_per_call_raw(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(raw_model_name().size());
  }
}

// The container-aware count reads the mount table and the cgroup files at
// each call; the plain alternative asks for the affinity mask alone.
void usable_cores_norvane(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(norvane::system_info::usable_cores());
  }
}

void usable_cores_raw(benchmark::State& state) {
  for (auto _ : state) {
    cpu_set_t set;
    CPU_ZERO(&set);
    benchmark::DoNotOptimize(sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1);
  }
}

}  // namespace

BENCHMARK(describe_cpus_raw)->Name("describe_cpus/raw");
BENCHMARK(describe_cpus_norvane)->Name("describe_cpus/norvane");
BENCHMARK(describe_memory_raw)->Name("describe_memory/raw");
BENCHMARK(describe_memory_norvane)->Name("describe_memory/norvane");
BENCHMARK(cpu_model_per_call_raw)->Name("cpu_model_per_call/raw");
BENCHMARK(cpu_model_per_call_norvane)->Name("cpu_model_per_call/norvane");
BENCHMARK(usable_cores_raw)->Name("usable_cores/raw");
BENCHMARK(usable_cores_norvane)->Name("usable_cores/norvane");
