// SPDX-License-Identifier: MIT
#include "Benchmarks/Harness/Measure.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <stdexcept>
#include <vector>

namespace monitor::bench {
namespace {

double now(Clock clock) {
  if (clock == Clock::Cpu) return static_cast<double>(std::clock()) / static_cast<double>(CLOCKS_PER_SEC);
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// One piece of work with the repetitions that fill a sample.
class Sampler {
 public:
  Sampler(const Work& work, Clock clock, double sampleSeconds) : work_(work), clock_(clock) {
    if (static_cast<bool>(work.repeat) == (work.sample != nullptr)) {
      throw std::invalid_argument(fmt::format("\"{}\" needs exactly one of repeat and sample", work.name));
    }
    if (work.sample != nullptr) {
      (void)work.sample();  // warm
      return;
    }
    while (timeRepetitions() < sampleSeconds) repetitions_ *= 2;
  }

  // Seconds of one run.
  double next() {
    return work_.sample != nullptr ? work_.sample() : timeRepetitions() / static_cast<double>(repetitions_);
  }

 private:
  double timeRepetitions() const {
    const double begin = now(clock_);
    work_.repeat(repetitions_);
    return now(clock_) - begin;
  }

  const Work& work_;
  Clock clock_;
  std::size_t repetitions_ = 1;
};

std::string describeFloors(const std::vector<Floor>& floors) {
  std::string text;
  for (const Floor& floor : floors) {
    if (!text.empty()) text += " + ";
    if (floor.weight != 1.0) text += fmt::format("{} × ", floor.weight);
    text += floor.work.name;
  }
  return text;
}

void checkPairs(std::size_t pairs) {
  if (pairs < kFewestPairs) {
    throw std::invalid_argument(
        fmt::format("{} pairs are too few, at least {} are needed", pairs, kFewestPairs));
  }
}

}  // namespace

Result measure(const std::string& subject, const Comparison& comparison, const MeasureOptions& options) {
  const std::size_t pairs = comparison.pairs.value_or(options.pairs);
  checkPairs(pairs);
  if (comparison.floors.empty()) {
    throw std::invalid_argument(fmt::format("{}/{}: nothing to compare with", subject, comparison.name));
  }
  std::vector<Sampler> samplers;  // the product, then its floors
  samplers.emplace_back(comparison.product, comparison.clock, options.sampleSeconds);
  for (const Floor& floor : comparison.floors) {
    samplers.emplace_back(floor.work, comparison.clock, options.sampleSeconds);
  }
  std::vector<double> ratios;
  std::vector<double> products;
  std::vector<double> floors;
  for (std::size_t pair = 0; pair < pairs; ++pair) {
    std::vector<double> seconds(samplers.size());
    for (std::size_t step = 0; step < samplers.size(); ++step) {
      const std::size_t index = (pair + step) % samplers.size();
      seconds[index] = samplers[index].next();
    }
    double floor = 0.0;
    for (std::size_t index = 0; index < comparison.floors.size(); ++index) {
      floor += comparison.floors[index].weight * seconds[index + 1];
    }
    products.push_back(seconds.front());
    floors.push_back(floor);
    ratios.push_back(seconds.front() / floor);
  }
  Result result;
  result.subject = subject;
  result.name = comparison.name;
  result.floor = describeFloors(comparison.floors);
  result.figure = quartilesOf(ratios);
  result.productSeconds = quartilesOf(products).median;
  result.floorSeconds = quartilesOf(floors).median;
  result.samples = pairs;
  result.bound = comparison.bound;
  return result;
}

Result measure(const std::string& subject, const Limit& limit, const MeasureOptions& options) {
  checkPairs(options.pairs);
  if (limit.sample == nullptr)
    throw std::invalid_argument(fmt::format("{}/{}: nothing to measure", subject, limit.name));
  std::vector<double> figures;
  for (std::size_t sample = 0; sample < options.pairs; ++sample) figures.push_back(limit.sample());
  Result result;
  result.subject = subject;
  result.name = limit.name;
  result.unit = limit.unit;
  result.figure = quartilesOf(figures);
  result.samples = options.pairs;
  result.bound = limit.bound;
  return result;
}

}  // namespace monitor::bench
