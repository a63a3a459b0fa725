// A benchmark main that, after the usual report, prints the ratio of each
// pair "<case>/norvane" to "<case>/raw": our call's time over the raw
// dependency call's time on the same work. With repetitions the ratio is
// that of the medians.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

class ratio_reporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if ((run.run_type != Run::RT_Iteration && !median) || run.error_occurred) {
        continue;
      }
      const std::string name = run.run_name.str();
      const auto slash = name.rfind('/');
      if (slash != std::string::npos) {
        // The median arrives after the repetitions it summarises and replaces them.
        times_[name.substr(0, slash)][name.substr(slash + 1)] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void print_ratios() const {
    std::printf("\n%-48s %12s\n", "case", "ours/raw");
    for (const auto& [name, sides] : times_) {
      const auto ours = sides.find("norvane");
      const auto raw = sides.find("raw");
      if (ours != sides.end() && raw != sides.end() && raw->second > 0) {
        std::printf("%-48s %12.3f\n", name.c_str(), ours->second / raw->second);
      }
    }
  }

private:
  std::map<std::string, std::map<std::string, double>> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  ratio_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_ratios();
  benchmark::Shutdown();
  return 0;
}
