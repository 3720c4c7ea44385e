// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/StreamCapture.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <map>
#include <random>
#include <set>

#include "Tests/Platform/Audio/FakeSession.h"

namespace monitor::platform::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StreamCaptureTest : public testing::Test {
 protected:
  StreamCaptureTest() {
    // What must hold after every single event.
    session.afterUpdate = [this] {
      for (const GlobalID stream : session.streams) {
        if (session.gateOpen(stream)) {
          EXPECT_THAT(session.sinksOf(stream), IsEmpty()) << "the stream is heard twice";
        }
      }
    };
  }
  void TearDown() override {
    EXPECT_FALSE(session.gaveBackWhileOpen) << "both paths could have been heard, had the answer come late";
  }
  [[nodiscard]] AudioOutcome check() const {
    return checkCapture(session.fixture.graph, session.takeover,
                        {session.streams.begin(), session.streams.end()}, session.sinkA,
                        FakeSession::kParking);
  }
  [[nodiscard]] bool started() const {
    const auto outcome = session.capture.startOutcome();
    return outcome && outcome->ok();
  }

  FakeSession session;
};

TEST_F(StreamCaptureTest, PlayingStreamIsTakenOverAndGivenBack) {
  const GlobalID stream = session.open();
  session.settle();
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
  session.start();
  EXPECT_FALSE(started());
  session.settle();
  EXPECT_TRUE(started());
  EXPECT_TRUE(session.routed(stream));
  EXPECT_THAT(session.sinksOf(stream), IsEmpty());
  EXPECT_EQ(session.target(stream), FakeSession::kParking);
  session.release();
  EXPECT_FALSE(session.capture.released());
  session.settle();
  EXPECT_TRUE(session.capture.released());
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
  EXPECT_EQ(session.target(stream), std::nullopt);
  EXPECT_THAT(session.capture.wantedLinks(), IsEmpty());
  EXPECT_THAT(session.gates, IsEmpty());
}

TEST_F(StreamCaptureTest, GateIsClosedBeforeTheDirectPathIsAskedFor) {
  const GlobalID stream = session.open();
  session.settle();
  session.start();
  session.settle();
  ASSERT_TRUE(session.gateOpen(stream));
  session.release();
  EXPECT_FALSE(session.gateOpen(stream));
  EXPECT_EQ(session.target(stream), FakeSession::kParking) << "nobody has been told yet";
  EXPECT_THAT(session.capture.wantedLinks(), testing::SizeIs(2)) << "kept until the direct path is back";
}

TEST_F(StreamCaptureTest, PreparedStreamIsLinkedAndStaysDirectUntilTheStart) {
  const GlobalID stream = session.open();
  session.settle();
  session.capture.prepare();
  session.settle();
  EXPECT_THAT(session.capture.wantedLinks(), testing::SizeIs(2));
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
  EXPECT_THAT(session.gates, IsEmpty());
  EXPECT_EQ(session.targetsWritten, 0U);
  session.start();
  EXPECT_EQ(session.targetsWritten, 1U) << "without waiting for links";
  session.settle();
  EXPECT_TRUE(session.routed(stream));
}

TEST_F(StreamCaptureTest, PreparedStreamIsFreeAgainWhenTheCaptureNeverStarts) {
  const GlobalID stream = session.open();
  session.settle();
  session.capture.prepare();
  session.settle();
  session.release();
  session.settle();
  EXPECT_THAT(session.capture.wantedLinks(), IsEmpty());
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
  EXPECT_EQ(session.targetsWritten, 0U);
}

TEST_F(StreamCaptureTest, PreparedCaptureLeavesAStreamAloneThatIsNotLinkedYet) {
  session.capture.prepare();
  session.open();
  session.tell();
  EXPECT_THAT(session.capture.wantedLinks(), IsEmpty());
  EXPECT_EQ(session.targetsWritten, 0U);
}

TEST_F(StreamCaptureTest, LinkRefusedToAPreparedStreamFailsTheStart) {
  const GlobalID stream = session.open();
  session.settle();
  session.refuseLinks = true;
  session.capture.prepare();
  session.settle();
  session.start();
  const auto outcome = session.capture.startOutcome();
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->status, audiostatus::kLinkFailed);
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
}

