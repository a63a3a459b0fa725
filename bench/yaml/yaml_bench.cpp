// read_yaml against a bare libfyaml event loop (the floor: it only touches
// each scalar's text) and against yaml-cpp's YAML::Load, on generated
// documents of about 50 KB and 20 MB.
#include <norvane/yaml.hpp>

#include "yaml_corpus.hpp"

#include <benchmark/benchmark.h>
#include <libfyaml.h>
#include <yaml-cpp/yaml.h>

#include <string>
#include <vector>

namespace {

const std::string& document(std::size_t bytes) {
  static const std::string small = norvane::bench::generate_yaml_document(50u << 10);
  static const std::string large = norvane::bench::generate_yaml_document(20u << 20);
  return bytes == (50u << 10) ? small : large;
}

void read_with_norvane(benchmark::State& state, std::size_t bytes) {
  const std::string& text = document(bytes);
  for (auto _ : state) {
    std::vector<std::string> errors;
    auto doc = norvane::yaml::read_yaml(text, errors);
    if (!errors.empty()) {
      state.SkipWithError(errors.front().c_str());
      break;
    }
    benchmark::DoNotOptimize(doc.size());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void read_with_libfyaml_events(benchmark::State& state, std::size_t bytes) {
  const std::string& text = document(bytes);
  for (auto _ : state) {
    fy_parse_cfg cfg{};
    cfg.flags = FYPCF_QUIET;
    fy_parser* parser = fy_parser_create(&cfg);
    fy_parser_set_string(parser, text.data(), text.size());
    std::size_t touched = 0;
    while (fy_event* e = fy_parser_parse(parser)) {
      if (e->type == FYET_SCALAR) {
        std::size_t length = 0;
        const char* p = fy_token_get_text(e->scalar.value, &length);
        touched += length + (length > 0 ? static_cast<unsigned char>(p[0]) : 0u);
      }
      fy_parser_event_free(parser, e);
    }
    if (fy_parser_get_stream_error(parser)) {
      state.SkipWithError("libfyaml reported an error");
    }
    fy_parser_destroy(parser);
    benchmark::DoNotOptimize(touched);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void read_with_yaml_cpp(benchmark::State& state, std::size_t bytes) {
  const std::string& text = document(bytes);
  for (auto _ : state) {
    YAML::Node doc = YAML::Load(text);
    benchmark::DoNotOptimize(doc.size());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

constexpr std::size_t small = 50u << 10;
constexpr std::size_t large = 20u << 20;

// Registered by name so that each pair reads "<case>/norvane" and "<case>/raw".
const bool registered = [] {
  using benchmark::RegisterBenchmark;
  RegisterBenchmark("events_50KB/norvane", read_with_norvane, small)->Unit(benchmark::kMicrosecond);
  RegisterBenchmark("events_50KB/raw", read_with_libfyaml_events, small)->Unit(benchmark::kMicrosecond);
  RegisterBenchmark("yaml_cpp_50KB/norvane", read_with_norvane, small)->Unit(benchmark::kMicrosecond);
  RegisterBenchmark("yaml_cpp_50KB/raw", read_with_yaml_cpp, small)->Unit(benchmark::kMicrosecond);
  RegisterBenchmark("events_20MB/norvane", read_with_norvane, large)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("events_20MB/raw", read_with_libfyaml_events, large)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("yaml_cpp_20MB/norvane", read_with_norvane, large)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("yaml_cpp_20MB/raw", read_with_yaml_cpp, large)->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace
