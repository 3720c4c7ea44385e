// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/TakeoverRegistry.h"

#include <gmock/gmock.h>

#include "Platform/Linux/Audio/StreamTarget.h"
#include "Tests/Platform/Audio/GraphFixture.h"

namespace monitor::platform::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kOurs = "vesk-monitor.parking.5.1";

class TakeoverRegistryTest : public testing::Test {
 protected:
  TakeoverRegistryTest()
      : sink(fixture.addSink("a")), stream(fixture.addStream(fixture.addNativeClient(10))) {}

  static MetadataValue text(const std::string& value) { return {"Spa:String", value}; }
  void write(const std::optional<MetadataValue>& value) {
    fixture.graph.setMetadata(stream, "target.object", value);
    registry.targetWritten(fixture.graph, stream, value);
  }
  std::optional<std::string> toRestore() {
    const auto value = registry.targetToRestore(fixture.graph, stream);
    return value ? std::optional{value->text} : std::nullopt;
  }

  GraphFixture fixture;
  GlobalID sink;
  GlobalID stream;
  TakeoverRegistry registry;
};

TEST_F(TakeoverRegistryTest, ProcessHasOneHolderAndARefusedClaimHoldsNothing) {
  EXPECT_TRUE(registry.claim(100, {1, 2}));
  EXPECT_FALSE(registry.claim(101, {3, 2}));
  EXPECT_TRUE(registry.claim(102, {3}));
  EXPECT_FALSE(registry.claim(100, {1}));
  registry.release(100);
  EXPECT_TRUE(registry.claim(103, {1, 2}));
}

TEST_F(TakeoverRegistryTest, WishAtTheTimeOfParkingIsKept) {
  write(text("a"));
  registry.park(fixture.graph, stream);
  write(text(kOurs));
  EXPECT_EQ(toRestore(), "a");
}

TEST_F(TakeoverRegistryTest, OurOwnNamesAreNobodysWish) {
  write(text("vesk-monitor.parking.4.9"));
  EXPECT_EQ(registry.userTarget(fixture.graph, stream), std::nullopt);
  registry.park(fixture.graph, stream);
  EXPECT_EQ(toRestore(), std::nullopt);
}

TEST_F(TakeoverRegistryTest, LaterWishReplacesTheEarlierOneAndItsRemovalCounts) {
  registry.park(fixture.graph, stream);
  write(text(kOurs));
  write(text("b"));
  write(text(kOurs));
  EXPECT_EQ(toRestore(), "b");
  write(std::nullopt);
  EXPECT_EQ(toRestore(), std::nullopt);
}

TEST_F(TakeoverRegistryTest, WishSurvivesTheLossOfTheMetadata) {
  write(text("a"));
  registry.park(fixture.graph, stream);
  write(text(kOurs));
  fixture.graph.setMetadataPresent(false);
  EXPECT_EQ(toRestore(), "a");
}

TEST_F(TakeoverRegistryTest, WishOfAStreamParkedAgainBeforeTheServerAnsweredIsNotLost) {
  write(text("a"));
  registry.park(fixture.graph, stream);
  write(text(kOurs));
  registry.giveBack(fixture.graph, stream);
  registry.park(fixture.graph, stream);
  EXPECT_EQ(toRestore(), "a");
}

TEST_F(TakeoverRegistryTest, WishOfAStreamGivenBackIsThatOfTheMetadataAgain) {
  registry.park(fixture.graph, stream);
  write(text(kOurs));
  registry.giveBack(fixture.graph, stream);
  write(std::nullopt);
  write(text("b"));
  EXPECT_EQ(registry.userTarget(fixture.graph, stream)->text, "b");
  write(std::nullopt);
  EXPECT_EQ(registry.userTarget(fixture.graph, stream), std::nullopt);
}

TEST_F(TakeoverRegistryTest, StoredNodeIsRestoredByItsSerialUnlessItIsNoneOrGone) {
  EXPECT_EQ(toRestore(), std::nullopt);
  fixture.graph.setMetadata(stream, "target.node", text(std::to_string(sink)));
  EXPECT_EQ(toRestore(), std::to_string(GraphFixture::serialOf(sink)));
  for (const char* value : {"-1", "9999", "", "4294967295", "a"}) {
    fixture.graph.setMetadata(stream, "target.node", text(value));
    EXPECT_EQ(toRestore(), std::nullopt) << value;
  }
}

TEST_F(TakeoverRegistryTest, ReusedStreamIdHasNoWish) {
  write(text("a"));
  registry.park(fixture.graph, stream);
  fixture.graph.removeGlobal(stream);
  registry.prune(fixture.graph);
  fixture.graph.addGlobal(stream, GlobalKind::Node, {}, 0);
  EXPECT_EQ(toRestore(), std::nullopt);
}

TEST_F(TakeoverRegistryTest, StaleStreamsPointAtAParkingNodeThatIsGone) {
  write(text(kOurs));
  EXPECT_THAT(TakeoverRegistry::staleStreams(fixture.graph), ElementsAre(stream));
  EXPECT_FALSE(TakeoverRegistry::isParkedByOthers(fixture.graph, stream, "vesk-monitor.parking.6.1"));
  fixture.addNode({{"node.name", kOurs}});
  EXPECT_THAT(TakeoverRegistry::staleStreams(fixture.graph), IsEmpty());
  EXPECT_TRUE(TakeoverRegistry::isParkedByOthers(fixture.graph, stream, "vesk-monitor.parking.6.1"));
  EXPECT_FALSE(TakeoverRegistry::isParkedByOthers(fixture.graph, stream, kOurs));
  write(text("a"));
  EXPECT_THAT(TakeoverRegistry::staleStreams(fixture.graph), IsEmpty());
}

TEST(ParkingName, IsRecognisedAndNeverTheSameTwice) {
  EXPECT_NE(makeParkingName(5, 1), makeParkingName(5, 2));
  EXPECT_NE(makeParkingName(5, 11), makeParkingName(51, 1));
  EXPECT_TRUE(isParkingName(makeParkingName(5, 1)));
  EXPECT_FALSE(isParkingName("alsa_output.pci"));
  EXPECT_FALSE(isParkingName(""));
}

}  // namespace
}  // namespace monitor::platform::test