TEST_F(StreamCaptureTest, NothingIsParkedBeforeTheParkingNodeIsReady) {
  session.parkingIsReady = false;
  const GlobalID playing = session.open();
  session.settle();
  session.start();
  session.settle();
  EXPECT_FALSE(session.capture.startOutcome());
  EXPECT_EQ(session.targetsWritten, 0U);
  const GlobalID later = session.open();
  session.settle();
  EXPECT_EQ(session.targetsWritten, 0U);
  session.parkingIsReady = true;
  session.settle();
  EXPECT_TRUE(started());
  EXPECT_TRUE(session.routed(playing));
  EXPECT_TRUE(session.routed(later));
}

TEST_F(StreamCaptureTest, StartOfASilentProgramWaitsForTheParkingNodeToo) {
  session.parkingIsReady = false;
  session.start();
  session.settle();
  EXPECT_FALSE(session.capture.startOutcome());
  session.parkingIsReady = true;
  EXPECT_TRUE(started());
}

TEST_F(StreamCaptureTest, SoundsWhileAStreamRunsThatIsLinkedToASlot) {
  const GlobalID stream = session.open();
  session.settle();
  session.fixture.graph.setNodeState(stream, NodeState::Running);
  EXPECT_FALSE(session.capture.sounds(session.fixture.graph)) << "not linked";
  session.start();
  session.settle();
  EXPECT_TRUE(session.capture.sounds(session.fixture.graph));
  session.fixture.graph.setNodeState(stream, NodeState::Idle);
  EXPECT_FALSE(session.capture.sounds(session.fixture.graph)) << "paused";
  session.fixture.graph.setNodeState(stream, NodeState::Running);
  session.move(stream, "b");
  session.settle();
  EXPECT_FALSE(session.capture.sounds(session.fixture.graph)) << "plays elsewhere";
}

TEST_F(StreamCaptureTest, PlayingStreamIsParkedOnlyWhenItsLinksAreReady) {
  const GlobalID stream = session.open();
  session.settle();
  session.start();
  while (!session.target(stream)) {
    ASSERT_TRUE(session.step());
    if (session.target(stream)) {
      for (const auto& [output, input] : session.capture.wantedLinks()) {
        EXPECT_EQ(static_cast<CaptureActions&>(session).linkState(output, input), LinkState::Ready);
      }
    }
  }
}

TEST_F(StreamCaptureTest, StreamThatIsNotLinkedYetIsParkedAtOnce) {
  session.start();
  session.settle();
  EXPECT_TRUE(started()) << "a silent program is captured too";
  bool direct = false;
  const GlobalID stream = session.open();
  session.afterUpdate = [&] { direct = direct || !session.sinksOf(stream).empty(); };
  session.settle();
  EXPECT_TRUE(session.routed(stream));
  EXPECT_FALSE(direct) << "the stream was never heard directly";
}

TEST_F(StreamCaptureTest, PulseStreamIsParkedOnlyAfterItsClientWasAnswered) {
  session.start();
  const GlobalID stream = session.open(true);
  while (session.sinksOf(stream).empty()) {
    ASSERT_TRUE(session.step());
    EXPECT_EQ(session.target(stream), std::nullopt);
  }
  session.settle();
  EXPECT_TRUE(session.routed(stream));
}

TEST_F(StreamCaptureTest, PulseStreamIsNotParkedBeforeItIsLinkedHoweverLongThatTakes) {
  session.streams.insert(session.fixture.addStream(session.pulseClient));
  session.start();
  session.pass(10.0);
  EXPECT_EQ(session.targetsWritten, 0U);
  EXPECT_EQ(session.capture.nextWake(), std::nullopt);
}

TEST_F(StreamCaptureTest, LinkedPulseStreamWithoutTheMarkIsParkedAfterAWhile) {
  GraphFixture& fixture = session.fixture;
  const GlobalID stream = fixture.addStream(session.pulseClient);
  fixture.addStereoPorts(stream, "out");
  fixture.addLink(fixture.graph.portsOf(stream, PortDirection::Output)[0],
                  fixture.graph.portsOf(session.sinkA, PortDirection::Input)[0]);
  session.streams.insert(stream);
  session.start();
  ASSERT_TRUE(session.capture.nextWake());
  EXPECT_NEAR(*session.capture.nextWake(), fixture.now + 0.3, 1e-9);
  session.pass(0.29);
  session.settle();
  EXPECT_EQ(session.targetsWritten, 0U);
  session.pass(0.02);
  session.settle();
  EXPECT_EQ(session.targetsWritten, 1U);
}

