// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/GraphModel.h"

#include <gmock/gmock.h>

#include "Tests/Platform/Audio/GraphFixture.h"

namespace monitor::platform::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(GraphModel, ReadsWholeNumbersOnly) {
  EXPECT_EQ(parseNumber("0"), 0U);
  EXPECT_EQ(parseNumber("18446744073709551615"), 18446744073709551615U);
  for (const char* text : {"", "-1", "1 ", " 1", "1.0", "0x1", "18446744073709551616"}) {
    EXPECT_EQ(parseNumber(text), std::nullopt) << text;
  }
}

TEST(GraphModel, PortsOfADirectionComeInTheirOwnOrderWithoutMonitors) {
  GraphFixture fixture;
  const GlobalID sink = fixture.addNode({{"media.class", "Audio/Sink"}});
  const GlobalID right = fixture.addPort(sink, "in", "FR", 1);
  const GlobalID left = fixture.addPort(sink, "in", "FL", 0);
  fixture.addPort(sink, "out", "FL", 0, true);
  EXPECT_THAT(fixture.graph.portsOf(sink, PortDirection::Input), ElementsAre(left, right));
  EXPECT_THAT(fixture.graph.portsOf(sink, PortDirection::Output), IsEmpty());
}

TEST(GraphModel, PortAndLinkAnnouncedBeforeTheirNodeBelongToIt) {
  GraphFixture fixture;
  const GlobalID sink = fixture.addSink("a");
  GraphModel& graph = fixture.graph;
  graph.addGlobal(3, GlobalKind::Port, {{"node.id", "5"}, {"port.direction", "out"}}, 0);
  graph.addGlobal(4, GlobalKind::Link,
                  {{"link.output.node", "5"},
                   {"link.output.port", "3"},
                   {"link.input.node", std::to_string(sink)},
                   {"link.input.port", "41"}},
                  0);
  graph.addGlobal(5, GlobalKind::Node, {{"media.class", "Stream/Output/Audio"}}, 0);
  EXPECT_THAT(graph.portsOf(5, PortDirection::Output), ElementsAre(3));
  EXPECT_THAT(graph.node(5)->linksOut, ElementsAre(4));
}

TEST(GraphModel, RemovedPortsAndLinksLeaveTheirNode) {
  GraphFixture fixture;
  const GlobalID sink = fixture.addSink("a");
  const GlobalID stream = fixture.addStream(fixture.addNativeClient(5));
  const GlobalID port = fixture.addPort(stream, "out", "FL", 0);
  const GlobalID link = fixture.addLink(port, fixture.graph.portsOf(sink, PortDirection::Input)[0]);
  EXPECT_THAT(fixture.graph.node(stream)->linksOut, ElementsAre(link));
  fixture.graph.removeGlobal(link);
  fixture.graph.removeGlobal(port);
  EXPECT_THAT(fixture.graph.node(stream)->linksOut, IsEmpty());
  EXPECT_THAT(fixture.graph.node(stream)->ports, IsEmpty());
}

TEST(GraphModel, ReusedIdIsAnotherIncarnationWithoutTheOldMetadata) {
  GraphFixture fixture;
  const GlobalID stream = fixture.addStream(fixture.addNativeClient(5));
  const auto before = fixture.graph.node(stream)->incarnation;
  fixture.graph.setMetadata(stream, "target.object", MetadataValue{"Spa:String", "x"});
  fixture.graph.removeGlobal(stream);
  fixture.graph.addGlobal(stream, GlobalKind::Node, {}, 0);
  EXPECT_NE(fixture.graph.node(stream)->incarnation, before);
  EXPECT_EQ(fixture.graph.metadata(stream, "target.object"), nullptr);
}

TEST(GraphModel, MetadataWrittenBeforeItsSubjectIsAnnouncedIsKept) {
  GraphModel graph;
  graph.setMetadata(90, "target.object", MetadataValue{"Spa:String", "x"});
  graph.addGlobal(90, GlobalKind::Node, {}, 0);
  ASSERT_NE(graph.metadata(90, "target.object"), nullptr);
}

