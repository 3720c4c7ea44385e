// SPDX-License-Identifier: MIT
#include "MonitorCore/AdvancedParser.h"

#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/MonitorError.h"
#include "MonitorCore/PropertyList.h"

namespace monitor::AdvancedParser {
namespace {

using Value = std::optional<PropertyListValue>;

// Both ends are included.
struct Range {
  double low;
  double high;
};

constexpr Range kRatio{0.0, 1.0};
constexpr Range kMilliwatts{0.0, 1'000'000.0};
constexpr Range kCelsius{-20.0, 150.0};
constexpr Range kFanSpeed{0.0, 20'000.0};        // revolutions per minute
constexpr Range kElapsedNanoseconds{1.0, 90e9};  // 90 seconds
constexpr Range kBytes{0.0, 0x1p64};             // in one interval
constexpr Range kEnergyImpact{0.0, 1'000'000.0};

MonitorError corrupt() {
  return {MonitorError::kCocoaDomain, MonitorError::kPropertyListReadCorrupt,
          "The data could not be read because it is not in the correct format."};
}

// The last piece between zero bytes that is not empty.
std::string_view lastDocument(std::string_view output) {
  const std::size_t last = output.find_last_not_of('\0');
  if (last == std::string_view::npos) throw corrupt();
  output = output.substr(0, last + 1);
  const std::size_t separator = output.rfind('\0');
  return separator == std::string_view::npos ? output : output.substr(separator + 1);
}

Value section(const PropertyListValue& root, const char* key) {
  Value value = root.find(key);
  return value && value->isDictionary() ? value : std::nullopt;
}

std::optional<double> number(const Value& dictionary, const char* key, Range range) {
  if (!dictionary) return std::nullopt;
  const Value value = dictionary->find(key);
  const std::optional<double> number = value ? value->number() : std::nullopt;
  // Everything within a range is finite.
  return number && *number >= range.low && *number <= range.high ? number : std::nullopt;
}

// One that holds anything but dictionaries is not the list that is meant, as if it were missing.
std::vector<PropertyListValue> dictionaries(const Value& parent, const char* key) {
  if (!parent) return {};
  const Value value = parent->find(key);
  auto elements = value ? value->elements() : std::nullopt;
  if (!elements) return {};
  for (const PropertyListValue& element : *elements) {
    if (!element.isDictionary()) return {};
  }
  return std::move(*elements);
}

std::optional<double> gpuPercent(const Value& gpu) {
  if (const auto idle = number(gpu, "idle_ratio", kRatio)) return (1.0 - *idle) * 100.0;
  if (const auto active = number(gpu, "active_ratio", kRatio)) return *active * 100.0;
  return std::nullopt;
}

std::optional<double> fastestFan(const Value& smc) {
  std::optional<double> fastest;
  for (const PropertyListValue& fan : dictionaries(smc, "fans")) {
    const auto speed = number(fan, "speed", kFanSpeed);
    if (speed && (!fastest || *speed > *fastest)) fastest = speed;
  }
  return fastest;
}

void addReading(AdvancedSample& sample, MetricID metric, std::optional<double> value, MetricUnit unit,
                std::string_view detail) {
  if (!value) return;
  sample.readings.emplace(metric,
                          MetricReading(value, unit, std::string(kPowermetricsSource), MetricState::Available,
                                        sample.timestamp, std::string(detail)));
}

void addMachineReadings(AdvancedSample& sample, const PropertyListValue& root,
                        const AdvancedDetails& details) {
  const Value smc = section(root, "smc");
  std::optional<double> watts = number(section(root, "processor"), "combined_power", kMilliwatts);
  if (watts) *watts /= 1000.0;
  addReading(sample, MetricID::Gpu, gpuPercent(section(root, "gpu")), MetricUnit::Percent, details.gpu);
  addReading(sample, MetricID::PowerWatts, watts, MetricUnit::Watts, details.powerWatts);
  addReading(sample, MetricID::CpuTemperature, number(smc, "cpu_die", kCelsius), MetricUnit::Celsius,
             details.cpuTemperature);
  addReading(sample, MetricID::GpuTemperature, number(smc, "gpu_die", kCelsius), MetricUnit::Celsius,
             details.gpuTemperature);
  addReading(sample, MetricID::FanRPM, fastestFan(smc), MetricUnit::Rpm, details.fanRPM);
}

// The task's pid as a 32-bit integer, a fraction cut off. A Boolean is a number here; a number that does not
// fit is the pid of no process.
std::optional<std::int32_t> pidOf(const PropertyListValue& task) {
  const Value value = task.find("pid");
  const std::optional<double> number = value ? value->numberOrBoolean() : std::nullopt;
  if (!number) return std::nullopt;
  const double whole = std::trunc(*number);
  using Limits = std::numeric_limits<std::int32_t>;
  if (!(whole >= static_cast<double>(Limits::min()) && whole <= static_cast<double>(Limits::max()))) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(whole);
}

// `interval` is absent when the tool did not say how long it measured: bytes are never turned into rates over
// an assumed time.
void addProcess(AdvancedSample& sample, const PropertyListValue& task, const ProcessIdentities& identities,
                std::optional<double> interval) {
  const std::optional<std::int32_t> pid = pidOf(task);
  if (!pid) return;
  const auto identity = identities.find(*pid);
  if (identity == identities.end()) return;
  AdvancedProcessReading reading;
  reading.key = identity->second;
  if (interval) {
    const auto rate = [&](const char* key) {
      std::optional<double> bytes = number(task, key, kBytes);
      if (bytes) *bytes /= *interval;
      return bytes;
    };
    reading.download = rate("network_recv_bytes");
    reading.upload = rate("network_send_bytes");
  }
  reading.energy = number(task, "energy_impact", kEnergyImpact);
  if (reading.download || reading.upload || reading.energy) sample.processes.push_back(reading);
}

}  // namespace

AdvancedSample parse(std::string_view output, const ProcessIdentities& identities, Date at,
                     const AdvancedDetails& details) {
  const PropertyList document(lastDocument(output));
  const PropertyListValue root = document.root();
  if (!root.isDictionary()) throw corrupt();

  AdvancedSample sample;
  sample.timestamp = at;
  sample.interval = 1.0;
  addMachineReadings(sample, root, details);
  std::optional<double> interval = number(root, "elapsed_ns", kElapsedNanoseconds);
  if (interval) {
    *interval /= 1e9;
    sample.interval = *interval;
  }
  for (const PropertyListValue& task : dictionaries(root, "tasks"))
    addProcess(sample, task, identities, interval);
  if (sample.readings.empty()) {
    sample.notes = {"This Mac did not report a recognized advanced hardware reading."};
  }
  return sample;
}

}  // namespace monitor::AdvancedParser