TEST_F(StreamCaptureTest, StreamWithAnotherTargetIsLeftAlone) {
  const GlobalID elsewhere = session.open(false, {{"target.object", "b"}});
  const GlobalID here = session.open();
  session.settle();
  EXPECT_TRUE(check().ok());
  session.start();
  session.settle();
  EXPECT_TRUE(started());
  EXPECT_THAT(session.sinksOf(elsewhere), ElementsAre(session.sinkB));
  EXPECT_EQ(session.target(elsewhere), std::nullopt);
  EXPECT_TRUE(session.routed(here));
}

TEST_F(StreamCaptureTest, NewStreamWithAnotherTargetIsNeverParked) {
  session.start();
  const GlobalID stream = session.open(false, {{"target.object", "b"}});
  session.settle();
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkB));
  EXPECT_EQ(session.targetsWritten, 0U);
}

TEST_F(StreamCaptureTest, TargetsOfTheUserAreGivenBack) {
  const std::string serialA = std::to_string(GraphFixture::serialOf(session.sinkA));
  const GlobalID stream = session.open();
  session.move(stream, serialA);
  session.settle();
  session.start();
  session.settle();
  EXPECT_TRUE(session.routed(stream));
  session.release();
  session.settle();
  EXPECT_EQ(session.target(stream), serialA);
}

TEST_F(StreamCaptureTest, StoredTargetOfTheUserIsWrittenBackBySerial) {
  const GlobalID stream = session.open();
  session.fixture.graph.setMetadata(stream, "target.node",
                                    MetadataValue{"Spa:Id", std::to_string(session.sinkA)});
  session.settle();
  session.start();
  session.settle();
  session.release();
  session.settle();
  EXPECT_EQ(session.target(stream), std::to_string(GraphFixture::serialOf(session.sinkA)));
}

TEST_F(StreamCaptureTest, FollowingTheDefaultIsNoTargetToWriteBack) {
  const GlobalID stream = session.open();
  session.fixture.graph.setMetadata(stream, "target.node", MetadataValue{"Spa:Id", "-1"});
  session.settle();
  session.start();
  session.settle();
  session.release();
  session.settle();
  EXPECT_EQ(session.target(stream), std::nullopt);
}

TEST_F(StreamCaptureTest, StreamMovedAwayByTheUserLeavesTheRouteAndMayComeBack) {
  const GlobalID stream = session.open();
  session.settle();
  session.start();
  session.settle();
  session.move(stream, "b");
  session.settle();
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkB));
  EXPECT_FALSE(session.gateOpen(stream));
  EXPECT_EQ(session.target(stream), "b");
  session.pass(1.0);
  session.move(stream, "a");
  session.settle();
  EXPECT_TRUE(session.routed(stream));
  session.release();
  session.settle();
  EXPECT_EQ(session.target(stream), "a") << "where the user put it last";
}

TEST_F(StreamCaptureTest, StreamMovedToTheSameOutputByTheUserIsParkedAgain) {
  const GlobalID stream = session.open();
  session.settle();
  session.start();
  session.settle();
  session.move(stream, "a");
  ASSERT_TRUE(session.step());
  EXPECT_FALSE(session.gateOpen(stream)) << "closed before the direct link can be made";
  session.settle();
  EXPECT_FALSE(session.gateOpen(stream)) << "the session manager may still be at it";
  ASSERT_TRUE(session.capture.nextWake());
  session.pass(0.02);
  EXPECT_TRUE(session.routed(stream));
  EXPECT_EQ(session.target(stream), FakeSession::kParking);
}

TEST_F(StreamCaptureTest, TargetRemovedByTheUserIsParkedAgainAndNotPutBack) {
  const GlobalID stream = session.open();
  session.move(stream, "a");
  session.settle();
  session.start();
  session.settle();
  session.move(stream, std::nullopt);
  session.settle();
  session.pass(0.02);
  EXPECT_TRUE(session.routed(stream));
  session.release();
  session.settle();
  EXPECT_EQ(session.target(stream), std::nullopt);
}

