// The application core against the raw machinery it replaces: cxxopts for
// the command-line parser, a plain vector queue of std::function listeners
// for the typed dispatcher, a plain vector of functions for delay_event.
#include <norvane/cmdline.hpp>
#include <norvane/dispatcher.hpp>

#include <benchmark/benchmark.h>
#include <cxxopts.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

// Twenty options, five of each kind, and a command line that gives most of
// them plus three positional words.
const std::vector<std::string>& command_line() {
  static const std::vector<std::string> args = [] {
    std::vector<std::string> a{"tool"};
    for (int i = 0; i < 5; ++i) {
      const auto n = std::to_string(i);
      a.push_back("--flag" + n);
      a.insert(a.end(), {"--int" + n, std::to_string(i * 17)});
      a.insert(a.end(), {"--real" + n, std::to_string(i * 0.5)});
      a.push_back("--text" + n + "=value" + n);
    }
    a.insert(a.end(), {"in1.txt", "in2.txt", "in3.txt"});
    return a;
  }();
  return args;
}

void parse_norvane(benchmark::State& state) {
  norvane::cmdline_parser parser("tool", "Benchmark");
  for (int i = 0; i < 5; ++i) {
    const auto n = std::to_string(i);
    parser.add_option("", "flag" + n, "a flag", false);
    parser.add_option("", "int" + n, "an integer", 0);
    parser.add_option("", "real" + n, "a real", 1.0);
    parser.add_option("", "text" + n, "a text", std::string_view("none"));
  }
  parser.add_option("files");
  const auto& args = command_line();
  for (auto _ : state) {
    benchmark::DoNotOptimize(parser.parse(args));
  }
}

void parse_raw(benchmark::State& state) {
  cxxopts::Options options("tool", "Benchmark");
  options.allow_unrecognised_options();
  for (int i = 0; i < 5; ++i) {
    const auto n = std::to_string(i);
    options.add_option("", "", "flag" + n, "a flag",
                       cxxopts::value<bool>()->default_value("false")->implicit_value("true"), "");
    options.add_option("", "", "int" + n, "an integer", cxxopts::value<int>()->default_value("0"), "");
    options.add_option("", "", "real" + n, "a real", cxxopts::value<double>()->default_value("1.000000"), "");
    options.add_option("", "", "text" + n, "a text", cxxopts::value<std::string>()->default_value("none"),
                       "");
  }
  options.add_option("", "", "files", "", cxxopts::value<std::vector<std::string>>(), "");
  options.parse_positional({"files"});
  const auto& args = command_line();
  std::vector<const char*> argv;
  for (const auto& a : args) {
    argv.push_back(a.c_str());
  }
  argv.push_back(nullptr);
  for (auto _ : state) {
    auto result = options.parse(static_cast<int>(args.size()), argv.data());
    benchmark::DoNotOptimize(result);
  }
}

struct event {
  std::uint64_t value;
};

struct listener {
  std::uint64_t sum = 0;
  void on_event(const event& e) { sum += e.value; }
};

constexpr std::int64_t events_per_round = 1'000'000;

