// SPDX-License-Identifier: MIT
#include "MonitorCore/Metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace monitor {
namespace {

using testing::ElementsAre;

TEST(MetricsTest, AllMetricsAreListedInTheirStableOrder) {
  std::vector<std::string> names;
  for (const MetricID metric : kAllMetrics) names.emplace_back(rawValue(metric));
  EXPECT_THAT(names, ElementsAre("cpu", "cpuUser", "cpuSystem", "cpuIdle", "memoryUsed", "memoryTotal",
                                 "memoryPressure", "memoryWired", "memoryCompressed", "diskFree", "diskTotal",
                                 "diskRead", "diskWrite", "download", "upload", "battery", "batteryHealth",
                                 "batteryMinutes", "gpu", "gpuMemory", "cpuTemperature", "gpuTemperature",
                                 "fanRPM", "powerWatts", "energyImpact"));
}

TEST(MetricsTest, CasesCarryTheNameTheyAreDeclaredWith) {
  EXPECT_EQ(rawValue(MetricID::MemoryPressure), "memoryPressure");
  EXPECT_EQ(rawValue(MetricID::DiskWrite), "diskWrite");
  EXPECT_EQ(rawValue(MetricID::BatteryMinutes), "batteryMinutes");
  EXPECT_EQ(rawValue(MetricID::PowerWatts), "powerWatts");
}

TEST(MetricsTest, EveryMetricIsFoundByItsRawValue) {
  for (const MetricID metric : kAllMetrics) EXPECT_EQ(metricID(rawValue(metric)), metric);
}

TEST(MetricsTest, LetterCaseOfARawValueCounts) {
  EXPECT_EQ(metricID("fanRPM"), MetricID::FanRPM);
  EXPECT_EQ(metricID("fanrpm"), std::nullopt);
  EXPECT_EQ(metricState("Available"), std::nullopt);
  EXPECT_EQ(metricUnit("RPM"), std::nullopt);
}

TEST(MetricsTest, UnknownAndEmptyTextIsNoMetric) {
  EXPECT_EQ(metricID(""), std::nullopt);
  EXPECT_EQ(metricID("cpu "), std::nullopt);
  EXPECT_EQ(metricID("temperature"), std::nullopt);
}

TEST(MetricsTest, UnitsHaveTheirRawValuesInOrder) {
  const std::vector<std::string> names{"percent", "bytes", "bytesPerSecond", "minutes", "celsius",
                                       "rpm",     "watts", "level",          "score"};
  for (std::size_t index = 0; index < names.size(); ++index) {
    EXPECT_EQ(rawValue(static_cast<MetricUnit>(index)), names[index]);
    EXPECT_EQ(metricUnit(names[index]), static_cast<MetricUnit>(index));
  }
  EXPECT_EQ(rawValue(MetricUnit::Score), "score");
}

TEST(MetricsTest, StatesHaveTheirRawValuesInOrder) {
  const std::vector<std::string> names{"available", "warmingUp", "stale", "unsupported",
                                       "permissionRequired"};
  for (std::size_t index = 0; index < names.size(); ++index) {
    EXPECT_EQ(rawValue(static_cast<MetricState>(index)), names[index]);
    EXPECT_EQ(metricState(names[index]), static_cast<MetricState>(index));
  }
  EXPECT_EQ(rawValue(MetricState::PermissionRequired), "permissionRequired");
}

}  // namespace
}  // namespace monitor
