// SPDX-License-Identifier: MIT
#include "MonitorMac/AudioClient.h"

#include <gmock/gmock.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Tests/Fakes/ScriptedAudioService.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor {
namespace {

using fakes::ScriptedAudioService;
using Kind = ScriptedAudioService::Kind;
using testing::ElementsAre;
using testing::SizeIs;

const AudioApplication kMusic{"org.example.music",        "Music", "org.example.music",
                              {{812, 5000}, {813, 6000}}, 1.0,     true};
constexpr const char* kListTimeout = "The audio service did not respond. Normal playback has been restored.";
constexpr const char* kGainTimeout = "The volume change timed out. App Volume has been turned off.";
// Just short of a deadline; virtual time makes "just" as small as one likes.
constexpr double kMoment = 1e-6;

struct ListResult {
  std::optional<std::vector<AudioApplication>> list;
  std::optional<std::string> message;
};

class AudioClientTest : public testing::Test {
 protected:
  AudioClientTest() {
    client_->onDisconnect = [this] { ++disconnects_; };
  }

  void askForList() {
    client_->applications([this](auto list, auto message) {
      lists_.push_back({std::move(list), std::move(message)});
    });
  }
  void askForGain(double gain) {
    client_->setGain(gain, kMusic, [this](auto message) { gains_.push_back(std::move(message)); });
  }
  ScriptedAudioService::Message& sent(std::size_t index) { return *service_.messages.at(index); }
  ScriptedAudioService::Connection& connection(std::size_t index) { return *service_.connections.at(index); }

  fakes::VirtualTime time_;
  ScriptedAudioService service_;
  std::shared_ptr<SerialQueue> queue_ = time_.makeQueue("main");
  std::shared_ptr<AudioClient> client_ = AudioClient::make(service_, queue_);
  std::vector<ListResult> lists_;
  std::vector<std::optional<std::string>> gains_;
  int disconnects_ = 0;
};

TEST_F(AudioClientTest, ConnectsToTheSignedAudioServiceOnce) {
  client_->connect();
  client_->connect();
  ASSERT_THAT(service_.connections, SizeIs(1));
  EXPECT_EQ(connection(0).serviceName, "app.vesk.native.monitor-audio");
  EXPECT_FALSE(connection(0).privileged);
  EXPECT_TRUE(connection(0).interfaceSet);
  EXPECT_EQ(connection(0).requirement, MonitorServiceIdentity::requirement(MonitorServiceIdentity::audio));
  EXPECT_TRUE(connection(0).resumed);
}

TEST_F(AudioClientTest, AListRequestConnectsAndGivesTheDecodedList) {
  askForList();
  ASSERT_THAT(service_.messages, SizeIs(1));
  EXPECT_EQ(sent(0).kind, Kind::Applications);
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  EXPECT_THAT(lists_, SizeIs(0)) << "replies belong on the main queue";
  time_.run();
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].list, std::vector<AudioApplication>{kMusic});
  EXPECT_EQ(lists_[0].message, std::nullopt);
}

TEST_F(AudioClientTest, AListMayComeWithAStandingMessage) {
  askForList();
  sent(0).applicationsReply(encodeApplications({}), "Something happened.");
  time_.run();
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].list, std::vector<AudioApplication>{});
  EXPECT_EQ(lists_[0].message, "Something happened.");
}

TEST_F(AudioClientTest, AFailedListGivesNothingAndTheMessage) {
  askForList();
  sent(0).applicationsReply(std::nullopt, "No audio.");
  time_.run();
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].list, std::nullopt);
  EXPECT_EQ(lists_[0].message, "No audio.");
}

TEST_F(AudioClientTest, AListThatCannotBeReadGivesNothing) {
  for (const char* bytes : {"", "{}", R"([{"id":"a","name":"A","processes":[],"gain":1}])", "[", "\xFF"}) {
    lists_.clear();
    askForList();
    service_.messages.back()->applicationsReply(Data(bytes), std::nullopt);
    time_.run();
    ASSERT_THAT(lists_, SizeIs(1)) << bytes;
    EXPECT_EQ(lists_[0].list, std::nullopt) << bytes;
  }
}

TEST_F(AudioClientTest, AGainRequestCarriesTheProcessesUnchanged) {
  askForGain(0.4);
  ASSERT_THAT(service_.messages, SizeIs(1));
  EXPECT_EQ(sent(0).kind, Kind::SetGain);
  EXPECT_EQ(sent(0).gain, 0.4);
  EXPECT_EQ(decodeProcessKeys(sent(0).processes), kMusic.processes);
  sent(0).setGainReply(std::nullopt);
  EXPECT_THAT(gains_, SizeIs(0));
  time_.run();
  EXPECT_THAT(gains_, ElementsAre(std::nullopt));
}

TEST_F(AudioClientTest, AGainIsSentAsItIs) {
  askForGain(1.5);
  EXPECT_EQ(sent(0).gain, 1.5);
}

TEST_F(AudioClientTest, ARefusedGainGivesTheServicesText) {
  askForGain(0.4);
  sent(0).setGainReply("This audio app changed or closed. Refresh the app list.");
  time_.run();
  EXPECT_THAT(gains_, ElementsAre("This audio app changed or closed. Refresh the app list."));
}

TEST_F(AudioClientTest, AListRequestTimesOutAtFiveSeconds) {
  askForList();
  time_.advance(5.0 - kMoment);
  EXPECT_THAT(lists_, SizeIs(0));
  time_.advance(kMoment);
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].list, std::nullopt);
  EXPECT_EQ(lists_[0].message, kListTimeout);
  EXPECT_EQ(connection(0).invalidations, 0) << "a list that is late stops nothing";
}

TEST_F(AudioClientTest, AReplyJustBeforeTheTimeOutCounts) {
  askForList();
  askForGain(0.4);
  time_.advance(5.0 - kMoment);
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  sent(1).setGainReply(std::nullopt);
  time_.advance(10.0);
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].message, std::nullopt);
  EXPECT_THAT(gains_, ElementsAre(std::nullopt));
  EXPECT_THAT(service_.messages, SizeIs(2)) << "no stop was sent";
}

TEST_F(AudioClientTest, AReplyAfterItsTimeOutIsDropped) {
  askForList();
  time_.advance(5.0);
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  time_.run();
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].message, kListTimeout);
}

TEST_F(AudioClientTest, AReplyQueuedBehindTheTimeOutIsDropped) {
  askForList();
  time_.advance(4.0);
  // Both are due at the same moment; the time-out was submitted first.
  const auto transport = time_.makeQueue("transport");
  transport->submitAfter(1.0, [&] { sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt); });
  time_.advance(1.0);
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].message, kListTimeout);
}

TEST_F(AudioClientTest, AGainThatTimesOutTurnsEverythingOff) {
  askForGain(0.4);
  time_.advance(5.0 - kMoment);
  EXPECT_THAT(gains_, SizeIs(0));
  time_.advance(kMoment);
  EXPECT_THAT(gains_, ElementsAre(kGainTimeout));
  ASSERT_THAT(service_.messages, SizeIs(2));
  EXPECT_EQ(sent(1).kind, Kind::Stop);
  EXPECT_EQ(sent(1).connection, 0U);
  sent(0).setGainReply(std::nullopt);
  time_.advance(10.0);
  EXPECT_THAT(gains_, SizeIs(1)) << "completed twice";
  EXPECT_EQ(connection(0).invalidations, 1);
}

TEST_F(AudioClientTest, AGainTimeOutTellsTheCallerBeforeItStops) {
  std::size_t messagesAtCompletion = 0;
  client_->setGain(0.4, kMusic, [&](const auto&) { messagesAtCompletion = service_.messages.size(); });
  time_.advance(5.0);
  EXPECT_EQ(messagesAtCompletion, 1U);
  EXPECT_THAT(service_.messages, SizeIs(2));
}

TEST_F(AudioClientTest, AProxyErrorGivesItsText) {
  askForList();
  askForGain(0.4);
  sent(0).errorHandler({"org.example", 1, "The service went away."});
  sent(1).errorHandler({"org.example", 2, "The service is not there."});
  time_.run();
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].list, std::nullopt);
  EXPECT_EQ(lists_[0].message, "The service went away.");
  EXPECT_THAT(gains_, ElementsAre("The service is not there."));
  time_.advance(10.0);
  EXPECT_THAT(service_.messages, SizeIs(2)) << "an error is no time-out and stops nothing";
}

TEST_F(AudioClientTest, AnErrorAfterTheReplyChangesNothing) {
  askForList();
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  sent(0).errorHandler({"org.example", 1, "Too late."});
  time_.advance(10.0);
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].message, std::nullopt);
}

TEST_F(AudioClientTest, AReplyAfterTheErrorChangesNothing) {
  askForGain(0.4);
  sent(0).errorHandler({"org.example", 1, "Refused."});
  sent(0).setGainReply(std::nullopt);
  time_.advance(10.0);
  EXPECT_THAT(gains_, ElementsAre("Refused."));
}

TEST_F(AudioClientTest, APeerThatDoesNotSpeakTheProtocolTimesOut) {
  service_.speaksProtocol = false;
  askForList();
  askForGain(0.4);
  time_.advance(5.0);
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].message, kListTimeout);
  EXPECT_THAT(gains_, ElementsAre(kGainTimeout));
  time_.advance(1.0);
  EXPECT_EQ(connection(0).invalidations, 1);
}

TEST_F(AudioClientTest, StopSendsTheStopAndInvalidatesOneSecondLater) {
  client_->connect();
  client_->stop();
  ASSERT_THAT(service_.messages, SizeIs(1));
  EXPECT_EQ(sent(0).kind, Kind::Stop);
  EXPECT_FALSE(sent(0).errorHandler) << "nothing is awaited";
  time_.advance(1.0 - kMoment);
  EXPECT_EQ(connection(0).invalidations, 0);
  time_.advance(kMoment);
  EXPECT_EQ(connection(0).invalidations, 1);
  EXPECT_EQ(disconnects_, 0) << "a stop is no loss";
  EXPECT_TRUE(connection(0).client.expired());
}

TEST_F(AudioClientTest, StopWithoutAConnectionDoesNothing) {
  client_->stop();
  time_.advance(10.0);
  EXPECT_THAT(service_.connections, SizeIs(0));
  EXPECT_THAT(service_.messages, SizeIs(0));
}

TEST_F(AudioClientTest, AfterStopATimeOutOfAnEarlierRequestDoesNothing) {
  askForList();
  askForGain(0.4);
  client_->stop();
  time_.advance(10.0);
  EXPECT_THAT(lists_, SizeIs(0));
  EXPECT_THAT(gains_, SizeIs(0));
  EXPECT_THAT(service_.messages, SizeIs(3)) << "the stop was sent once";
}

TEST_F(AudioClientTest, AfterStopRepliesAndErrorsOfEarlierRequestsAreIgnored) {
  askForList();
  askForGain(0.4);
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  client_->stop();  // while the first reply is on its way to the main queue
  sent(1).errorHandler({"org.example", 1, "Late."});
  time_.run();
  EXPECT_THAT(lists_, SizeIs(0));
  EXPECT_THAT(gains_, SizeIs(0));
}

TEST_F(AudioClientTest, AfterStopTheNextRequestUsesANewConnection) {
  askForList();
  client_->stop();
  askForList();
  ASSERT_THAT(service_.connections, SizeIs(2));
  EXPECT_EQ(sent(2).connection, 1U);
  time_.advance(1.0);
  EXPECT_EQ(connection(0).invalidations, 1);
  EXPECT_EQ(connection(1).invalidations, 0);
  sent(2).applicationsReply(encodeApplications({}), std::nullopt);
  time_.run();
  EXPECT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(disconnects_, 0);
}

TEST_F(AudioClientTest, AnInterruptionAndALaterInvalidationDisconnectOnce) {
  client_->connect();
  service_.interrupt(0);
  EXPECT_EQ(disconnects_, 0) << "handlers belong on the main queue";
  time_.run();
  EXPECT_EQ(disconnects_, 1);
  EXPECT_EQ(connection(0).invalidations, 1);
  service_.invalidate(0);
  time_.run();
  EXPECT_EQ(disconnects_, 1);
}

TEST_F(AudioClientTest, AnInterruptionAndAnInvalidationAtOnceDisconnectOnce) {
  client_->connect();
  service_.interrupt(0);
  service_.invalidate(0);
  time_.run();
  EXPECT_EQ(disconnects_, 1);
  EXPECT_TRUE(connection(0).client.expired());
}

TEST_F(AudioClientTest, AnInvalidationAloneDisconnects) {
  client_->connect();
  service_.invalidate(0);
  time_.run();
  EXPECT_EQ(disconnects_, 1);
}

TEST_F(AudioClientTest, ADisconnectSilencesTheRequestsOfTheLostConnection) {
  askForList();
  askForGain(0.4);
  service_.interrupt(0);
  time_.run();
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  sent(1).errorHandler({"org.example", 1, "Late."});
  time_.advance(10.0);
  EXPECT_THAT(lists_, SizeIs(0));
  EXPECT_THAT(gains_, SizeIs(0));
  EXPECT_THAT(service_.messages, SizeIs(2)) << "the time-out of the lost gain stopped the successor";
}

