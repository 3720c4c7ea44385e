// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/SensorChips.h"

#include <gtest/gtest.h>

#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {
namespace {

class SensorChipsTest : public ::testing::Test {
 protected:
  void chip(const std::string& folder, const std::string& name) { set(folder, "name", name); }
  void set(const std::string& folder, const std::string& file, const std::string& value) {
    tree.file("sys/class/hwmon/" + folder + "/" + file, value + "\n");
  }
  void zone(const std::string& name, const std::string& type, const std::string& value) {
    const std::string folder = "sys/class/thermal/" + name;
    tree.file(folder + "/type", type + "\n").file(folder + "/temp", value + "\n");
  }
  [[nodiscard]] std::optional<double> cpu() const { return cpuTemperature(readSensorChips(tree.files())); }
  [[nodiscard]] std::optional<double> gpu() const { return gpuTemperature(readSensorChips(tree.files())); }
  [[nodiscard]] std::vector<double> fans() const { return fanSpeeds(readSensorChips(tree.files())); }

  HostTree tree;
};

TEST_F(SensorChipsTest, HottestPackageIsTheProcessors) {
  chip("hwmon0", "coretemp");
  set("hwmon0", "temp1_label", "Package id 0");
  set("hwmon0", "temp1_input", "51000");
  set("hwmon0", "temp2_label", "Core 0");
  set("hwmon0", "temp2_input", "58000");
  EXPECT_EQ(cpu(), 51.0);
  chip("hwmon1", "coretemp");
  set("hwmon1", "temp1_label", "Package id 1");
  set("hwmon1", "temp1_input", "56500");
  EXPECT_EQ(cpu(), 56.5);
}

TEST_F(SensorChipsTest, WithoutAPackageTheHottestSensorCounts) {
  chip("hwmon0", "coretemp");
  set("hwmon0", "temp2_input", "58000");
  set("hwmon0", "temp3_input", "59000");
  EXPECT_EQ(cpu(), 59.0);
}

TEST_F(SensorChipsTest, RealTemperatureWinsOverTheOneWithAnOffset) {
  chip("hwmon0", "k10temp");
  set("hwmon0", "temp1_label", "Tctl");
  set("hwmon0", "temp1_input", "75000");
  EXPECT_EQ(cpu(), 75.0);
  set("hwmon0", "temp2_label", "Tdie");
  set("hwmon0", "temp2_input", "65000");
  EXPECT_EQ(cpu(), 65.0);
}

TEST_F(SensorChipsTest, ProcessorOfASmallBoardIsKnown) {
  chip("hwmon0", "cpu_thermal");
  set("hwmon0", "temp1_input", "44303");
  EXPECT_DOUBLE_EQ(cpu().value(), 44.303);
}

TEST_F(SensorChipsTest, ThermalZoneStandsInWhereNoDriverAnswers) {
  zone("thermal_zone0", "acpitz", "90000");
  zone("thermal_zone1", "x86_pkg_temp", "47000");
  zone("cooling_device0", "x86_pkg_temp", "99000");
  EXPECT_EQ(cpu(), 47.0);
  chip("hwmon0", "coretemp");
  set("hwmon0", "temp1_input", "46000");
  EXPECT_EQ(cpu(), 46.0);
}

TEST_F(SensorChipsTest, OtherChipsAreNeitherProcessorNorGraphics) {
  for (const char* name : {"nvme", "acpitz", "iwlwifi_1", "drivetemp", "nct6798", ""}) {
    chip("hwmon0", name);
    set("hwmon0", "temp1_input", "60000");
    EXPECT_EQ(cpu(), std::nullopt) << name;
    EXPECT_EQ(gpu(), std::nullopt) << name;
  }
}

TEST_F(SensorChipsTest, DieOfAGraphicsCardIsItsEdge) {
  chip("hwmon0", "amdgpu");
  set("hwmon0", "temp2_label", "junction");
  set("hwmon0", "temp2_input", "70000");
  EXPECT_EQ(gpu(), 70.0);
  set("hwmon0", "temp3_label", "mem");
  set("hwmon0", "temp3_input", "80000");
  EXPECT_EQ(gpu(), 70.0);
  set("hwmon0", "temp1_label", "edge");
  set("hwmon0", "temp1_input", "61000");
  EXPECT_EQ(gpu(), 61.0);
}

TEST_F(SensorChipsTest, HottestGraphicsCardCounts) {
  chip("hwmon0", "nouveau");
  set("hwmon0", "temp1_input", "40000");
  chip("hwmon1", "xe");
  set("hwmon1", "temp2_label", "pkg");
  set("hwmon1", "temp2_input", "45000");
  set("hwmon1", "temp3_label", "vram");
  set("hwmon1", "temp3_input", "65000");
  EXPECT_EQ(gpu(), 45.0);
}

TEST_F(SensorChipsTest, MemoryOfAGraphicsCardIsNotItsDie) {
  chip("hwmon0", "amdgpu");
  set("hwmon0", "temp3_label", "mem");
  set("hwmon0", "temp3_input", "80000");
  EXPECT_EQ(gpu(), std::nullopt);
}

TEST_F(SensorChipsTest, CardThatSleepsIsNotLookedAt) {
  chip("hwmon0", "amdgpu");
  set("hwmon0", "temp1_input", "40000");
  set("hwmon0", "fan1_input", "900");
  set("hwmon0", "device/power/runtime_status", "suspended");
  EXPECT_EQ(gpu(), std::nullopt);
  EXPECT_TRUE(fans().empty());
  set("hwmon0", "device/power/runtime_status", "active");
  EXPECT_EQ(gpu(), 40.0);
}

TEST_F(SensorChipsTest, TemperaturesIncludeBothBounds) {
  chip("hwmon0", "coretemp");
  const auto reading = [&](const std::string& value) {
    set("hwmon0", "temp1_input", value);
    return cpu();
  };
  EXPECT_EQ(reading("-20000"), -20.0);
  EXPECT_EQ(reading("150000"), 150.0);
  EXPECT_EQ(reading("-20001"), std::nullopt);
  EXPECT_EQ(reading("150001"), std::nullopt);
}

TEST_F(SensorChipsTest, TextThatIsNoNumberIsNoReading) {
  chip("hwmon0", "coretemp");
  for (const char* text : {"", "N/A", "nan", "inf", "1e400", "50000 60000", "50000\x01", "--5"}) {
    set("hwmon0", "temp1_input", text);
    EXPECT_EQ(cpu(), std::nullopt) << text;
  }
}

TEST_F(SensorChipsTest, FanThatStandsStillIsAReading) {
  chip("hwmon0", "thinkpad");
  set("hwmon0", "fan1_input", "0");
  set("hwmon0", "fan2_input", "20000");
  EXPECT_EQ(fans(), (std::vector<double>{0.0, 20'000.0}));
}

TEST_F(SensorChipsTest, SensorsThatReportAFaultOrAreOffAreLeftOut) {
  chip("hwmon0", "nct6798");
  set("hwmon0", "fan1_input", "900");
  set("hwmon0", "fan1_fault", "1");
  set("hwmon0", "fan2_input", "901");
  set("hwmon0", "fan2_enable", "0");
  set("hwmon0", "fan3_input", "20001");
  set("hwmon0", "fan4_input", "-1");
  set("hwmon0", "fan5_input", "905");
  set("hwmon0", "fan5_fault", "0");
  set("hwmon0", "fan_input", "906");
  set("hwmon0", "fanx_input", "907");
  set("hwmon0", "fan6_min", "908");
  EXPECT_EQ(fans(), std::vector<double>{905.0});
}

TEST_F(SensorChipsTest, MachineWithoutSensorsHasNone) {
  EXPECT_TRUE(readSensorChips(tree.files()).empty());
  EXPECT_EQ(cpu(), std::nullopt);
}

}  // namespace
}  // namespace monitor::platform