TEST_F(StreamCaptureTest, RestartedSessionManagerIsToldTheTargetAgain) {
  const GlobalID stream = session.open();
  session.move(stream, "a");
  session.settle();
  session.start();
  session.settle();
  session.restartSessionManager();
  session.settle();
  session.pass(0.02);
  session.settle();
  EXPECT_TRUE(session.routed(stream));
  EXPECT_EQ(session.target(stream), FakeSession::kParking);
  session.release();
  session.settle();
  EXPECT_EQ(session.target(stream), "a") << "remembered though the metadata was lost";
}

TEST_F(StreamCaptureTest, ReleaseDoesNotWaitForADirectLinkThatNobodyMakes) {
  const GlobalID stream = session.open();
  session.settle();
  session.start();
  session.settle();
  session.fixture.graph.setMetadataPresent(false);
  session.release();
  EXPECT_TRUE(session.capture.released());
  EXPECT_FALSE(session.gateOpen(stream));
}

TEST_F(StreamCaptureTest, EveryStreamHasAGateOfItsOwn) {
  const GlobalID first = session.open();
  session.settle();
  session.start();
  session.settle();
  const GlobalID second = session.open(true);
  bool closed = false;
  const auto invariant = session.afterUpdate;
  session.afterUpdate = [&] {
    invariant();
    closed = closed || !session.gateOpen(first);
  };
  session.settle();
  EXPECT_TRUE(session.routed(first));
  EXPECT_TRUE(session.routed(second));
  EXPECT_FALSE(closed) << "catching one stream mutes no other";
}

TEST_F(StreamCaptureTest, SixtyFourStreamsGetASlotEach) {
  session.afterUpdate = {};  // the walk over all pairs after each of some thousand events takes seconds
  for (int i = 0; i < 64; ++i) session.open(i % 2 == 1);
  session.settle();
  session.start();
  session.settle();
  EXPECT_TRUE(started());
  EXPECT_EQ(session.gates.size(), 64U);
  for (const GlobalID stream : session.streams) EXPECT_TRUE(session.routed(stream)) << stream;
}

TEST_F(StreamCaptureTest, SlotOfAClosedStreamIsUsedAgain) {
  session.start();
  for (int i = 0; i < 10; ++i) {
    const GlobalID stream = session.open();
    session.settle();
    EXPECT_TRUE(session.routed(stream));
    EXPECT_THAT(session.gates, ElementsAre(0U));
    session.close(stream);
    session.tell();
    EXPECT_THAT(session.gates, IsEmpty());
  }
}

TEST_F(StreamCaptureTest, MoreStreamsThanSlotsFailTheStart) {
  session.mostSlots = 1;
  session.open();
  session.open();
  session.settle();
  session.start();
  session.settle();
  const auto outcome = session.capture.startOutcome();
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->status, audiostatus::kTooManyStreams);
}

TEST_F(StreamCaptureTest, RefusedLinkFailsTheStartAndLeavesTheStreamDirect) {
  const GlobalID stream = session.open();
  session.settle();
  session.refuseLinks = true;
  session.start();
  session.settle();
  const auto outcome = session.capture.startOutcome();
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->status, audiostatus::kLinkFailed);
  EXPECT_EQ(session.targetsWritten, 0U);
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
}

TEST_F(StreamCaptureTest, ParkedStreamWhoseLinkIsRefusedIsGivenBack) {
  session.start();
  session.refuseLinks = true;
  const GlobalID stream = session.open();
  session.settle();
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA)) << "rather direct than silent";
}

TEST_F(StreamCaptureTest, MonoStreamFeedsEveryChannel) {
  GraphFixture& fixture = session.fixture;
  const GlobalID stream = fixture.addStream(session.client);
  const GlobalID port = fixture.addPort(stream, "out", "MONO", 0);
  for (const GlobalID input : fixture.graph.portsOf(session.sinkA, PortDirection::Input))
    fixture.addLink(port, input);
  session.streams.insert(stream);
  session.start();
  while (session.step()) {
  }
  EXPECT_EQ(session.capture.wantedLinks().size(), 2U);
  for (const auto& [output, input] : session.capture.wantedLinks()) EXPECT_EQ(output, port);
}

