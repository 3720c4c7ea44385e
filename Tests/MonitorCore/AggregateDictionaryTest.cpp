// SPDX-License-Identifier: MIT
#include "MonitorCore/AggregateDictionary.h"

#include <gtest/gtest.h>

namespace monitor {
namespace {

TEST(AggregateDictionaryTest, HoldsExactlyTheEightKeysInOrderWithTheirTypes) {
  const AggregateDeviceDescription description{
      .name = "Quorvantis private app output",
      .uid = "11111111-2222-3333-4444-555555555555",
      .isPrivate = true,
      .isStacked = false,
      .master = "BuiltInSpeaker",
      .subdevices = {{"BuiltInSpeaker", 0, 2}},
      .taps = {{"66666666-7777-8888-9999-000000000000", true}},
      .tapAutoStart = false,
  };
  const DescriptionDictionary subdevice{
      {"uid", {std::string("BuiltInSpeaker")}}, {"channels-in", {0U}}, {"channels-out", {2U}}};
  const DescriptionDictionary tap{{"uid", {std::string("66666666-7777-8888-9999-000000000000")}},
                                  {"drift", {true}}};
  const DescriptionDictionary expected{
      {"name", {std::string("Quorvantis private app output")}},
      {"uid", {std::string("11111111-2222-3333-4444-555555555555")}},
      {"private", {true}},
      {"stacked", {false}},
      {"master", {std::string("BuiltInSpeaker")}},
      {"subdevices", {std::vector<DescriptionValue>{{subdevice}}}},
      {"taps", {std::vector<DescriptionValue>{{tap}}}},
      {"tapautostart", {false}},
  };
  EXPECT_EQ(aggregateDictionary(description), expected);
}

}  // namespace
}  // namespace monitor
