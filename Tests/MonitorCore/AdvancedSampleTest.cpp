// SPDX-License-Identifier: MIT
#include "MonitorCore/AdvancedSample.h"

#include <gtest/gtest.h>

#include <limits>

#include "MonitorCore/Json/StrictJson.h"

namespace monitor {
namespace {

constexpr const char* kNothingReported = "Connected. This Mac has not reported a supported hardware reading.";

MetricReading reading(std::optional<double> value, MetricState state) {
  return {value, MetricUnit::Percent, std::string(kPowermetricsSource), state, Date{10}, std::nullopt};
}

AdvancedSample sampleWith(std::initializer_list<MetricID> metrics) {
  AdvancedSample sample;
  for (const MetricID metric : metrics) sample.readings.emplace(metric, reading(1, MetricState::Available));
  return sample;
}

TEST(AdvancedSampleStatusTest, NothingUsableSaysSo) {
  AdvancedSample sample;
  EXPECT_EQ(sample.statusDescription(), kNothingReported);
  sample.readings.emplace(MetricID::Gpu, reading(1, MetricState::Unsupported));
  sample.readings.emplace(MetricID::FanRPM, reading(std::nullopt, MetricState::Available));
  sample.readings.emplace(MetricID::PowerWatts, reading(2, MetricState::Stale));
  EXPECT_EQ(sample.statusDescription(), kNothingReported);
}

TEST(AdvancedSampleStatusTest, AvailableStateWithoutAValueIsNotCounted) {
  AdvancedSample sample = sampleWith({MetricID::Gpu, MetricID::FanRPM});
  sample.readings.at(MetricID::Gpu).value.reset();  // as a peer may send it
  EXPECT_EQ(sample.statusDescription(), "Connected \xC2\xB7 1 hardware reading available.");
}

TEST(AdvancedSampleStatusTest, OneReadingIsSingular) {
  EXPECT_EQ(sampleWith({MetricID::Gpu}).statusDescription(),
            "Connected \xC2\xB7 1 hardware reading available.");
}

TEST(AdvancedSampleStatusTest, SeveralReadingsArePlural) {
  EXPECT_EQ(sampleWith({MetricID::Gpu, MetricID::FanRPM, MetricID::PowerWatts}).statusDescription(),
            "Connected \xC2\xB7 3 hardware readings available.");
}

TEST(AdvancedSampleStatusTest, EmptyNotesLeaveNoDoubleSpace) {
  AdvancedSample sample = sampleWith({MetricID::Gpu});
  sample.notes = {"", "x"};
  EXPECT_EQ(sample.statusDescription(), "Connected \xC2\xB7 1 hardware reading available. x");
  sample.notes = {"x", "", "y", ""};
  EXPECT_EQ(sample.statusDescription(), "Connected \xC2\xB7 1 hardware reading available. x y");
  sample.readings.clear();
  sample.notes = {"x"};
  EXPECT_EQ(sample.statusDescription(), std::string(kNothingReported) + " x");
}

TEST(AdvancedSampleJsonTest, KeysAreWrittenInOrderAndOptionalsLeftOut) {
  AdvancedSample sample{Date{20.5}, 0.5, {}, {{{7, 9}, std::nullopt, std::nullopt, std::nullopt}}, {"", "n"}};
  sample.readings.emplace(MetricID::Gpu, reading(75, MetricState::Available));
  EXPECT_EQ(encodeAdvancedSample(sample),
            R"({"timestamp":20.5,"interval":0.5,"readings":["gpu",{"value":75.0,"unit":"percent",)"
            R"("source":"Apple powermetrics","state":"available","timestamp":10.0}],)"
            R"("processes":[{"key":{"pid":7,"start":9}}],"notes":["","n"]})");
}

TEST(AdvancedSampleJsonTest, ProcessWithAllFiguresWritesThemInOrder) {
  const AdvancedSample sample{Date{0}, 1.0, {}, {{{7, 9}, 1.0, 2.0, 3.0}}, {}};
  EXPECT_NE(encodeAdvancedSample(sample).find(
                R"({"key":{"pid":7,"start":9},"download":1.0,"upload":2.0,"energy":3.0})"),
            std::string::npos);
}

TEST(AdvancedSampleJsonTest, SampleSurvivesTheRoundTrip) {
  AdvancedSample sample{Date{786'000'000.123}, 0.987, {}, {}, {"a", ""}};
  sample.readings.emplace(MetricID::FanRPM, reading(2500, MetricState::Available));
  sample.readings.emplace(MetricID::Cpu, reading(std::nullopt, MetricState::PermissionRequired));
  sample.processes = {{{-1, 0}, 1e-9, std::nullopt, 3.0},
                      {{2147483647, 18446744073709551615U}, std::nullopt, 1.0, std::nullopt}};
  EXPECT_EQ(decodeAdvancedSample(encodeAdvancedSample(sample)), sample);
}

TEST(AdvancedSampleJsonTest, EveryKeyIsRequired) {
  const std::string keys[] = {R"("timestamp":0)", R"("interval":1)", R"("readings":[])", R"("processes":[])",
                              R"("notes":[])"};
  for (std::size_t missing = 0; missing <= std::size(keys); ++missing) {
    std::string text = "{";
    for (std::size_t index = 0; index < std::size(keys); ++index) {
      if (index != missing) text += (text.size() > 1 ? "," : "") + keys[index];
    }
    text += "}";
    if (missing == std::size(keys)) {
      EXPECT_NO_THROW(static_cast<void>(decodeAdvancedSample(text)));
    } else {
      EXPECT_THROW(static_cast<void>(decodeAdvancedSample(text)), json::DecodeError) << text;
    }
  }
}

TEST(AdvancedSampleJsonTest, BrokenProcessFailsTheWholeSampleAndIsNamed) {
  const std::string head = R"({"timestamp":0,"interval":1,"readings":[],"notes":[],"processes":)";
  try {
    static_cast<void>(
        decodeAdvancedSample(head + R"([{"key":{"pid":1,"start":2}},{"key":{"pid":1.5,"start":2}}]})"));
    FAIL() << "a fractional pid was accepted";
  } catch (const json::DecodeError& error) {
    EXPECT_EQ(std::string(error.what()).find("at processes[1].key.pid: "), 0U) << error.what();
  }
  EXPECT_THROW(static_cast<void>(decodeAdvancedSample(head + R"([{"download":1}]})")), json::DecodeError);
  EXPECT_THROW((void)decodeAdvancedSample(head + R"([{"key":{"pid":1,"start":2},"upload":"3"}]})"),
               json::DecodeError);
}

TEST(AdvancedSampleJsonTest, NonFiniteNumberCannotBeSent) {
  AdvancedSample sample;
  sample.interval = std::numeric_limits<double>::infinity();
  EXPECT_THROW(static_cast<void>(encodeAdvancedSample(sample)), json::EncodeError);
}

}  // namespace
}  // namespace monitor