TEST_F(StreamCaptureTest, StreamWithoutChannelNamesIsLinkedInOrder) {
  GraphFixture& fixture = session.fixture;
  const GlobalID stream = fixture.addStream(session.client);
  const GlobalID first = fixture.addPort(stream, "out", "AUX0", 0);
  const GlobalID second = fixture.addPort(stream, "out", "AUX1", 1);
  fixture.addPort(stream, "out", "AUX2", 2);
  fixture.addLink(first, fixture.graph.portsOf(session.sinkA, PortDirection::Input)[0]);
  session.streams.insert(stream);
  session.start();
  while (session.step()) {
  }
  ASSERT_EQ(session.capture.wantedLinks().size(), 2U);
  EXPECT_EQ(session.capture.wantedLinks()[0].first, first);
  EXPECT_EQ(session.capture.wantedLinks()[1].first, second);
}

TEST_F(StreamCaptureTest, WholeProgramIsRefusedForOneStreamThatMayNotBeMoved) {
  session.open();
  EXPECT_TRUE(check().ok());
  for (const char* key : {"node.dont-reconnect", "node.dont-move"}) {
    const GlobalID fixed = session.open(false, {{key, "true"}, {"media.name", "Fixed"}});
    EXPECT_EQ(check().status, audiostatus::kNotMovable) << key;
    EXPECT_THAT(check().text, testing::HasSubstr("Fixed"));
    session.close(fixed);
  }
}

TEST_F(StreamCaptureTest, UnmovableStreamElsewhereIsNoReasonToRefuse) {
  session.open();
  session.open(false, {{"node.dont-reconnect", "true"}, {"target.object", "b"}});
  session.settle();
  EXPECT_TRUE(check().ok());
}

TEST_F(StreamCaptureTest, WholeProgramIsRefusedForOneEncodedStream) {
  const GlobalID stream = session.open();
  session.fixture.graph.setNodeCoding(stream, StreamCoding::Encoded);
  EXPECT_EQ(check().status, audiostatus::kNotPcm);
  session.fixture.graph.setNodeCoding(stream, StreamCoding::Pcm);
  EXPECT_TRUE(check().ok());
}

TEST_F(StreamCaptureTest, ProgramWithStreamsOnlyElsewhereIsRefusedAndASilentOneIsNot) {
  EXPECT_TRUE(check().ok());
  const GlobalID elsewhere = session.open(false, {{"target.object", "b"}});
  EXPECT_EQ(check().status, audiostatus::kNoStreamOnDevice) << "before it is linked";
  session.settle();
  EXPECT_EQ(check().status, audiostatus::kNoStreamOnDevice);
  session.close(elsewhere);
  EXPECT_TRUE(check().ok());
}

TEST_F(StreamCaptureTest, StreamThatAnotherServiceHoldsIsRefusedWhileThatServiceLives) {
  const GlobalID stream = session.open();
  const GlobalID foreign = session.fixture.addNode({{"node.name", "vesk-monitor.parking.77.1"}});
  session.fixture.graph.setMetadata(stream, "target.object",
                                    MetadataValue{"Spa:String", "vesk-monitor.parking.77.1"});
  EXPECT_EQ(check().status, audiostatus::kAlreadyTapped);
  session.fixture.graph.removeGlobal(foreign);
  EXPECT_TRUE(check().ok());
}

TEST_F(StreamCaptureTest, StreamThatTurnsOutToBeEncodedIsGivenBack) {
  session.start();
  const GlobalID stream = session.open();
  session.settle();
  EXPECT_TRUE(session.routed(stream));
  session.fixture.graph.setNodeCoding(stream, StreamCoding::Encoded);
  session.settle();
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
}

TEST_F(StreamCaptureTest, RecordersAndVisualisersOfAStreamAreNoDirectPath) {
  const GlobalID stream = session.open();
  session.settle();
  GraphFixture& fixture = session.fixture;
  const GlobalID recorder =
      fixture.addNode({{"media.class", "Stream/Input/Audio"}, {"node.name", "recorder"}});
  const GlobalID input = fixture.addPort(recorder, "in", "FL", 0);
  fixture.addLink(fixture.graph.portsOf(stream, PortDirection::Output)[0], input);
  session.start();
  session.settle();
  EXPECT_TRUE(session.routed(stream));
}