TEST_F(AudioClientTest, AnErrorThatComesBeforeTheDisconnectIsReported) {
  askForGain(0.4);
  sent(0).errorHandler({"org.example", 1, "The service ended."});
  service_.interrupt(0);
  time_.run();
  EXPECT_THAT(gains_, ElementsAre("The service ended."));
  EXPECT_EQ(disconnects_, 1);
}

TEST_F(AudioClientTest, ReconnectsAfterADisconnect) {
  client_->connect();
  service_.interrupt(0);
  time_.run();
  askForList();
  ASSERT_THAT(service_.connections, SizeIs(2));
  service_.interrupt(0);  // the old connection has no say any more
  time_.run();
  EXPECT_EQ(disconnects_, 1);
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  time_.run();
  EXPECT_THAT(lists_, SizeIs(1));
  service_.interrupt(1);
  time_.run();
  EXPECT_EQ(disconnects_, 2);
}

TEST_F(AudioClientTest, TheOwnerMayReconnectAndReplaceItsHandlerFromWithinIt) {
  client_->onDisconnect = [this] {
    ++disconnects_;
    client_->onDisconnect = nullptr;
    askForList();
  };
  client_->connect();
  service_.interrupt(0);
  time_.run();
  EXPECT_EQ(disconnects_, 1);
  ASSERT_THAT(service_.messages, SizeIs(1));
  EXPECT_EQ(sent(0).connection, 1U);
}

TEST_F(AudioClientTest, ReleasingTheClientSilencesItsPendingRequestsAndEndsTheConnection) {
  askForList();
  askForGain(0.4);
  client_.reset();
  EXPECT_EQ(connection(0).invalidations, 1);
  EXPECT_TRUE(connection(0).client.expired());
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  sent(1).setGainReply(std::nullopt);
  time_.advance(10.0);
  EXPECT_THAT(lists_, SizeIs(0));
  EXPECT_THAT(gains_, SizeIs(0));
  EXPECT_EQ(disconnects_, 0);
  EXPECT_THAT(service_.messages, SizeIs(2));
}

TEST_F(AudioClientTest, ReleasingTheClientWhileAReplyIsOnItsWayIsHarmless) {
  askForList();
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  client_.reset();
  time_.run();
  EXPECT_THAT(lists_, SizeIs(0));
}

TEST_F(AudioClientTest, ReleasingTheClientRightAfterStopStillInvalidatesTheConnection) {
  client_->connect();
  client_->stop();
  client_.reset();
  EXPECT_EQ(connection(0).invalidations, 0);
  time_.advance(1.0);
  EXPECT_EQ(connection(0).invalidations, 1);
}

TEST_F(AudioClientTest, AnOpenRequestKeepsNoQueue) {
  askForList();
  askForGain(0.4);
  const std::weak_ptr<SerialQueue> queue = queue_;
  queue_.reset();
  client_.reset();
  EXPECT_TRUE(queue.expired());
  sent(0).applicationsReply(encodeApplications({kMusic}), std::nullopt);
  time_.advance(10.0);
  EXPECT_THAT(lists_, SizeIs(0));
}

TEST_F(AudioClientTest, TheCallerMayReleaseTheClientFromACompletion) {
  client_->setGain(0.4, kMusic, [this](auto message) {
    gains_.push_back(std::move(message));
    client_.reset();
  });
  time_.advance(5.0);
  EXPECT_THAT(gains_, ElementsAre(kGainTimeout));
  ASSERT_THAT(service_.messages, SizeIs(2));
  EXPECT_EQ(sent(1).kind, Kind::Stop);
}

TEST_F(AudioClientTest, RequestsOfOneConnectionCompleteIndependently) {
  askForList();
  askForGain(0.4);
  askForGain(0.6);
  sent(2).setGainReply("Second.");
  sent(1).setGainReply("First.");
  sent(0).applicationsReply(encodeApplications({}), std::nullopt);
  time_.run();
  EXPECT_THAT(gains_, ElementsAre("Second.", "First."));
  EXPECT_THAT(lists_, SizeIs(1));
}

using AudioClientDeathTest = AudioClientTest;

TEST_F(AudioClientDeathTest, TrapsWhenTheGenerationsAreUsedUp) {
  const auto last = std::numeric_limits<std::int64_t>::max();
  const auto client = AudioClient::make(service_, time_.makeQueue("main"), last - 1);
  client->stop();
  EXPECT_DEATH(client->stop(), "");
}

}  // namespace
}  // namespace monitor
