// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/PackageEnergy.h"

#include <gtest/gtest.h>

#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {
namespace {

std::vector<PackageEnergy> one(std::uint64_t microjoules, std::uint64_t range = 1'000'000'000) {
  return {{"intel-rapl:0", microjoules, range}};
}

class PackageEnergyTest : public ::testing::Test {
 protected:
  void zone(const std::string& zone, const std::string& name, const std::string& energy,
            const std::string& range = "262143328850") {
    const std::string folder = "sys/class/powercap/" + zone;
    tree.file(folder + "/name", name + "\n").file(folder + "/energy_uj", energy + "\n");
    tree.file(folder + "/max_energy_range_uj", range + "\n");
  }
  HostTree tree;
};

TEST_F(PackageEnergyTest, OnlyPackagesOfTheFirstInterfaceCount) {
  zone("intel-rapl:0", "package-0", "11");
  zone("intel-rapl:0:0", "core", "5");
  zone("intel-rapl:1", "package-1-die-0", "22");
  zone("intel-rapl:2", "psys", "99");
  zone("intel-rapl-mmio:0", "package-0", "11");
  zone("dtpm", "package-0", "7");
  const auto packages = readPackageEnergy(tree.files());
  EXPECT_EQ(packages, (std::vector<PackageEnergy>{{"intel-rapl:0", 11, 262'143'328'850},
                                                  {"intel-rapl:1", 22, 262'143'328'850}}));
}

TEST_F(PackageEnergyTest, NoClassNoPackage) {
  EXPECT_TRUE(readPackageEnergy(tree.files()).empty());
}

TEST_F(PackageEnergyTest, CounterThatMakesNoSenseIsLeftOut) {
  for (const char* energy : {"", "-5", "1e9", "12 34", "0x10", "18446744073709551616", "\x01\xff"}) {
    zone("intel-rapl:0", "package-0", energy);
    EXPECT_TRUE(readPackageEnergy(tree.files()).empty()) << energy;
  }
}

TEST_F(PackageEnergyTest, CounterThatOnlyRootMayReadIsLeftOut) {
  zone("intel-rapl:0", "package-0", "11");
  tree.remove("sys/class/powercap/intel-rapl:0/energy_uj");
  EXPECT_TRUE(readPackageEnergy(tree.files()).empty());
}

TEST(PackageWattsTest, PowerIsTheGrowthOverTheTime) {
  EXPECT_DOUBLE_EQ(packageWatts(one(1'000'000), one(16'000'000), 1.5).value(), 10.0);
  EXPECT_EQ(packageWatts(one(7), one(7), 1.0), 0.0);
}

TEST(PackageWattsTest, PackagesAddUp) {
  const std::vector<PackageEnergy> before{{"a", 0, 0}, {"b", 5, 0}};
  const std::vector<PackageEnergy> after{{"a", 1'000'000, 0}, {"b", 3'000'005, 0}};
  EXPECT_DOUBLE_EQ(packageWatts(before, after, 1.0).value(), 4.0);
}

TEST(PackageWattsTest, CounterMayPassItsRangeOnce) {
  EXPECT_DOUBLE_EQ(packageWatts(one(999'000'000), one(2'000'000), 1.0).value(), 3.0);
}

TEST(PackageWattsTest, FallWithoutAKnownRangeIsNoPower) {
  EXPECT_EQ(packageWatts(one(999, 0), one(2, 0), 1.0), std::nullopt);
  EXPECT_EQ(packageWatts(one(999, 500), one(2, 500), 1.0), std::nullopt);
}

TEST(PackageWattsTest, CounterThatWasSetAnewIsNoPower) {
  constexpr std::uint64_t kRange = 262'143'328'850;
  EXPECT_EQ(packageWatts(one(100'000'000'000, kRange), one(5, kRange), 1.0), std::nullopt);
  EXPECT_EQ(packageWatts(one(5), one(~std::uint64_t{0}), 1.0), std::nullopt);
}

TEST(PackageWattsTest, MostThatAPackageMayDrawIsTwoThousandWatts) {
  EXPECT_DOUBLE_EQ(packageWatts(one(0, 0), one(2'000'000'000, 0), 1.0).value(), 2'000.0);
  EXPECT_EQ(packageWatts(one(0, 0), one(2'000'001'000, 0), 1.0), std::nullopt);
}

TEST(PackageWattsTest, PartOfThePackagesIsNoSum) {
  const std::vector<PackageEnergy> two{{"intel-rapl:0", 1, 0}, {"intel-rapl:1", 1, 0}};
  EXPECT_EQ(packageWatts(two, one(2, 0), 1.0), std::nullopt);
  EXPECT_EQ(packageWatts(one(1, 0), two, 1.0), std::nullopt);
  EXPECT_EQ(packageWatts({}, {}, 1.0), std::nullopt);
}

TEST(PackageWattsTest, NoTimeNoPower) {
  EXPECT_EQ(packageWatts(one(1), one(2), 0.0), std::nullopt);
  EXPECT_EQ(packageWatts(one(1), one(2), -1.0), std::nullopt);
}

}  // namespace
}  // namespace monitor::platform