void set_per_event(benchmark::State& state) {
  state.counters["per_event"] =
      benchmark::Counter(static_cast<double>(events_per_round),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void dispatch_norvane(benchmark::State& state) {
  norvane::custom_dispatcher<> dispatcher;
  listener l;
  dispatcher.sink<event>().connect<&listener::on_event>(l);
  for (auto _ : state) {
    for (std::int64_t i = 0; i < events_per_round; ++i) {
      dispatcher.enqueue<event>(static_cast<std::uint64_t>(i));
    }
    dispatcher.update();
  }
  benchmark::DoNotOptimize(l.sum);
  set_per_event(state);
}

void dispatch_raw(benchmark::State& state) {
  std::vector<event> queue;
  std::vector<std::function<void(event&)>> listeners;
  listener l;
  listeners.emplace_back([&l](event& e) { l.on_event(e); });
  for (auto _ : state) {
    for (std::int64_t i = 0; i < events_per_round; ++i) {
      queue.push_back(event{static_cast<std::uint64_t>(i)});
    }
    for (auto& e : queue) {
      for (auto& f : listeners) {
        f(e);
      }
    }
    queue.clear();
  }
  benchmark::DoNotOptimize(l.sum);
  set_per_event(state);
}

// Eight event types with three listeners each; the events of a round are
// enqueued in turn across the types, as a loop with mixed traffic would.
template <int N>
struct typed_event {
  std::uint64_t value;
};

struct typed_listener {
  std::uint64_t sum = 0;
  template <int N>
  void on_event(const typed_event<N>& e) {
    sum += e.value + N;
  }
};

constexpr int event_types = 8;
constexpr int listeners_per_type = 3;

template <int... N>
void dispatch_types_norvane(benchmark::State& state, std::integer_sequence<int, N...>) {
  norvane::custom_dispatcher<> dispatcher;
  typed_listener listeners[listeners_per_type];
  for (auto& l : listeners) {
    (dispatcher.sink<typed_event<N>>().template connect<&typed_listener::on_event<N>>(l), ...);
  }
  for (auto _ : state) {
    for (std::int64_t i = 0; i < events_per_round; i += event_types) {
      (dispatcher.enqueue<typed_event<N>>(static_cast<std::uint64_t>(i)), ...);
    }
    dispatcher.update();
  }
  for (auto& l : listeners) {
    benchmark::DoNotOptimize(l.sum);
  }
  set_per_event(state);
}

template <int... N>
void dispatch_types_raw(benchmark::State& state, std::integer_sequence<int, N...>) {
  std::tuple<std::vector<typed_event<N>>...> queues;
  std::tuple<std::vector<std::function<void(typed_event<N>&)>>...> handlers;
  typed_listener listeners[listeners_per_type];
  for (auto& l : listeners) {
    (std::get<N>(handlers).emplace_back([&l](typed_event<N>& e) { l.on_event(e); }), ...);
  }
  const auto deliver = [](auto& queue, auto& functions) {
    for (auto& e : queue) {
      for (auto& f : functions) {
        f(e);
      }
    }
    queue.clear();
  };
  for (auto _ : state) {
    for (std::int64_t i = 0; i < events_per_round; i += event_types) {
      (std::get<N>(queues).push_back(typed_event<N>{static_cast<std::uint64_t>(i)}), ...);
    }
    (deliver(std::get<N>(queues), std::get<N>(handlers)), ...);
  }
  for (auto& l : listeners) {
    benchmark::DoNotOptimize(l.sum);
  }
  set_per_event(state);
}

void dispatch_8_types_norvane(benchmark::State& state) {
  dispatch_types_norvane(state, std::make_integer_sequence<int, event_types>());
}

void dispatch_8_types_raw(benchmark::State& state) {
  dispatch_types_raw(state, std::make_integer_sequence<int, event_types>());
}

constexpr std::int64_t delayed_per_round = 100'000;

void delay_norvane(benchmark::State& state) {
  norvane::signal_dispatcher dispatcher;
  std::uint64_t sum = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < delayed_per_round; ++i) {
      dispatcher.delay_event([&sum, i] { sum += static_cast<std::uint64_t>(i); });
    }
    dispatcher.update();
  }
  benchmark::DoNotOptimize(sum);
  state.counters["per_function"] =
      benchmark::Counter(static_cast<double>(delayed_per_round),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void delay_raw(benchmark::State& state) {
  std::vector<std::function<void()>> delayed;
  std::uint64_t sum = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < delayed_per_round; ++i) {
      delayed.emplace_back([&sum, i] { sum += static_cast<std::uint64_t>(i); });
    }
    for (auto& f : delayed) {
      f();
    }
    delayed.clear();
  }
  benchmark::DoNotOptimize(sum);
  state.counters["per_function"] =
      benchmark::Counter(static_cast<double>(delayed_per_round),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(parse_raw)->Name("parse_20_options/raw");
BENCHMARK(parse_norvane)->Name("parse_20_options/norvane");
BENCHMARK(dispatch_raw)->Name("enqueue_update_1M_events/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(dispatch_norvane)->Name("enqueue_update_1M_events/norvane")->Unit(benchmark::kMillisecond);
BENCHMARK(dispatch_8_types_raw)
    ->Name("enqueue_update_1M_events_8_types_3_listeners/raw")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(dispatch_8_types_norvane)
    ->Name("enqueue_update_1M_events_8_types_3_listeners/norvane")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(delay_raw)->Name("delay_event_update_100k/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(delay_norvane)->Name("delay_event_update_100k/norvane")->Unit(benchmark::kMillisecond);
