// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <string>
#include <vector>

#include "Benchmarks/Harness/Machine.h"
#include "Benchmarks/Harness/Measure.h"
#include "Benchmarks/Harness/Report.h"
#include "Benchmarks/Harness/Suite.h"

namespace {

using monitor::bench::Comparison;
using monitor::bench::Limit;
using monitor::bench::MeasureOptions;
using monitor::bench::Result;
using monitor::bench::Subject;
using monitor::bench::Suite;

constexpr int kBoundMissed = 1;
constexpr int kRefused = 2;

struct Options {
  std::vector<std::string> filters;
  bool json = false;
  bool list = false;
  MeasureOptions measuring;
};

class Run {
 public:
  explicit Run(const Options& options) : options_(options) {}

  void all() {
    for (const Subject& subject : monitor::bench::registeredSubjects()) {
      Suite suite;
      if (!mayMatch(subject.name)) continue;
      subject.fill(suite);
      for (const Comparison& comparison : suite.comparisons()) one(subject.name, comparison);
      for (const Limit& limit : suite.limits()) one(subject.name, limit);
    }
  }

  [[nodiscard]] const std::vector<Result>& results() const { return results_; }

 private:
  template <typename Measurement>
  void one(const std::string& subject, const Measurement& measurement) {
    const std::string name = subject + '/' + measurement.name;
    if (!matches(name)) return;
    if (options_.list) {
      fmt::print("{}\n", name);
      return;
    }
    results_.push_back(monitor::bench::measure(subject, measurement, options_.measuring));
    if (!options_.json) fmt::print("{}", monitor::bench::rowText(results_.back()));
    std::fflush(stdout);
  }

  [[nodiscard]] bool matches(const std::string& name) const {
    if (options_.filters.empty()) return true;
    for (const std::string& filter : options_.filters) {
      if (name.find(filter) != std::string::npos) return true;
    }
    return false;
  }

  // A subject is not even set up when a filter names another one.
  [[nodiscard]] bool mayMatch(const std::string& subject) const {
    if (options_.filters.empty()) return true;
    for (const std::string& filter : options_.filters) {
      const std::size_t slash = filter.find('/');
      if (slash == std::string::npos || filter.substr(0, slash) == subject) return true;
    }
    return false;
  }

  const Options& options_;
  std::vector<Result> results_;
};

int run(const Options& options) {
  const std::string refusal = monitor::bench::measuringRefused();
  if (!refusal.empty() && !options.list) {
    fmt::print(stderr, "vesk-benchmarks: {}\n", refusal);
    return kRefused;
  }
  const monitor::bench::Machine machine = monitor::bench::describeMachine();
  if (!options.json && !options.list)
    fmt::print("{}", monitor::bench::headingText(machine, options.measuring));
  Run run(options);
  run.all();
  if (options.list) return 0;
  if (run.results().empty()) {
    fmt::print(stderr, "vesk-benchmarks: nothing is called that; --list shows what there is\n");
    return kRefused;
  }
  if (options.json) fmt::print("{}\n", monitor::bench::jsonText(machine, run.results()));
  std::size_t missed = 0;
  for (const Result& result : run.results()) missed += result.withinBound() ? 0 : 1;
  if (!options.json) fmt::print("\n{} measurements, {} out of bounds\n", run.results().size(), missed);
  return missed == 0 ? 0 : kBoundMissed;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Measures the product against bare loops and other floors, in interleaved pairs, and holds the ratios "
      "against "
      "their bounds.\nExit status: 0 all within their bounds, 1 one is not, 2 nothing was measured.",
      "vesk-benchmarks");
  Options options;
  app.add_option("FILTER", options.filters,
                 "Only what has one of these texts in its name, e.g. gain or gain/ramp");
  app.add_option("--pairs", options.measuring.pairs, "Pairs per measurement")
      ->check(CLI::Range(monitor::bench::kFewestPairs, std::size_t{1000}))
      ->capture_default_str();
  app.add_flag("--json", options.json, "One JSON document instead of the table");
  app.add_flag("--list", options.list, "Print the names and measure nothing");
  try {
    app.parse(argc, argv);
    return run(options);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kRefused;
  } catch (const std::exception& error) {
    fmt::print(stderr, "vesk-benchmarks: {}\n", error.what());
    return kRefused;
  }
}
