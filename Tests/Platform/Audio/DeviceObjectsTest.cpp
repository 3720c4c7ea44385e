// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/DeviceObjects.h"

#include <gtest/gtest.h>

#include "Tests/Platform/Audio/GraphFixture.h"

namespace monitor::platform::test {
namespace {

TEST(DeviceObjects, SinkIsADeviceWithTheGraphsFormat) {
  GraphFixture fixture;
  ObjectIDs ids;
  DeviceObjects devices{ids};
  fixture.addSink("a");
  fixture.graph.setSetting("clock.rate", "44100");
  EXPECT_TRUE(devices.update(fixture.graph));
  const auto id = devices.withUID("a");
  ASSERT_TRUE(id);
  const AudioStreamFormat& format = devices.object(*id)->format;
  EXPECT_EQ(format.sampleRate, 44100.0);
  EXPECT_EQ(format.formatID, fourCharacterCode("lpcm"));
  EXPECT_EQ(format.formatFlags & 1U, 1U);
  EXPECT_EQ(format.bitsPerChannel, 32U);
  EXPECT_EQ(format.channelsPerFrame, 2U) << "monitor ports are no channels";
  EXPECT_FALSE(devices.update(fixture.graph)) << "nothing changed";
}

TEST(DeviceObjects, ChannelsAreThePlaybackPorts) {
  GraphFixture fixture;
  ObjectIDs ids;
  DeviceObjects devices{ids};
  const GlobalID sink = fixture.addNode({{"media.class", "Audio/Sink"}, {"node.name", "six"}});
  for (const char* channel : {"FL", "FR", "FC", "LFE", "RL", "RR"}) fixture.addPort(sink, "in", channel, 0);
  devices.update(fixture.graph);
  EXPECT_EQ(devices.object(*devices.withUID("six"))->format.channelsPerFrame, 6U);
}

TEST(DeviceObjects, DefaultDeviceFollowsTheMetadata) {
  GraphFixture fixture;
  ObjectIDs ids;
  DeviceObjects devices{ids};
  fixture.addSink("a");
  fixture.addSink("b");
  devices.update(fixture.graph);
  EXPECT_EQ(devices.defaultDevice(), 0U);
  fixture.setDefaultSink("b");
  EXPECT_TRUE(devices.update(fixture.graph));
  EXPECT_EQ(devices.defaultDevice(), *devices.withUID("b"));
  fixture.setDefaultSink("gone");
  EXPECT_TRUE(devices.update(fixture.graph));
  EXPECT_EQ(devices.defaultDevice(), 0U);
}

TEST(DeviceObjects, SinkThatCameBackUnderItsIdIsAnotherObject) {
  GraphFixture fixture;
  ObjectIDs ids;
  DeviceObjects devices{ids};
  const GlobalID sink = fixture.addSink("a");
  devices.update(fixture.graph);
  const auto before = *devices.withUID("a");
  fixture.graph.removeGlobal(sink);
  fixture.graph.addGlobal(sink, GlobalKind::Node, {{"media.class", "Audio/Sink"}, {"node.name", "a"}}, 0);
  EXPECT_TRUE(devices.update(fixture.graph));
  EXPECT_NE(*devices.withUID("a"), before);
  EXPECT_EQ(devices.object(before), nullptr);
}

TEST(DeviceObjects, OnlyNodesThatPlayAreDevices) {
  GraphFixture fixture;
  ObjectIDs ids;
  DeviceObjects devices{ids};
  fixture.addNode({{"media.class", "Audio/Source"}, {"node.name", "mic"}});
  fixture.addNode({{"media.class", "Audio/Input/Internal"}, {"node.name", "parking"}});
  fixture.addNode({{"node.name", "filter"}});
  fixture.addNode({{"media.class", "Audio/Duplex"}, {"node.name", "pro"}});
  devices.update(fixture.graph);
  EXPECT_EQ(devices.objects().size(), 1U);
  EXPECT_TRUE(devices.withUID("pro"));
}

}  // namespace
}  // namespace monitor::platform::test
