// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/DrmClients.h"

#include <gtest/gtest.h>

namespace monitor::platform {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

DrmEngine nanoseconds(std::uint64_t count, std::uint64_t capacity = 1) {
  return {count, std::nullopt, std::nullopt, capacity};
}
DrmEngine cycles(std::uint64_t count, std::uint64_t total) {
  return {std::nullopt, count, total, 1};
}

TEST(DrmClientsTest, ReadsTheEnginesOfAClient) {
  const auto client = parseDrmClient(
      "pos:\t0\nflags:\t02100002\ndrm-driver:\ti915\ndrm-client-id:\t7\ndrm-pdev:\t0000:00:02.0\n"
      "drm-total-system0:\t1024 KiB\ndrm-engine-render:\t25662044495 ns\ndrm-engine-video:\t12 ns\n"
      "drm-engine-capacity-video:\t2\n");
  ASSERT_TRUE(client);
  EXPECT_EQ(client->first, (DrmClientKey{"i915", "0000:00:02.0", 7}));
  EXPECT_EQ(client->second,
            (DrmEngines{{"render", nanoseconds(25'662'044'495)}, {"video", nanoseconds(12, 2)}}));
}

TEST(DrmClientsTest, ReadsCyclesBesideTheirTotal) {
  const auto client = parseDrmClient(
      "drm-driver:\txe\ndrm-client-id:\t15\ndrm-pdev:\t0000:03:00.0\ndrm-cycles-rcs:\t28257900\n"
      "drm-total-cycles-rcs:\t7655183225\n");
  ASSERT_TRUE(client);
  EXPECT_EQ(client->second, (DrmEngines{{"rcs", cycles(28'257'900, 7'655'183'225)}}));
}

TEST(DrmClientsTest, OtherFilesAreNoClients) {
  for (const char* text :
       {"", "pos:\t0\nflags:\t02\n", "drm-driver:\ti915\ndrm-client-id:\t7\n",
        "drm-driver:\ti915\ndrm-engine-render:\t5 ns\n", "drm-client-id:\t7\ndrm-engine-render:\t5 ns\n",
        "drm-driver:\ti915\ndrm-client-id:\t-7\ndrm-engine-render:\t5 ns\n",
        "drm-driver:\ti915\ndrm-client-id:\t7\ndrm-engine-render:\t5 ms\n",
        "drm-driver:\ti915\ndrm-client-id:\t7\ndrm-engine-capacity-render:\t2\n", ":::\n:\n\n"}) {
    EXPECT_FALSE(parseDrmClient(text)) << text;
  }
}

TEST(DrmClientsTest, NumberOfEnginesIsBounded) {
  std::string text = "drm-driver:\tx\ndrm-client-id:\t1\n";
  for (int index = 0; index < 1'000; ++index) text += "drm-engine-e" + std::to_string(index) + ":\t1 ns\n";
  EXPECT_EQ(parseDrmClient(text)->second.size(), 64U);
}

TEST(DrmClientsTest, CapacityIsBetweenOneAndAThousand) {
  const auto capacity = [](const std::string& value) {
    const auto client = parseDrmClient("drm-driver:\tx\ndrm-client-id:\t1\ndrm-engine-a:\t1 ns\n" +
                                       ("drm-engine-capacity-a:\t" + value + "\n"));
    return client->second.at("a").capacity;
  };
  EXPECT_EQ(capacity("0"), 1U);
  EXPECT_EQ(capacity("x"), 1U);
  EXPECT_EQ(capacity("1024"), 1024U);
  EXPECT_EQ(capacity("18446744073709551615"), 1024U);
}

TEST(DrmClientsTest, BusyTimeIsTheGrowth) {
  const DrmEngine before = nanoseconds(5 * kSecond);
  EXPECT_DOUBLE_EQ(busySeconds(&before, nanoseconds(5 * kSecond + kSecond / 4), 1.0), 0.25);
}

TEST(DrmClientsTest, NewClientWorkedAllOfItsTimeMeanwhile) {
  EXPECT_DOUBLE_EQ(busySeconds(nullptr, nanoseconds(kSecond / 2), 1.0), 0.5);
}

TEST(DrmClientsTest, NoEngineWorksLongerThanTheInterval) {
  const DrmEngine before = nanoseconds(0, 2);
  EXPECT_EQ(busySeconds(&before, nanoseconds(5 * kSecond, 2), 1.0), 2.0);
  EXPECT_EQ(busySeconds(&before, nanoseconds(~std::uint64_t{0}), 1.0), 1.0);
}

TEST(DrmClientsTest, CounterThatStepsBackDidNotGrow) {
  const DrmEngine before = nanoseconds(100);
  EXPECT_EQ(busySeconds(&before, nanoseconds(99), 1.0), 0.0);
  const DrmEngine inCycles = cycles(100, 1'000);
  EXPECT_EQ(busySeconds(&inCycles, cycles(99, 2'000), 1.0), 0.0);
  EXPECT_EQ(busySeconds(&inCycles, cycles(200, 999), 1.0), 0.0);
}

TEST(DrmClientsTest, CyclesAreAShareOfTheirTotal) {
  const DrmEngine before = cycles(1'000, 50'000);
  EXPECT_DOUBLE_EQ(busySeconds(&before, cycles(1'250, 51'000), 2.0), 0.5);
  EXPECT_EQ(busySeconds(nullptr, cycles(1'250, 51'000), 2.0), 0.0);
}

TEST(DrmClientsTest, BusiestEngineOfTheCardCounts) {
  const DrmClients before{{{"i915", "a", 1}, {{"render", nanoseconds(0)}, {"video", nanoseconds(0, 2)}}},
                          {{"i915", "a", 2}, {{"render", nanoseconds(kSecond)}}},
                          {{"i915", "b", 3}, {{"render", nanoseconds(0)}}}};
  const DrmClients after{
      {{"i915", "a", 1}, {{"render", nanoseconds(kSecond / 4)}, {"video", nanoseconds(kSecond, 2)}}},
      {{"i915", "a", 2}, {{"render", nanoseconds(kSecond + kSecond / 2)}}},
      {{"i915", "b", 3}, {{"render", nanoseconds(kSecond)}}}};
  EXPECT_DOUBLE_EQ(busiestEngine(before, after, "a", 1.0).value(), 0.75);
  EXPECT_DOUBLE_EQ(busiestEngine(before, after, "b", 1.0).value(), 1.0);
  EXPECT_EQ(busiestEngine(before, after, "c", 1.0), std::nullopt);
  EXPECT_EQ(busiestEngine(before, after, "a", 0.0), std::nullopt);
}

TEST(DrmClientsTest, ShareIsAtMostOne) {
  const DrmClients after{{{"i915", "a", 1}, {{"render", nanoseconds(kSecond)}}},
                         {{"i915", "a", 2}, {{"render", nanoseconds(kSecond)}}}};
  EXPECT_EQ(busiestEngine({}, after, "a", 1.0), 1.0);
}

TEST(DrmClientsTest, EnginesOfAClientAddUp) {
  const DrmClients before{{{"i915", "a", 1}, {{"render", nanoseconds(10)}}}};
  const DrmClients after{
      {{"i915", "a", 1}, {{"render", nanoseconds(10 + kSecond / 2)}, {"copy", nanoseconds(kSecond / 4)}}}};
  EXPECT_DOUBLE_EQ(clientBusySeconds(before, *after.begin(), 1.0), 0.75);
}

}  // namespace
}  // namespace monitor::platform
