// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/StreamTarget.h"

#include <gmock/gmock.h>

#include "Tests/Platform/Audio/GraphFixture.h"

namespace monitor::platform::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StreamTargetTest : public testing::Test {
 protected:
  StreamTargetTest() {
    a = fixture.addSink("a");
    b = fixture.addSink("b");
    fixture.setDefaultSink("a");
    client = fixture.addNativeClient(10);
  }
  void link(GlobalID stream, GlobalID sink) {
    if (fixture.graph.portsOf(stream, PortDirection::Output).empty()) fixture.addStereoPorts(stream, "out");
    fixture.addLink(fixture.graph.portsOf(stream, PortDirection::Output)[0],
                    fixture.graph.portsOf(sink, PortDirection::Input)[0]);
  }
  [[nodiscard]] StreamPlace place(GlobalID stream) const {
    return placeOf(fixture.graph, stream, a, std::nullopt);
  }

  GraphFixture fixture;
  GlobalID a = 0, b = 0, client = 0;
};

TEST_F(StreamTargetTest, TargetsAreSerialsNamesOrPaths) {
  const GlobalID withPath = fixture.addNode({{"media.class", "Audio/Sink"}, {"object.path", "alsa:card:0"}});
  EXPECT_EQ(nodeOfTarget(fixture.graph, std::to_string(GraphFixture::serialOf(b))), b);
  EXPECT_EQ(nodeOfTarget(fixture.graph, "b"), b);
  EXPECT_EQ(nodeOfTarget(fixture.graph, "alsa:card:0"), withPath);
  for (const char* target : {"-1", "", "nowhere", "99999999999999999999"}) {
    EXPECT_EQ(nodeOfTarget(fixture.graph, target), std::nullopt) << target;
  }
  EXPECT_EQ(nodeOfTarget(fixture.graph, std::to_string(b)), std::nullopt) << "an id is no serial";
}

TEST_F(StreamTargetTest, UsersWishComesBeforeTheStoredOneAndThatBeforeTheProgramsOwn) {
  const GlobalID stream = fixture.addStream(client, {{"target.object", "b"}});
  EXPECT_EQ(wantedNode(fixture.graph, stream, std::nullopt), b);
  fixture.graph.setMetadata(stream, "target.node", MetadataValue{"Spa:Id", std::to_string(a)});
  EXPECT_EQ(wantedNode(fixture.graph, stream, std::nullopt), a);
  EXPECT_EQ(wantedNode(fixture.graph, stream, MetadataValue{"Spa:String", "b"}), b);
  EXPECT_EQ(wantedNode(fixture.graph, stream, MetadataValue{"Spa:String", "-1"}), std::nullopt);
  fixture.graph.setMetadata(stream, "target.node", MetadataValue{"Spa:Id", "-1"});
  EXPECT_EQ(wantedNode(fixture.graph, stream, std::nullopt), std::nullopt) << "it follows the default";
}

TEST_F(StreamTargetTest, OldPropertyNamesAnIdOrAName) {
  EXPECT_EQ(wantedNode(fixture.graph, fixture.addStream(client, {{"node.target", std::to_string(b)}}), {}),
            b);
  EXPECT_EQ(wantedNode(fixture.graph, fixture.addStream(client, {{"node.target", "b"}}), {}), b);
  EXPECT_EQ(wantedNode(fixture.graph, 9999, {}), std::nullopt);
}

TEST_F(StreamTargetTest, LinksDecideBeforeWishes) {
  const GlobalID stream = fixture.addStream(client, {{"target.object", "b"}});
  EXPECT_EQ(place(stream), StreamPlace::Elsewhere);
  link(stream, a);
  EXPECT_EQ(place(stream), StreamPlace::OnDevice);
  EXPECT_THAT(directSinks(fixture.graph, stream), ElementsAre(a));
}

TEST_F(StreamTargetTest, StreamOnTwoOutputsIsElsewhere) {
  const GlobalID stream = fixture.addStream(client);
  link(stream, a);
  link(stream, b);
  EXPECT_EQ(place(stream), StreamPlace::Elsewhere);
}

TEST_F(StreamTargetTest, UnlinkedStreamIsExpectedOnTheDefaultOutputOnly) {
  const GlobalID stream = fixture.addStream(client);
  EXPECT_EQ(place(stream), StreamPlace::Expected);
  fixture.setDefaultSink("b");
  EXPECT_EQ(place(stream), StreamPlace::Elsewhere);
  EXPECT_EQ(placeOf(fixture.graph, stream, a, MetadataValue{"Spa:String", "a"}), StreamPlace::Expected);
}

TEST_F(StreamTargetTest, TargetThatIsNotThereMeansTheDefaultOutput) {
  EXPECT_EQ(place(fixture.addStream(client, {{"target.object", "unplugged"}})), StreamPlace::Expected);
}

TEST_F(StreamTargetTest, LinksToOtherNodesAreNoDirectPath) {
  const GlobalID stream = fixture.addStream(client);
  fixture.addStereoPorts(stream, "out");
  const GlobalID filter = fixture.addNode({{"node.name", "filter"}});
  fixture.addStereoPorts(filter, "in");
  fixture.addLink(fixture.graph.portsOf(stream, PortDirection::Output)[0],
                  fixture.graph.portsOf(filter, PortDirection::Input)[0]);
  EXPECT_THAT(directSinks(fixture.graph, stream), IsEmpty());
}

TEST_F(StreamTargetTest, StreamsThatStayWhereTheyAreAreNotMovable) {
  EXPECT_TRUE(isMovable(*fixture.graph.node(fixture.addStream(client))));
  EXPECT_TRUE(isMovable(*fixture.graph.node(fixture.addStream(client, {{"node.dont-reconnect", "false"}}))));
  EXPECT_FALSE(isMovable(*fixture.graph.node(fixture.addStream(client, {{"node.dont-reconnect", "true"}}))));
  EXPECT_FALSE(isMovable(*fixture.graph.node(fixture.addStream(client, {{"node.dont-move", "1"}}))));
}

TEST_F(StreamTargetTest, StreamsAreCalledByWhatTheyPlay) {
  EXPECT_EQ(streamTitle(*fixture.graph.node(fixture.addStream(client, {{"media.name", "Song"}}))), "Song");
  EXPECT_EQ(streamTitle(*fixture.graph.node(fixture.addStream(client))), "player");
}

}  // namespace
}  // namespace monitor::platform::test
