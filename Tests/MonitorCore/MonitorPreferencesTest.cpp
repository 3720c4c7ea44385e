// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorPreferences.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "MonitorCore/Json/StrictJson.h"

namespace monitor {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();

constexpr const char* kDefaultsAsJson =
    R"({"historyEnabled":false,"historyPaused":false,"retentionDays":30,"alertsEnabled":false,)"
    R"("cpuThreshold":80.0,"cpuDuration":600.0,"memoryGrowthBytes":1073741824.0,"diskThreshold":0.0,)"
    R"("networkThreshold":0.0,"excludedApps":[],"pinMetric":"combined","menuStyle":"icon","menuMetric":"cpu"})";

// The value of one field after normalize().
template <class Field>
Field normalized(Field MonitorPreferences::*field, Field value) {
  MonitorPreferences preferences;
  preferences.*field = value;
  preferences.normalize();
  return preferences.*field;
}

MonitorPreferences unusual() {
  MonitorPreferences preferences;
  preferences.historyEnabled = true;
  preferences.historyPaused = true;
  preferences.retentionDays = 7;
  preferences.alertsEnabled = true;
  preferences.cpuThreshold = 12.5;
  preferences.cpuDuration = 61.0;
  preferences.memoryGrowthBytes = 268435457.0;
  preferences.diskThreshold = 1e9;
  preferences.networkThreshold = 0.25;
  preferences.excludedApps = {"com.example.b", "com.example.a", ""};
  preferences.pinMetric = "battery";
  preferences.menuStyle = "stacked";
  preferences.menuMetric = "gpu";
  return preferences;
}

TEST(MonitorPreferencesTest, FreshRecordHoldsTheDefaults) {
  const MonitorPreferences fresh;
  EXPECT_FALSE(fresh.historyEnabled);
  EXPECT_FALSE(fresh.historyPaused);
  EXPECT_EQ(fresh.retentionDays, 30);
  EXPECT_FALSE(fresh.alertsEnabled);
  EXPECT_EQ(fresh.cpuThreshold, 80.0);
  EXPECT_EQ(fresh.cpuDuration, 600.0);
  EXPECT_EQ(fresh.memoryGrowthBytes, 1073741824.0);
  EXPECT_EQ(fresh.diskThreshold, 0.0);
  EXPECT_EQ(fresh.networkThreshold, 0.0);
  EXPECT_TRUE(fresh.excludedApps.empty());
  EXPECT_EQ(fresh.pinMetric, "combined");
  EXPECT_EQ(fresh.menuStyle, "icon");
  EXPECT_EQ(fresh.menuMetric, "cpu");
}

TEST(MonitorPreferencesTest, DefaultsAndLegalValuesAreAlreadyNormal) {
  for (const MonitorPreferences& legal : {MonitorPreferences(), unusual()}) {
    MonitorPreferences preferences = legal;
    preferences.normalize();
    EXPECT_EQ(preferences, legal);
  }
}

TEST(MonitorPreferencesTest, RetentionIsOneSevenOrThirtyDays) {
  const auto days = [](std::int64_t value) { return normalized(&MonitorPreferences::retentionDays, value); };
  EXPECT_EQ(days(1), 1);
  EXPECT_EQ(days(7), 7);
  EXPECT_EQ(days(30), 30);
  for (const std::int64_t other : {std::int64_t{14}, std::int64_t{0}, std::int64_t{-7}, std::int64_t{2},
                                   std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(days(other), 30) << other;
  }
}

TEST(MonitorPreferencesTest, CpuThresholdStaysBetweenTenAndTenThousand) {
  const auto threshold = [](double value) { return normalized(&MonitorPreferences::cpuThreshold, value); };
  EXPECT_EQ(threshold(5), 10);
  EXPECT_EQ(threshold(9.999), 10);
  EXPECT_EQ(threshold(10), 10);
  EXPECT_EQ(threshold(10.001), 10.001);
  EXPECT_EQ(threshold(9999.5), 9999.5);
  EXPECT_EQ(threshold(10000), 10000);
  EXPECT_EQ(threshold(20000), 10000);
  EXPECT_EQ(threshold(-kLargest), 10);
  for (const double value : {kNaN, kInfinity, -kInfinity}) EXPECT_EQ(threshold(value), 80);
}

TEST(MonitorPreferencesTest, CpuDurationStaysBetweenAMinuteAndAnHour) {
  const auto duration = [](double value) { return normalized(&MonitorPreferences::cpuDuration, value); };
  EXPECT_EQ(duration(30), 60);
  EXPECT_EQ(duration(60), 60);
  EXPECT_EQ(duration(60.5), 60.5);
  EXPECT_EQ(duration(3600), 3600);
  EXPECT_EQ(duration(3600.5), 3600);
  for (const double value : {kNaN, kInfinity, -kInfinity}) EXPECT_EQ(duration(value), 600);
}

TEST(MonitorPreferencesTest, MemoryGrowthHasAFloorAndNoCeiling) {
  const auto growth = [](double value) { return normalized(&MonitorPreferences::memoryGrowthBytes, value); };
  EXPECT_EQ(growth(1000), 268435456);
  EXPECT_EQ(growth(268435455), 268435456);
  EXPECT_EQ(growth(268435456), 268435456);
  EXPECT_EQ(growth(268435457), 268435457);
  EXPECT_EQ(growth(4294967296), 4294967296);
  EXPECT_EQ(growth(kLargest), kLargest);
  for (const double value : {kNaN, kInfinity, -kInfinity}) EXPECT_EQ(growth(value), 1073741824);
}

TEST(MonitorPreferencesTest, DiskAndNetworkThresholdsAreNeverNegative) {
  for (const auto field : {&MonitorPreferences::diskThreshold, &MonitorPreferences::networkThreshold}) {
    EXPECT_EQ(normalized(field, -1.0), 0);
    EXPECT_EQ(normalized(field, -std::numeric_limits<double>::denorm_min()), 0);
    EXPECT_EQ(normalized(field, 0.0), 0);
    EXPECT_EQ(normalized(field, 0.5), 0.5);
    EXPECT_EQ(normalized(field, kLargest), kLargest);
    for (const double value : {kNaN, kInfinity, -kInfinity}) EXPECT_EQ(normalized(field, value), 0);
  }
}

TEST(MonitorPreferencesTest, UnknownPinMetricBecomesCombined) {
  const auto pin = [](const char* value) {
    return normalized(&MonitorPreferences::pinMetric, std::string(value));
  };
  for (const char* known : {"combined", "cpu", "memory", "network", "battery"}) EXPECT_EQ(pin(known), known);
  for (const char* other : {"gpu", "", "CPU", "icon"}) EXPECT_EQ(pin(other), "combined");
}

TEST(MonitorPreferencesTest, UnknownMenuStyleBecomesIcon) {
  const auto style = [](const char* value) {
    return normalized(&MonitorPreferences::menuStyle, std::string(value));
  };
  for (const char* known : {"icon", "number", "graph", "stacked"}) EXPECT_EQ(style(known), known);
  for (const char* other : {"bar", "", "Icon", "combined"}) EXPECT_EQ(style(other), "icon");
}

TEST(MonitorPreferencesTest, MenuMetricSwitchesAndExcludedAppsAreLeftAlone) {
  EXPECT_EQ(normalized(&MonitorPreferences::menuMetric, std::string("gpu")), "gpu");
  EXPECT_EQ(normalized(&MonitorPreferences::menuMetric, std::string("no such metric")), "no such metric");
  EXPECT_EQ(normalized(&MonitorPreferences::historyEnabled, true), true);
  EXPECT_EQ(normalized(&MonitorPreferences::historyPaused, true), true);
  EXPECT_EQ(normalized(&MonitorPreferences::alertsEnabled, true), true);
  const std::set<std::string> apps{"", "not an app id"};
  EXPECT_EQ(normalized(&MonitorPreferences::excludedApps, apps), apps);
}

TEST(MonitorPreferencesJsonTest, ThirteenKeysAreWrittenInOrder) {
  EXPECT_EQ(encodePreferences(MonitorPreferences()), kDefaultsAsJson);
}

TEST(MonitorPreferencesJsonTest, RecordSurvivesTheRoundTrip) {
  EXPECT_EQ(decodePreferences(encodePreferences(unusual())), unusual());
  EXPECT_EQ(decodePreferences(kDefaultsAsJson), MonitorPreferences());
}

TEST(MonitorPreferencesJsonTest, EveryKeyIsRequiredAndNamedWhenMissing) {
  const std::vector<std::string> keys{
      "historyEnabled", "historyPaused",     "retentionDays", "alertsEnabled",    "cpuThreshold",
      "cpuDuration",    "memoryGrowthBytes", "diskThreshold", "networkThreshold", "excludedApps",
      "pinMetric",      "menuStyle",         "menuMetric"};
  for (const std::string& key : keys) {
    std::string text = kDefaultsAsJson;
    text.replace(text.find('"' + key + '"'), key.size() + 2, "\"other\"");
    try {
      static_cast<void>(decodePreferences(text));
      ADD_FAILURE() << key << " is not required";
    } catch (const json::DecodeError& error) {
      EXPECT_NE(std::string(error.what()).find('"' + key + '"'), std::string::npos) << error.what();
    }
  }
}

TEST(MonitorPreferencesJsonTest, WrongTypesAreRefused) {
  const auto refuses = [](const std::string& key, const std::string& from, const std::string& to) {
    std::string text = kDefaultsAsJson;
    const std::string before = '"' + key + "\":" + from;
    text.replace(text.find(before), before.size(), '"' + key + "\":" + to);
    EXPECT_THROW(static_cast<void>(decodePreferences(text)), json::DecodeError) << text;
  };
  refuses("historyEnabled", "false", "0");
  refuses("alertsEnabled", "false", "\"true\"");
  refuses("retentionDays", "30", "30.5");
  refuses("retentionDays", "30", "true");
  refuses("retentionDays", "30", "9223372036854775808");
  refuses("cpuThreshold", "80.0", "\"80\"");
  refuses("cpuThreshold", "80.0", "null");
  refuses("cpuThreshold", "80.0", "1e999");
  refuses("excludedApps", "[]", "{}");
  refuses("excludedApps", "[]", "[1]");
  refuses("menuMetric", "\"cpu\"", "1");
}

TEST(MonitorPreferencesJsonTest, DecodingDoesNotNormalize) {
  std::string text = kDefaultsAsJson;
  text.replace(text.find("30"), 2, "14");
  EXPECT_EQ(decodePreferences(text).retentionDays, 14);
}

TEST(MonitorPreferencesJsonTest, RepeatedExcludedAppCountsOnce) {
  std::string text = kDefaultsAsJson;
  text.replace(text.find("[]"), 2, R"(["a","a"])");
  EXPECT_EQ(decodePreferences(text).excludedApps, (std::set<std::string>{"a"}));
}

TEST(MonitorPreferencesJsonTest, NonFiniteThresholdCannotBeStored) {
  MonitorPreferences preferences;
  preferences.cpuThreshold = kNaN;
  EXPECT_THROW(static_cast<void>(encodePreferences(preferences)), json::EncodeError);
}

}  // namespace
}  // namespace monitor
