// SPDX-License-Identifier: MIT
// How grouping into apps and projects grows with the number of processes, and what an alert evaluation costs.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "Benchmarks/Harness/Suite.h"
#include "MonitorCore/AppAggregator.h"
#include "MonitorCore/MonitorAlertRules.h"
#include "MonitorCore/ProjectGrouper.h"

namespace monitor::bench {
namespace {

constexpr std::size_t kSizes[] = {1'000, 10'000, 100'000};

// Chains of eight processes; every sixteenth process has a bundle, every sixty-fourth listens.
std::vector<ProcessSample> processes(std::size_t count, std::size_t depth) {
  std::vector<ProcessSample> list(count);
  for (std::size_t index = 0; index < count; ++index) {
    ProcessSample& process = list[index];
    process.key = {static_cast<std::int32_t>(index + 2), index};
    process.parentPID = index % depth != 0 ? static_cast<std::int32_t>(index + 1) : 1;
    process.owner = 501;
    process.name = "process";
    process.executable = "/usr/bin/program-with-a-path";
    process.cpu = 0.5;
    process.memory = 1 << 20;
    if (index % 16 == 0) process.bundleID = "org.example.app" + std::to_string(index / 16);
    if (index % 64 == 1) {
      process.ports = {3'000};
      process.directory = "/src/project" + std::to_string(index / 64);
    }
  }
  return list;
}

double cpuSeconds(const std::function<void()>& work) {
  const std::clock_t begin = std::clock();
  work();
  return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// What grouping samples of `size` processes costs, the freeing of the results included. Every size has the
// same number of processes to group, in as many samples as that makes, all of them made beforehand and all
// results kept to the end: small samples one at a time would be grouped inside the processor's caches and
// large ones outside of them, and the figure would say how much faster a cache is than memory.
template <class Group>
double secondsPerSample(Group group, std::size_t size) {
  constexpr std::size_t kProcesses = 100'000;
  std::vector<std::vector<ProcessSample>> samples(kProcesses / size);
  for (auto& sample : samples) sample = processes(size, 8);
  using Rows = decltype(group(samples.front()));
  const double seconds = cpuSeconds([&] {
    std::vector<Rows> results;
    results.reserve(samples.size());
    for (auto& sample : samples) results.push_back(group(sample));
  });
  return seconds / static_cast<double>(samples.size());
}

// The slope of the costs over the sizes on logarithmic scales, by least squares. One round measures every
// size once, so that whatever the machine does meanwhile happens to all of them.
template <class Group>
double exponent(Group group) {
  double sumX = 0, sumY = 0, sumXX = 0, sumXY = 0;
  for (const std::size_t size : kSizes) {
    const double x = std::log(static_cast<double>(size));
    const double y = std::log(secondsPerSample(group, size));
    sumX += x, sumY += y, sumXX += x * x, sumXY += x * y;
  }
  constexpr double kCount = std::size(kSizes);
  return (kCount * sumXY - sumX * sumY) / (kCount * sumXX - sumX * sumX);
}

double alertMilliseconds() {
  MonitorPreferences preferences;
  preferences.alertsEnabled = true;
  preferences.diskThreshold = 1e6;
  std::vector<AppUsage> apps;
  for (int index = 0; index < 1'000; ++index) {
    AppUsage app;
    app.id = "org.example.app" + std::to_string(index);
    app.name = "app";
    app.cpu = index % 2 != 0 ? 90.0 : 1.0;
    app.memory = 1 << 20;
    apps.push_back(app);
  }
  // A full hour of history behind it, a sample every two seconds.
  MonitorAlertRules rules;
  double date = 0;
  for (int sample = 0; sample < 1'900; ++sample) (void)rules.evaluate(apps, Date{date += 2}, preferences);
  std::vector<double> costs;
  for (int sample = 0; sample < 201; ++sample) {
    costs.push_back(cpuSeconds([&] { (void)rules.evaluate(apps, Date{date += 2}, preferences); }));
  }
  return median(costs) * 1e3;
}

double chainSeconds() {
  return cpuSeconds([] {
    (void)AppAggregator::group(processes(10'000, 10'000));
    (void)ProjectGrouper::groups(processes(10'000, 10'000));
  });
}

void addGrouping(Suite& suite) {
  suite.add(Limit{
      "apps, growth exponent", "",
      [] { return exponent([](auto& sample) { return AppAggregator::group(std::move(sample)); }); }, 1.15});
  suite.add(Limit{"projects, growth exponent", "",
                  [] { return exponent([](const auto& sample) { return ProjectGrouper::groups(sample); }); },
                  1.15});
  suite.add(Limit{"a chain of 10000 processes", "s", chainSeconds, 1.0});
  suite.add(Limit{"alert evaluation of 1000 apps", "ms", alertMilliseconds, 1.0});
}

const Registration kRegistration("grouping", addGrouping);

}  // namespace
}  // namespace monitor::bench
