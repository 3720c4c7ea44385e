// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/SysfsDevices.h"

#include <gtest/gtest.h>

#include "Platform/Linux/Host/NetlinkInterfaces.h"
#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {
namespace {

class SysfsDevicesTest : public ::testing::Test {
 protected:
  void drive(const std::string& name, bool device) {
    tree.file("sys/block/" + name + "/stat", "  100 0 2000 5 50 0 3000 7 0 1 2\n");
    if (device) tree.folder("sys/block/" + name + "/device");
  }
  void battery(const std::string& name, const std::string& file, const std::string& value) {
    tree.file("sys/class/power_supply/" + name + "/" + file, value + "\n");
  }
  void energyBattery(const std::string& name, const char* now, const char* full, const char* design) {
    battery(name, "type", "Battery");
    battery(name, "energy_now", now);
    battery(name, "energy_full", full);
    battery(name, "energy_full_design", design);
  }

  HostTree tree;
  SysfsBlockStorage storage{tree.files()};
  SysfsPowerSources power{tree.files()};
  SysfsAccessories accessories{tree.files()};
};

TEST_F(SysfsDevicesTest, OnlyDrivesWithADeviceCount) {
  drive("nvme0n1", true);
  drive("sda", true);
  for (const char* name : {"loop0", "dm-0", "md0", "zram0", "ram0"}) drive(name, false);
  const auto rows = storage.counters();
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].id, "nvme0n1");
  EXPECT_EQ(rows[0].read, 2'000U * 512);
  EXPECT_EQ(rows[0].written, 3'000U * 512);
  EXPECT_EQ(rows[1].id, "sda");
}

TEST_F(SysfsDevicesTest, HiddenPathOfADriveIsNotCountedTwice) {
  drive("nvme0c0n1", true);
  tree.file("sys/block/nvme0c0n1/hidden", "1\n");
  drive("nvme0n1", true);
  tree.file("sys/block/nvme0n1/hidden", "0\n");
  EXPECT_EQ(storage.counters().size(), 1U);
}

TEST_F(SysfsDevicesTest, ReplacedDriveHasAnIdentityOfItsOwn) {
  drive("sda", true);
  tree.file("sys/block/sda/diskseq", "9\n");
  EXPECT_EQ(storage.counters().at(0).id, "sda#9");
}

TEST_F(SysfsDevicesTest, PhysicalInterfacesHaveADevice) {
  tree.folder("sys/class/net/enp3s0/device").folder("sys/class/net/wlp2s0/device");
  for (const char* name : {"lo", "br0", "bond0", "docker0", "veth12", "tun0", "enp3s0.100"}) {
    tree.folder(std::string("sys/class/net/") + name);
  }
  NetlinkInterfaces interfaces(tree.files());
  EXPECT_EQ(interfaces.physicalInterfaces(), (std::set<std::string>{"enp3s0", "wlp2s0"}));
}

TEST_F(SysfsDevicesTest, TrafficThatPassesTwoDevicesCountsOnce) {
  // A board with a switch behind its one interface, a virtual machine with a fast path beside its interface.
  for (const char* name : {"eth0", "lan1", "lan2", "netvsc0", "vf0", "eno1"}) {
    tree.folder(std::string("sys/class/net/") + name + "/device");
  }
  tree.folder("sys/class/net/eth0/dsa").folder("sys/class/net/bond0");
  std::filesystem::create_symlink("../netvsc0", tree.root() / "sys/class/net/vf0/master");
  std::filesystem::create_symlink("../bond0", tree.root() / "sys/class/net/eno1/master");
  NetlinkInterfaces interfaces(tree.files());
  EXPECT_EQ(interfaces.physicalInterfaces(), (std::set<std::string>{"eno1", "lan1", "lan2", "netvsc0"}));
}

TEST_F(SysfsDevicesTest, LoopbackIsAmongTheLiveCounters) {
  NetlinkInterfaces interfaces{HostFiles()};
  const auto rows = interfaces.counters();
  EXPECT_TRUE(std::any_of(rows.begin(), rows.end(), [](const auto& row) { return row.name == "lo"; }));
}

TEST_F(SysfsDevicesTest, NoBatteryNoSource) {
  battery("AC", "type", "Mains");
  EXPECT_TRUE(power.sources().empty());
  EXPECT_FALSE(power.wear());
}

TEST_F(SysfsDevicesTest, TwoBatteriesAddUp) {
  energyBattery("BAT0", "10000000", "20000000", "25000000");
  battery("BAT0", "status", "Not charging");
  battery("BAT0", "power_now", "0");
  energyBattery("BAT1", "20000000", "40000000", "45000000");
  battery("BAT1", "status", "Discharging");
  battery("BAT1", "power_now", "15000000");
  const auto sources = power.sources();
  ASSERT_EQ(sources.size(), 1U);
  EXPECT_TRUE(sources[0].internalBattery);
  EXPECT_DOUBLE_EQ(*sources[0].currentCapacity / *sources[0].maximumCapacity, 0.5);
  EXPECT_DOUBLE_EQ(*sources[0].minutesToEmpty, 120.0);
  EXPECT_EQ(sources[0].state, "Discharging");
  EXPECT_DOUBLE_EQ(*power.wear()->fullCapacity / *power.wear()->designCapacity, 60.0 / 70.0);
}

TEST_F(SysfsDevicesTest, ChargeAndEnergyBatteriesAreMadeComparable) {
  energyBattery("BAT0", "10000000", "20000000", "20000000");
  battery("BAT1", "type", "Battery");
  battery("BAT1", "charge_now", "1000000");
  battery("BAT1", "charge_full", "2000000");
  battery("BAT1", "charge_full_design", "2000000");
  battery("BAT1", "voltage_min_design", "10000000");
  const auto source = power.sources().at(0);
  EXPECT_DOUBLE_EQ(*source.currentCapacity, 20'000'000.0);
  EXPECT_DOUBLE_EQ(*source.maximumCapacity, 40'000'000.0);
}

TEST_F(SysfsDevicesTest, ChargingBatteryHasNoMinutes) {
  energyBattery("BAT0", "10000000", "20000000", "20000000");
  battery("BAT0", "status", "Charging");
  battery("BAT0", "power_now", "10000000");
  EXPECT_FALSE(power.sources().at(0).minutesToEmpty);
  EXPECT_EQ(power.sources().at(0).state, "Charging");
}

TEST_F(SysfsDevicesTest, DriversEstimateWins) {
  energyBattery("BAT0", "10000000", "20000000", "20000000");
  battery("BAT0", "status", "Discharging");
  battery("BAT0", "power_now", "10000000");
  battery("BAT0", "time_to_empty_now", "5400");
  EXPECT_DOUBLE_EQ(*power.sources().at(0).minutesToEmpty, 90.0);
}

TEST_F(SysfsDevicesTest, DriversEstimateOfAChargingBatteryIsNotTaken) {
  energyBattery("BAT0", "10000000", "20000000", "20000000");
  battery("BAT0", "status", "Charging");
  battery("BAT0", "time_to_empty_now", "5400");
  EXPECT_FALSE(power.sources().at(0).minutesToEmpty);
}

TEST_F(SysfsDevicesTest, NegativeDischargeCurrentIsADrain) {
  battery("BAT0", "type", "Battery");
  battery("BAT0", "status", "Discharging");
  battery("BAT0", "charge_now", "1000000");
  battery("BAT0", "charge_full", "2000000");
  battery("BAT0", "current_now", "-500000");
  EXPECT_DOUBLE_EQ(*power.sources().at(0).minutesToEmpty, 120.0);
}

TEST_F(SysfsDevicesTest, BatteryWithOnlyAPercentageHasNoWear) {
  battery("BAT0", "type", "Battery");
  battery("BAT0", "capacity", "73");
  EXPECT_DOUBLE_EQ(*power.sources().at(0).currentCapacity, 73.0);
  EXPECT_DOUBLE_EQ(*power.sources().at(0).maximumCapacity, 100.0);
  EXPECT_FALSE(power.wear());
}

TEST_F(SysfsDevicesTest, AbsentBatteryIsNone) {
  energyBattery("BAT1", "0", "0", "0");
  battery("BAT1", "present", "0");
  EXPECT_TRUE(power.sources().empty());
}

TEST_F(SysfsDevicesTest, SupplyOfADeviceIsAnAccessoryAndNotTheBattery) {
  battery("hidpp_battery_0", "type", "Battery");
  battery("hidpp_battery_0", "scope", "Device");
  battery("hidpp_battery_0", "model_name", "Wireless Mouse");
  battery("hidpp_battery_0", "capacity", "55");
  battery("hid-1234-battery", "scope", "Device");
  EXPECT_TRUE(power.sources().empty());
  const auto list = accessories.connected();
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].id, "hid-1234-battery");
  EXPECT_FALSE(list[0].batteryPercent);
  EXPECT_FALSE(list[0].product);
  EXPECT_EQ(list[1].id, "hidpp_battery_0");
  EXPECT_EQ(list[1].product, "Wireless Mouse");
  EXPECT_EQ(list[1].batteryPercent, 55.0);
}

}  // namespace
}  // namespace monitor::platform