TEST(GraphModel, MetadataOfASubjectGoesAllAtOnceAndAlone) {
  GraphModel graph;
  for (const GlobalID subject : {1U, 2U, 3U}) {
    graph.setMetadata(subject, "a", MetadataValue{"", "1"});
    graph.setMetadata(subject, "b", MetadataValue{"", "2"});
  }
  graph.setMetadata(2, std::nullopt, std::nullopt);
  EXPECT_EQ(graph.metadata(2, "a"), nullptr);
  EXPECT_EQ(graph.metadata(2, "b"), nullptr);
  EXPECT_NE(graph.metadata(1, "b"), nullptr);
  EXPECT_NE(graph.metadata(3, "a"), nullptr);
  graph.setMetadataPresent(false);
  EXPECT_THAT(graph.allMetadata(), IsEmpty());
}

TEST(GraphModel, DefaultSinkIsTheSinkOfThatNameAndNoOtherNode) {
  GraphFixture fixture;
  fixture.addNode({{"media.class", "Audio/Source"}, {"node.name", "b"}});
  const GlobalID sink = fixture.addSink("b");
  EXPECT_EQ(fixture.graph.defaultSink(), std::nullopt);
  fixture.setDefaultSink("b");
  EXPECT_EQ(fixture.graph.defaultSink(), sink);
  fixture.setDefaultSink("c");
  EXPECT_EQ(fixture.graph.defaultSink(), std::nullopt);
}

TEST(GraphModel, DefaultDeviceValueThatIsNoObjectWithANameNamesNothing) {
  EXPECT_EQ(defaultDeviceName(R"({ "name": "a \"b\"" })"), "a \"b\"");
  for (const char* text : {"", "{", "[]", "\"a\"", "{}", R"({"name":5})", "null"}) {
    EXPECT_EQ(defaultDeviceName(text), "") << text;
  }
}

TEST(GraphModel, RateIsTheForcedOneThenTheConfiguredOneThenTheUsualOne) {
  GraphModel graph;
  EXPECT_EQ(graph.rate(), 48000.0);
  graph.setSetting("clock.rate", "44100");
  EXPECT_EQ(graph.rate(), 44100.0);
  graph.setSetting("clock.force-rate", "0");
  EXPECT_EQ(graph.rate(), 44100.0);
  graph.setSetting("clock.force-rate", "96000");
  EXPECT_EQ(graph.rate(), 96000.0);
  graph.setSetting("clock.force-rate", std::nullopt);
  graph.setSetting("clock.rate", "nonsense");
  EXPECT_EQ(graph.rate(), 48000.0);
}

TEST(GraphModel, AnnouncementsWithoutTheirNumbersAreDropped) {
  GraphModel graph;
  graph.addGlobal(1, GlobalKind::Port, {{"port.direction", "in"}}, 0);
  graph.addGlobal(2, GlobalKind::Port, {{"node.id", "9"}, {"port.direction", "up"}}, 0);
  graph.addGlobal(3, GlobalKind::Port, {{"node.id", "4294967295"}, {"port.direction", "in"}}, 0);
  graph.addGlobal(4, GlobalKind::Link, {{"link.output.node", "1"}}, 0);
  for (const GlobalID id : {1U, 2U, 3U}) EXPECT_EQ(graph.port(id), nullptr) << id;
  EXPECT_EQ(graph.link(4), nullptr);
  graph.describeNode(77, {});
  graph.describeClient(77, {});
  graph.setNodeState(77, NodeState::Running);
  graph.removeGlobal(77);
  EXPECT_THAT(graph.nodes(), IsEmpty());
}

TEST(GraphModel, ClearedGraphStartsAgainWithNewIncarnations) {
  GraphFixture fixture;
  const GlobalID sink = fixture.addSink("a");
  const auto before = fixture.graph.node(sink)->incarnation;
  fixture.setDefaultSink("a");
  fixture.graph.clear();
  EXPECT_THAT(fixture.graph.nodes(), IsEmpty());
  EXPECT_FALSE(fixture.graph.metadataPresent());
  fixture.graph.addGlobal(sink, GlobalKind::Node, {}, 0);
  EXPECT_GT(fixture.graph.node(sink)->incarnation, before);
}

TEST(GraphModel, FindsNodesByNameAndSerial) {
  GraphFixture fixture;
  const GlobalID sink = fixture.addSink("a");
  EXPECT_EQ(fixture.graph.nodeNamed("a"), sink);
  EXPECT_EQ(fixture.graph.nodeNamed(""), std::nullopt);
  EXPECT_EQ(fixture.graph.nodeWithSerial(GraphFixture::serialOf(sink)), sink);
  EXPECT_EQ(fixture.graph.nodeWithSerial(1), std::nullopt);
}

}  // namespace
}  // namespace monitor::platform::test
