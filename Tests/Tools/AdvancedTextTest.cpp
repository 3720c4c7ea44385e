// SPDX-License-Identifier: MIT
#include "Tools/vesk/AdvancedText.h"

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>

namespace monitor::vesk {
namespace {

class AdvancedTextTest : public ::testing::Test {
 protected:
  AdvancedTextTest() {
    sample.readings.emplace(MetricID::PowerWatts,
                            MetricReading(12.3, MetricUnit::Watts, std::string(kPowermetricsSource),
                                          MetricState::Available, Date{100.0}, "Packages"));
    sample.processes = {{{7, 1}, 0.0, std::nullopt, 0.0}, {{8, 1}, 1024.0, 0.0, 0.5}, {{9, 1}, {}, {}, 50.0}};
  }
  [[nodiscard]] std::string printed(const ProcessNames& names = {}) const {
    std::ostringstream out;
    std::ostringstream err;
    printAdvancedSample(sample, {out, err, {}, {}}, names);
    return out.str();
  }
  AdvancedSample sample;
};

TEST_F(AdvancedTextTest, ShowsTheStatusTheReadingsAndTheProcessesByEnergy) {
  EXPECT_EQ(printed(),
            "Connected \u00B7 1 hardware reading available.\n"
            "\n"
            "READING     VALUE  UNIT   DETAIL\n"
            "powerWatts   12.3  watts  Packages\n"
            "\n"
            "PROCESS  DOWNLOAD B/S  UPLOAD B/S  ENERGY\n"
            "9:1                 -           -      50\n"
            "8:1              1024           0     0.5\n"
            "7:1                 0           -       0\n");
}

TEST_F(AdvancedTextTest, WithNamesTheIdleAreOnlyCounted) {
  const std::string text = printed([](std::int32_t pid) { return pid == 9 ? "editor" : ""; });
  EXPECT_NE(text.find("PROCESS  DOWNLOAD B/S  UPLOAD B/S  ENERGY  NAME\n"
                      "9:1                 -           -      50  editor\n"
                      "8:1              1024           0     0.5\n"
                      "\n"
                      "1 without activity\n"),
            std::string::npos)
      << text;
}

TEST_F(AdvancedTextTest, TablesWithoutRowsAreLeftOut) {
  sample = {};
  sample.notes = {"A note."};
  EXPECT_EQ(printed(), "Connected. This Mac has not reported a supported hardware reading. A note.\n");
}

TEST_F(AdvancedTextTest, JsonHasTheSampleAsTheHelperSendsItAndTheStatus) {
  std::ostringstream out;
  std::ostringstream err;
  printAdvancedJson(sample, {out, err, {}, {}});
  EXPECT_EQ(out.str(), "{\"sample\":" + encodeAdvancedSample(sample) +
                           ",\"status\":\"Connected \u00B7 1 hardware reading available.\"}\n");
}

}  // namespace
}  // namespace monitor::vesk