TEST_F(StreamCaptureTest, RouteThatWasStoppedMayStartAgainAtOnce) {
  const GlobalID stream = session.open();
  session.move(stream, "a");
  session.settle();
  for (int round = 0; round < 3; ++round) {
    session.start();
    session.settle();
    EXPECT_TRUE(session.routed(stream));
    session.release();
    for (int events = 0; events < round; ++events) session.step();
  }
  session.settle();
  EXPECT_EQ(session.target(stream), "a");
}

TEST_F(StreamCaptureTest, AbandonedCaptureClosesEveryGateAndStillAsksForTheDirectPath) {
  const GlobalID stream = session.open();
  session.settle();
  session.start();
  session.settle();
  session.capture.abandon(session.fixture.graph);
  EXPECT_THAT(session.gates, IsEmpty());
  EXPECT_THAT(session.capture.wantedLinks(), IsEmpty());
  session.settle();
  EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA));
}

// Programs, a user, a session manager that restarts and a route that comes and goes, in any order. After each
// event no stream is heard twice; once everything has settled each stream is where it belongs.
class RandomSession : public StreamCaptureTest, public testing::WithParamInterface<unsigned> {
 protected:
  void act(std::mt19937& random) {
    const auto pick = [&](unsigned count) {
      return std::uniform_int_distribution<unsigned>{0, count - 1}(random);
    };
    const auto anyStream = [&] {
      return *std::next(session.streams.begin(), pick(static_cast<unsigned>(session.streams.size())));
    };
    switch (pick(12)) {
      case 0:
      case 1:
        if (session.streams.size() < 6) session.open(pick(2) == 0);
        return;
      case 2:
        if (!session.streams.empty()) session.close(anyStream());
        return;
      case 3:
        if (!session.streams.empty()) moveByUser(anyStream(), pick(4));
        return;
      case 4:
        if (pick(3) == 0) {
          session.restartSessionManager();
          wishes_.clear();  // they were kept in the metadata
          lostWishes_ = true;
        }
        return;
      case 5:
        if (!session.capture.running()) session.start();
        return;
      case 6:
        if (session.capture.running()) session.release();
        return;
      default:
        for (unsigned steps = pick(8); steps > 0; --steps) session.step();
    }
  }
  void moveByUser(GlobalID stream, unsigned choice) {
    static const std::array<std::optional<std::string>, 4> kTargets{"a", "b", std::nullopt, "nowhere"};
    session.move(stream, kTargets.at(choice));
    // Of two moves that cross a release on their way nobody can tell which is lost.
    if (!moved_.insert(stream).second) uncertain_.insert(stream);
    wishes_[stream] = kTargets.at(choice);
  }
  void settle() {
    for (int round = 0; round < 4; ++round) {
      session.settle();
      session.pass(0.4);
    }
    session.settle();
    moved_.clear();
  }

  std::map<GlobalID, std::optional<std::string>> wishes_;
  std::set<GlobalID> moved_;
  std::set<GlobalID> uncertain_;
  bool lostWishes_ = false;
};

TEST_P(RandomSession, EndsWithEveryStreamWhereItBelongs) {
  std::mt19937 random{GetParam()};
  for (int actions = 0; actions < 80; ++actions) {
    act(random);
    if (actions % 10 != 9) continue;
    settle();
    ASSERT_FALSE(session.livelocked);
    for (const GlobalID stream : session.streams) {
      const auto target = session.target(stream);
      const bool movedAway = target == "b";
      if (movedAway) {
        EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkB)) << stream;
        EXPECT_FALSE(session.gateOpen(stream));
      } else if (session.capture.running()) {
        EXPECT_TRUE(session.routed(stream)) << stream;
        EXPECT_THAT(session.sinksOf(stream), IsEmpty()) << stream;
      } else {
        EXPECT_THAT(session.sinksOf(stream), ElementsAre(session.sinkA)) << stream;
        EXPECT_FALSE(session.gateOpen(stream));
        EXPECT_FALSE(target && isParkingName(*target)) << "our name is left behind";
        if (!lostWishes_ && wishes_.contains(stream) && !uncertain_.contains(stream)) {
          EXPECT_EQ(target, wishes_.at(stream)) << stream;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomSession,
                         testing::Range(1U, std::getenv("VESK_LONG") == nullptr ? 81U : 3001U));

}  // namespace
}  // namespace monitor::platform::test
