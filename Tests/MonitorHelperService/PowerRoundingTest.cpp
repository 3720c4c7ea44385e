// SPDX-License-Identifier: MIT
#include "MonitorHelperService/PowerRounding.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace monitor {
namespace {

MetricReading reading(std::optional<double> value, MetricUnit unit) {
  return {value, unit, std::string(kPowermetricsSource), MetricState::Available, Date{100.0}, "detail"};
}

std::optional<double> roundedWatts(std::optional<double> value) {
  AdvancedSample sample;
  sample.readings.emplace(MetricID::PowerWatts, reading(value, MetricUnit::Watts));
  roundWatts(sample);
  return sample.readings.at(MetricID::PowerWatts).value;
}

TEST(PowerRounding, WattsAreTenths) {
  EXPECT_EQ(roundedWatts(12.345), 12.3);
  EXPECT_EQ(roundedWatts(12.36), 12.4);
  EXPECT_EQ(roundedWatts(0.04), 0.0);
  EXPECT_EQ(roundedWatts(0.06), 0.1);
  EXPECT_EQ(roundedWatts(1000.0), 1000.0);
}

TEST(PowerRounding, AbsentWattsStayAbsent) {
  EXPECT_EQ(roundedWatts(std::nullopt), std::nullopt);
}

TEST(PowerRounding, OtherUnitsAreKeptAsTheyAre) {
  AdvancedSample sample;
  sample.readings.emplace(MetricID::CpuTemperature, reading(51.234, MetricUnit::Celsius));
  sample.readings.emplace(MetricID::Gpu, reading(12.345, MetricUnit::Percent));
  const AdvancedSample before = sample;
  roundWatts(sample);
  EXPECT_EQ(sample, before);
}

TEST(PowerRounding, NothingButTheValueChanges) {
  AdvancedSample sample;
  sample.readings.emplace(MetricID::PowerWatts, reading(12.345, MetricUnit::Watts));
  roundWatts(sample);
  EXPECT_EQ(sample.readings.at(MetricID::PowerWatts), reading(12.3, MetricUnit::Watts));
}

}  // namespace
}  // namespace monitor
