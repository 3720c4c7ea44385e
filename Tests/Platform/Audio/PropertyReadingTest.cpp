// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/PropertyReading.h"

#include <gtest/gtest.h>

#include <cstring>

namespace monitor::platform::test {
namespace {

ObjectTable sampleTable() {
  ObjectTable table;
  table.processes = {{2, 10, true}, {5, 11, false}};
  table.devices[3] = {50, 1, "a", graphFormat(48000, 2)};
  table.taps[6] = graphFormat(44100, 2);
  table.aggregates[7] = "uid";
  table.defaultDevice = 3;
  return table;
}

template <typename Value>
Value valueOf(const std::vector<std::byte>& bytes, std::size_t index = 0) {
  Value value{};
  EXPECT_GE(bytes.size(), (index + 1) * sizeof value);
  std::memcpy(&value, bytes.data() + index * sizeof value, sizeof value);
  return value;
}

TEST(PropertyReading, EveryObjectAnswersItsOwnPropertiesOnly) {
  using enum PropertyKind;
  const ObjectTable table = sampleTable();
  EXPECT_EQ(propertyKind(table, 1, audio::kProcessObjectList), List);
  EXPECT_EQ(propertyKind(table, 1, audio::kDefaultOutputDevice), Fixed);
  EXPECT_EQ(propertyKind(table, 1, audio::kProcessPID), Unknown);
  EXPECT_EQ(propertyKind(table, 2, audio::kProcessPID), Fixed);
  EXPECT_EQ(propertyKind(table, 2, audio::kProcessIsRunningOutput), Fixed);
  EXPECT_EQ(propertyKind(table, 2, audio::kProcessBundleID), Text);
  EXPECT_EQ(propertyKind(table, 2, audio::kProcessObjectList), Unknown);
  EXPECT_EQ(propertyKind(table, 3, audio::kDeviceUID), Text);
  EXPECT_EQ(propertyKind(table, 3, audio::kStreamFormat), Fixed);
  EXPECT_EQ(propertyKind(table, 6, audio::kTapFormat), Fixed);
  EXPECT_EQ(propertyKind(table, 6, audio::kStreamFormat), Unknown);
  EXPECT_EQ(propertyKind(table, 7, audio::kDeviceUID), Text);
  EXPECT_EQ(propertyKind(table, 99, audio::kProcessPID), Unknown);
}

TEST(PropertyReading, ScopeAndElementArePartOfTheProperty) {
  const ObjectTable table = sampleTable();
  EXPECT_EQ(propertyKind(table, 3, {audio::kStreamFormat.selector, audio::kScopeGlobal, 0}),
            PropertyKind::Unknown);
  EXPECT_EQ(propertyKind(table, 1, {audio::kProcessObjectList.selector, audio::kScopeGlobal, 1}),
            PropertyKind::Unknown);
}

TEST(PropertyReading, ValuesHaveTheirStatedShapes) {
  const ObjectTable table = sampleTable();
  const auto list = propertyBytes(table, 1, audio::kProcessObjectList);
  ASSERT_EQ(list.size(), 8U);
  EXPECT_EQ(valueOf<AudioObjectID>(list, 0), 2U);
  EXPECT_EQ(valueOf<AudioObjectID>(list, 1), 5U);
  EXPECT_EQ(valueOf<AudioObjectID>(propertyBytes(table, 1, audio::kDefaultOutputDevice)), 3U);
  EXPECT_EQ(valueOf<std::int32_t>(propertyBytes(table, 2, audio::kProcessPID)), 10);
  EXPECT_EQ(valueOf<std::uint32_t>(propertyBytes(table, 2, audio::kProcessIsRunningOutput)), 1U);
  EXPECT_EQ(valueOf<std::uint32_t>(propertyBytes(table, 5, audio::kProcessIsRunningOutput)), 0U);
  EXPECT_EQ(valueOf<AudioStreamFormat>(propertyBytes(table, 3, audio::kStreamFormat)), graphFormat(48000, 2));
  EXPECT_EQ(valueOf<AudioStreamFormat>(propertyBytes(table, 6, audio::kTapFormat)), graphFormat(44100, 2));
}

}  // namespace
}  // namespace monitor::platform::test
