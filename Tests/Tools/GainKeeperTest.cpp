// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/GainKeeper.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Tests/Fakes/ScriptedAudioService.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor::vesk {
namespace {

using fakes::ScriptedAudioService;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// An audio service with programs and gains, which answers at once unless it hangs. A gain ends with its
// connection.
class PretendService {
 public:
  PretendService() {
    wire.onMessage = [this](const auto& message) {
      ++calls[message->kind];
      if (!hangs) answer(*message);
    };
  }

  void play(const AudioApplication& app) { programs.push_back(app); }
  void endProgram(const std::string& id) {
    std::erase_if(programs, [&](const auto& app) { return app.id == id; });
  }
  AudioApplication& program(const std::string& id) {
    return *std::find_if(programs.begin(), programs.end(), [&](const auto& app) { return app.id == id; });
  }
  double gainOf(const std::string& id) { return program(id).gain; }
  void loseRoutes() {
    for (AudioApplication& app : programs) app.gain = 1.0;
  }
  void crash() {
    loseRoutes();
    wire.interrupt(wire.connections.size() - 1);
  }
  int count(ScriptedAudioService::Kind kind) { return calls[kind]; }

  ScriptedAudioService wire;
  std::vector<AudioApplication> programs;
  std::map<ScriptedAudioService::Kind, int> calls;
  bool hangs = false;
  std::optional<std::string> listFailure;
  std::optional<std::string> gainFailure;
  std::optional<std::string> standingMessage;

 private:
  void answer(const ScriptedAudioService::Message& message) {
    switch (message.kind) {
      case ScriptedAudioService::Kind::Applications:
        if (listFailure) {
          message.applicationsReply(std::nullopt, listFailure);
        } else {
          message.applicationsReply(encodeApplications(programs), standingMessage);
        }
        break;
      case ScriptedAudioService::Kind::SetGain:
        message.setGainReply(set(message));
        break;
      case ScriptedAudioService::Kind::Stop:
        loseRoutes();
        message.stopReply();
        break;
    }
  }
  std::optional<std::string> set(const ScriptedAudioService::Message& message) {
    if (gainFailure) return gainFailure;
    const auto keys = decodeProcessKeys(message.processes);
    for (AudioApplication& app : programs) {
      if (app.processes != keys) continue;
      app.gain = message.gain;
      return std::nullopt;
    }
    return "This audio app changed or closed. Refresh the app list.";
  }
};

class PretendPresence final : public ProgramPresence {
 public:
  void saw(const AudioApplication& app) override { living.insert(app.id); }
  bool lives(const AudioApplication& app) override { return living.contains(app.id); }
  void forget(const std::string& id) override { living.erase(id); }

  std::set<std::string> living;
};

constexpr const char* kMusic = "org.example.music";
constexpr const char* kRadio = "org.example.radio";
constexpr auto kApplications = ScriptedAudioService::Kind::Applications;
constexpr auto kSetGain = ScriptedAudioService::Kind::SetGain;
constexpr auto kStop = ScriptedAudioService::Kind::Stop;

class GainKeeperTest : public testing::Test {
 protected:
  GainKeeperTest() {
    service_.play({kMusic, "Music", kMusic, {{100, 1}, {101, 2}}, 1.0, true});
    service_.play({kRadio, "Radio", kRadio, {{200, 3}}, 1.0, true});
    makeKeeper();
  }

  void makeKeeper() {
    keeper_ = std::make_unique<GainKeeper>(
        AudioClient::make(service_.wire, queue_),
        GainKeeper::Surroundings{queue_, clock_, wallClock_, presence_, [this](auto reply) {
                                   ++causesAsked_;
                                   if (cause_) reply(*cause_);
                                 }});
    keeper_->onIdle = [this] { ++idles_; };
    keeper_->onEvent = [this](const std::string& text) { events_.push_back(text); };
  }

  void set(const std::string& id, double gain) {
    keeper_->setGain(id, gain, [this](const auto& answer) { answers_.push_back(answer.error); });
  }
  void release(const std::string& id) {
    keeper_->release(id, [this](const auto& answer) { answers_.push_back(answer.error); });
  }
  void list() {
    keeper_->list([this](auto answer) { lists_.push_back(std::move(answer)); });
  }
  void hold(const std::string& id, double gain) {
    set(id, gain);
    time_.run();
    ASSERT_EQ(service_.gainOf(id), gain);
    answers_.clear();
  }
  HoldState stateOf(const std::string& id) {
    for (const HeldGain& held : keeper_->status().held) {
      if (held.app.id == id) return held.state;
    }
    ADD_FAILURE() << id << " is not held";
    return HoldState::Active;
  }
  std::vector<std::string> heldIds() {
    std::vector<std::string> ids;
    for (const HeldGain& held : keeper_->status().held) ids.push_back(held.app.id);
    return ids;
  }
  // The agent stood still: its clock went on, nothing of it ran.
  void standStill(double seconds) {
    clock_.offset += seconds;
    service_.loseRoutes();
  }

  fakes::VirtualTime time_;
  fakes::FakeClock clock_{time_};
  fakes::FakeWallClock wallClock_{time_};
  std::shared_ptr<SerialQueue> queue_ = time_.makeQueue("agent");
  PretendService service_;
  PretendPresence presence_;
  std::optional<std::string> cause_ = "No such device.";
  int causesAsked_ = 0;
  int idles_ = 0;
  std::vector<std::string> answers_;
  std::vector<GainKeeper::ListAnswer> lists_;
  std::vector<std::string> events_;
  std::unique_ptr<GainKeeper> keeper_;
};

// Requests

TEST_F(GainKeeperTest, ListsWhatTheServiceLists) {
  service_.standingMessage = "Something happened.";
  list();
  time_.run();
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].list, service_.programs);
  EXPECT_EQ(lists_[0].message, "Something happened.");
}

TEST_F(GainKeeperTest, AFailedListCarriesTheServicesTextAndTheCause) {
  service_.listFailure = "Audio access failed.";
  list();
  time_.run();
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].list, std::nullopt);
  EXPECT_EQ(lists_[0].message, "Audio access failed.");
  EXPECT_EQ(lists_[0].cause, "No such device.");
  EXPECT_EQ(keeper_->status().lastError, "Audio access failed.");
  EXPECT_EQ(keeper_->status().lastCause, "No such device.");
}

TEST_F(GainKeeperTest, ACauseThatNeverComesIsWaitedForOneSecond) {
  cause_.reset();
  service_.listFailure = "Audio access failed.";
  list();
  time_.advance(0.999);
  EXPECT_THAT(lists_, IsEmpty());
  time_.advance(0.001);
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].message, "Audio access failed.");
  EXPECT_EQ(lists_[0].cause, "");
}

TEST_F(GainKeeperTest, AServiceThatHangsIsReportedAfterFiveSecondsAndNotAskedForACause) {
  service_.hangs = true;
  list();
  time_.advance(5.0);
  ASSERT_THAT(lists_, SizeIs(1));
  EXPECT_EQ(lists_[0].message, "The audio service did not respond. Normal playback has been restored.");
  EXPECT_EQ(causesAsked_, 0);
}

TEST_F(GainKeeperTest, SetsAGainOnTheProcessesListedNow) {
  service_.program(kMusic).processes = {{100, 1}, {102, 9}};
  set(kMusic, 0.4);
  time_.run();
  EXPECT_THAT(answers_, ElementsAre(""));
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
  EXPECT_THAT(heldIds(), ElementsAre(kMusic));
  EXPECT_EQ(stateOf(kMusic), HoldState::Active);
}

TEST_F(GainKeeperTest, RefusesAProgramThatIsNotListedInTheServicesWords) {
  set("org.example.nothing", 0.4);
  time_.run();
  EXPECT_THAT(answers_, ElementsAre("This audio app changed or closed. Refresh the app list."));
  EXPECT_THAT(heldIds(), IsEmpty());
}

TEST_F(GainKeeperTest, RefusesGainsOutOfRangeWithoutAskingTheService) {
  for (const double gain :
       {-0.001, 1.001, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    set(kMusic, gain);
  }
  EXPECT_THAT(answers_, SizeIs(4));
  EXPECT_EQ(answers_[0], "A gain is a number from 0 to 1.");
  time_.run();
  EXPECT_THAT(service_.wire.messages, IsEmpty());
}

TEST_F(GainKeeperTest, ARefusedGainIsNotHeldAndTheEarlierOneStays) {
  hold(kMusic, 0.4);
  service_.gainFailure = "Use a stereo output.";
  std::vector<GainKeeper::Answer> full;
  keeper_->setGain(kMusic, 0.6, [&](const auto& answer) { full.push_back(answer); });
  time_.run();
  ASSERT_THAT(full, SizeIs(1));
  EXPECT_EQ(full[0].error, "Use a stereo output.");
  EXPECT_EQ(full[0].cause, "No such device.");
  ASSERT_THAT(keeper_->status().held, SizeIs(1));
  EXPECT_EQ(keeper_->status().held[0].gain, 0.4);
}

TEST_F(GainKeeperTest, RequestsAreAnsweredInTheirOrder) {
  set(kMusic, 0.4);
  set(kMusic, 0.6);
  release(kMusic);
  set(kMusic, 0.2);
  time_.run();
  EXPECT_THAT(answers_, ElementsAre("", "", "", ""));
  EXPECT_EQ(service_.gainOf(kMusic), 0.2);
  EXPECT_EQ(keeper_->status().held.at(0).gain, 0.2);
}

// Holding

TEST_F(GainKeeperTest, AsksForTheListEveryTwoSecondsWhileItHoldsAGain) {
  time_.advance(60.0);
  EXPECT_EQ(service_.count(kApplications), 0) << "nothing is held yet";
  hold(kMusic, 0.4);
  const int before = service_.count(kApplications);
  time_.advance(1.999);
  EXPECT_EQ(service_.count(kApplications), before);
  time_.advance(0.001);
  EXPECT_EQ(service_.count(kApplications), before + 1);
  time_.advance(58.0);
  EXPECT_EQ(service_.count(kApplications), before + 30);
  EXPECT_EQ(service_.count(kSetGain), 1);
  EXPECT_THAT(events_, IsEmpty());
}

TEST_F(GainKeeperTest, FullVolumeReleasesAndEndsThePolling) {
  hold(kMusic, 0.4);
  set(kMusic, 1.0);
  time_.run();
  EXPECT_THAT(answers_, ElementsAre(""));
  EXPECT_EQ(service_.gainOf(kMusic), 1.0);
  EXPECT_THAT(heldIds(), IsEmpty());
  const int before = service_.count(kApplications);
  time_.advance(9.0);
  EXPECT_EQ(service_.count(kApplications), before);
}

TEST_F(GainKeeperTest, AProgramThatEndedIsNoLongerHeld) {
  hold(kMusic, 0.4);
  service_.endProgram(kMusic);
  presence_.living.clear();
  time_.advance(2.0);
  EXPECT_THAT(heldIds(), IsEmpty());
  EXPECT_THAT(events_, ElementsAre("Music ended; its volume of 40 % is no longer held."));
}

TEST_F(GainKeeperTest, AProgramThatLeftTheAudioServerGetsItsGainBackWhenItReturns) {
  hold(kMusic, 0.4);
  const AudioApplication music = service_.program(kMusic);
  service_.endProgram(kMusic);
  time_.advance(10.0);
  EXPECT_EQ(stateOf(kMusic), HoldState::Waiting);
  EXPECT_THAT(events_, ElementsAre("Music has no audio now; its volume of 40 % is set again when it has."));
  service_.play({kMusic, "Music", kMusic, {{100, 1}, {150, 9}}, 1.0, true});
  time_.advance(2.0);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
  EXPECT_EQ(stateOf(kMusic), HoldState::Active);
  EXPECT_THAT(events_, ElementsAre(testing::_, HasSubstr("is set again")));
}

TEST_F(GainKeeperTest, TheGainOfAProgramThatIsAwayCanBeChangedAndReleased) {
  hold(kMusic, 0.4);
  service_.endProgram(kMusic);
  time_.advance(2.0);
  set(kMusic, 0.7);
  time_.run();
  EXPECT_THAT(answers_, ElementsAre(""));
  EXPECT_EQ(keeper_->status().held.at(0).gain, 0.7);
  set(kMusic, 1.0);
  time_.run();
  EXPECT_THAT(answers_, ElementsAre("", ""));
  EXPECT_THAT(heldIds(), IsEmpty());
}

TEST_F(GainKeeperTest, AProcessSetThatTheServiceFollowedNeedsNothing) {
  hold(kMusic, 0.4);
  service_.program(kMusic).processes.push_back({103, 7});
  time_.advance(10.0);
  EXPECT_EQ(service_.count(kSetGain), 1);
  EXPECT_THAT(keeper_->status().held.at(0).app.processes, SizeIs(3));
  EXPECT_THAT(events_, IsEmpty());
}

// Losses

TEST_F(GainKeeperTest, ALostRouteIsSetAgainAndSaidToBe) {
  hold(kMusic, 0.4);
  service_.loseRoutes();
  service_.standingMessage = "Audio routing stopped responding. Normal playback has been restored.";
  time_.advance(2.0);
  EXPECT_EQ(stateOf(kMusic), HoldState::Lost);
  EXPECT_EQ(service_.gainOf(kMusic), 1.0);
  time_.advance(0.5);
  time_.run();
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
  EXPECT_EQ(stateOf(kMusic), HoldState::Active);
  EXPECT_THAT(
      events_,
      ElementsAre("Audio routing stopped responding. Normal playback has been restored.",
                  "Music: the volume of 40 % was lost (Audio routing stopped responding. Normal playback "
                  "has been restored.) and is set again."));
}

TEST_F(GainKeeperTest, AStandingMessageIsToldOnce) {
  hold(kMusic, 0.4);
  service_.standingMessage = "Output changed. This output format is not supported.";
  time_.advance(20.0);
  EXPECT_THAT(events_, SizeIs(1));
}

TEST_F(GainKeeperTest, ALossThatTheServiceRepairsItselfIsLeftToIt) {
  hold(kMusic, 0.4);
  // The output device changes just before a list; the service restores its routes 0.4 s later.
  time_.advance(1.9);
  service_.loseRoutes();
  queue_->submitAfter(0.4, [this] { service_.program(kMusic).gain = 0.4; });
  time_.advance(10.0);
  EXPECT_EQ(service_.count(kSetGain), 1);
  EXPECT_EQ(stateOf(kMusic), HoldState::Active);
  EXPECT_THAT(events_, IsEmpty());
}

TEST_F(GainKeeperTest, AServiceThatDiedIsConnectedAgainAndEveryGainSetAgain) {
  hold(kMusic, 0.4);
  hold(kRadio, 0.0);
  service_.crash();
  time_.advance(0.4);
  EXPECT_EQ(service_.gainOf(kMusic), 1.0);
  time_.advance(0.2);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
  EXPECT_EQ(service_.gainOf(kRadio), 0.0);
  EXPECT_THAT(service_.wire.connections, SizeIs(2));
  EXPECT_THAT(events_,
              ElementsAre("The audio service ended. Normal playback has been restored.",
                          "Music: the volume of 40 % was lost (the audio service ended) and is set again.",
                          "Radio: the volume of 0 % was lost (the audio service ended) and is set again."));
}

TEST_F(GainKeeperTest, ALossWithNothingHeldIsNothingToTell) {
  list();
  time_.run();
  service_.crash();
  time_.advance(5.0);
  EXPECT_THAT(events_, IsEmpty());
  EXPECT_THAT(service_.wire.connections, SizeIs(1));
}

TEST_F(GainKeeperTest, ARequestUnderWayWhenTheServiceDiesIsAnsweredOnce) {
  service_.hangs = true;
  set(kMusic, 0.4);
  list();
  time_.advance(1.0);
  service_.hangs = false;
  service_.crash();
  time_.advance(20.0);
  EXPECT_THAT(answers_, ElementsAre("The audio service ended. Normal playback has been restored."));
  ASSERT_THAT(lists_, SizeIs(1)) << "what was still queued goes to the new service";
  EXPECT_TRUE(lists_[0].list.has_value());
}

TEST_F(GainKeeperTest, AnAgentThatStoodStillSaysSoAndSetsItsGainsAgain) {
  hold(kMusic, 0.4);
  time_.advance(10.0);
  standStill(12.0);
  time_.advance(3.0);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
  ASSERT_THAT(events_, SizeIs(1));
  EXPECT_THAT(events_[0], HasSubstr("was lost (the agent stood still for 14 s) and is set again"));
}

TEST_F(GainKeeperTest, AShortPauseIsNoStandstill) {
  hold(kMusic, 0.4);
  clock_.offset += 3.9;
  time_.advance(10.0);
  EXPECT_EQ(service_.count(kSetGain), 1);
  EXPECT_THAT(events_, IsEmpty());
}

TEST_F(GainKeeperTest, SettingAgainThatFailsBacksOffAndIsToldOnce) {
  hold(kMusic, 0.4);
  service_.loseRoutes();
  service_.gainFailure = "Use a stereo output.";
  std::vector<double> attempts;
  const auto answer = service_.wire.onMessage;
  service_.wire.onMessage = [&](const auto& message) {
    if (message->kind == kSetGain) attempts.push_back(time_.now());
    answer(message);
  };
  time_.advance(40.0);
  ASSERT_GE(attempts.size(), 6U);
  // 0.5 s after the loss was seen at 2.0 s, then 2, 4, 8, 8 … seconds apart.
  EXPECT_NEAR(attempts[0], 2.5, 0.01);
  EXPECT_NEAR(attempts[1] - attempts[0], 2.0, 0.01);
  EXPECT_NEAR(attempts[2] - attempts[1], 4.0, 0.01);
  EXPECT_NEAR(attempts[3] - attempts[2], 8.0, 0.01);
  EXPECT_NEAR(attempts[4] - attempts[3], 8.0, 0.01);
  EXPECT_NEAR(attempts[5] - attempts[4], 8.0, 0.01);
  EXPECT_THAT(
      events_,
      ElementsAre("Music: the volume of 40 % was lost and could not be set again: Use a stereo output."));
  service_.gainFailure.reset();
  time_.advance(10.0);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
}

TEST_F(GainKeeperTest, AGainThatIsLostAgainAndAgainIsRetriedLessOften) {
  hold(kMusic, 0.4);
  for (int loss = 0; loss < 6; ++loss) {
    service_.loseRoutes();
    time_.advance(12.0);
    ASSERT_EQ(service_.gainOf(kMusic), 0.4);
  }
  service_.loseRoutes();
  time_.advance(7.0);
  EXPECT_EQ(service_.gainOf(kMusic), 1.0);
  time_.advance(5.0);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
  // After a minute without a loss the next one is repaired at once.
  time_.advance(62.0);
  service_.loseRoutes();
  time_.advance(2.6);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
}

TEST_F(GainKeeperTest, AServiceThatRefusesEveryListIsAskedNoMoreThanEveryTwoSeconds) {
  hold(kMusic, 0.4);
  service_.crash();
  service_.listFailure = "Audio access failed.";
  const int before = service_.count(kApplications);
  time_.advance(20.0);
  EXPECT_LE(service_.count(kApplications) - before, 12);
  EXPECT_THAT(heldIds(), ElementsAre(kMusic));
  service_.listFailure.reset();
  time_.advance(2.0);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
}

TEST_F(GainKeeperTest, AUsersChangeThatTimesOutTurnsEverythingOffForGood) {
  hold(kMusic, 0.4);
  hold(kRadio, 0.5);
  const auto answer = service_.wire.onMessage;
  service_.wire.onMessage = [&](const auto& message) {
    service_.hangs = message->kind == kSetGain;
    answer(message);
  };
  set(kMusic, 0.6);
  time_.advance(30.0);
  EXPECT_THAT(answers_, ElementsAre("The volume change timed out. App Volume has been turned off."));
  EXPECT_EQ(service_.count(kStop), 1);
  EXPECT_THAT(heldIds(), IsEmpty());
  EXPECT_EQ(service_.gainOf(kRadio), 1.0);
}

TEST_F(GainKeeperTest, ARepairThatTimesOutIsTriedAgain) {
  hold(kMusic, 0.4);
  service_.loseRoutes();
  const auto answer = service_.wire.onMessage;
  service_.wire.onMessage = [&](const auto& message) {
    service_.hangs = message->kind == kSetGain;
    answer(message);
  };
  time_.advance(8.0);
  EXPECT_THAT(events_, ElementsAre(HasSubstr("could not be set again: The volume change timed out.")));
  EXPECT_THAT(heldIds(), ElementsAre(kMusic));
  service_.wire.onMessage = answer;
  service_.hangs = false;
  time_.advance(10.0);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
}

TEST_F(GainKeeperTest, ARepairUnderWayWhenTheServiceDiesIsTriedAgain) {
  hold(kMusic, 0.4);
  service_.loseRoutes();
  time_.advance(2.4);
  service_.hangs = true;
  time_.advance(0.2);
  service_.hangs = false;
  service_.crash();
  time_.advance(10.0);
  EXPECT_EQ(service_.gainOf(kMusic), 0.4);
}

TEST_F(GainKeeperTest, AGainThatNobodyHoldsIsTakenBack) {
  hold(kRadio, 0.5);
  service_.program(kMusic).gain = 0.3;
  time_.advance(2.0);
  EXPECT_EQ(service_.gainOf(kMusic), 1.0);
  EXPECT_EQ(service_.gainOf(kRadio), 0.5);
}

// Letting go

TEST_F(GainKeeperTest, ReleasingOneLeavesTheOthers) {
  hold(kMusic, 0.4);
  hold(kRadio, 0.5);
  release(kMusic);
  time_.advance(10.0);
  EXPECT_THAT(answers_, ElementsAre(""));
  EXPECT_EQ(service_.gainOf(kMusic), 1.0);
  EXPECT_EQ(service_.gainOf(kRadio), 0.5);
  EXPECT_EQ(service_.count(kStop), 0);
  EXPECT_THAT(heldIds(), ElementsAre(kRadio));
}

TEST_F(GainKeeperTest, ReleasingTheLastNeedsNoAnswerFromTheService) {
  hold(kMusic, 0.4);
  service_.hangs = true;
  release(kMusic);
  EXPECT_THAT(answers_, ElementsAre(""));
  EXPECT_EQ(service_.count(kStop), 1);
  EXPECT_THAT(heldIds(), IsEmpty());
}

TEST_F(GainKeeperTest, ReleasingWhatIsNotHeldSucceeds) {
  release(kMusic);
  release("org.example.nothing");
  time_.run();
  EXPECT_THAT(answers_, ElementsAre("", ""));
}

TEST_F(GainKeeperTest, StoppingEverythingWaitsForNothing) {
  hold(kMusic, 0.4);
  service_.hangs = true;
  set(kRadio, 0.5);
  set(kMusic, 0.6);
  list();
  time_.run();
  keeper_->stopAll();
  EXPECT_THAT(answers_,
              ElementsAre("App Volume was turned off meanwhile.", "App Volume was turned off meanwhile."));
  EXPECT_EQ(service_.count(kStop), 1);
  EXPECT_THAT(heldIds(), IsEmpty());
  service_.hangs = false;
  time_.advance(20.0);
  EXPECT_THAT(answers_, SizeIs(2));
  ASSERT_THAT(lists_, SizeIs(1)) << "lists are asked anew";
  EXPECT_TRUE(lists_[0].list.has_value());
}

TEST_F(GainKeeperTest, ALateCauseOfAnAbandonedRequestAnswersNothing) {
  cause_.reset();
  service_.listFailure = "Audio access failed.";
  list();
  time_.advance(0.5);  // the list has failed, its cause is awaited
  service_.listFailure.reset();
  service_.hangs = true;
  keeper_->stopAll();
  time_.advance(1.0);
  EXPECT_THAT(lists_, IsEmpty()) << "the new request is still open";
  time_.advance(5.0);
  EXPECT_THAT(lists_, SizeIs(1));
}

// Leaving

TEST_F(GainKeeperTest, IsIdleTenSecondsAfterTheLastUse) {
  keeper_->touch();
  time_.advance(9.0);
  list();
  time_.advance(9.999);
  EXPECT_EQ(idles_, 0);
  time_.advance(0.001);
  EXPECT_EQ(idles_, 1);
  time_.advance(60.0);
  EXPECT_EQ(idles_, 1);
}

TEST_F(GainKeeperTest, IsNotIdleWhileItHoldsAGainOrARequestIsUnderWay) {
  hold(kMusic, 0.4);
  time_.advance(120.0);
  EXPECT_EQ(idles_, 0);
  service_.hangs = true;
  set(kMusic, 1.0);
  time_.advance(4.9);
  EXPECT_FALSE(keeper_->isIdle());
}

TEST_F(GainKeeperTest, BecomesIdleWhenItsLastProgramEnds) {
  hold(kMusic, 0.4);
  time_.advance(30.0);
  service_.endProgram(kMusic);
  presence_.living.clear();
  time_.advance(2.0);
  EXPECT_TRUE(keeper_->isIdle());
  time_.advance(9.999);
  EXPECT_EQ(idles_, 0);
  time_.advance(0.001);
  EXPECT_EQ(idles_, 1);
}

TEST_F(GainKeeperTest, ReleasingTheKeeperSilencesEverything) {
  hold(kMusic, 0.4);
  service_.hangs = true;
  set(kRadio, 0.5);
  list();
  time_.run();
  keeper_.reset();
  time_.advance(30.0);
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_THAT(lists_, IsEmpty());
  EXPECT_EQ(idles_, 0);
}

// Status

TEST_F(GainKeeperTest, TheStatusTellsWhatIsHeldAndWhatHappened) {
  EXPECT_EQ(keeper_->status().secondsSinceAnswer, std::nullopt);
  hold(kMusic, 0.4);
  time_.advance(1.5);
  const GainKeeper::Status status = keeper_->status();
  EXPECT_EQ(status.secondsSinceAnswer, 1.5);
  ASSERT_THAT(status.held, SizeIs(1));
  EXPECT_EQ(status.held[0].gain, 0.4);
  EXPECT_EQ(status.held[0].app.name, "Music");
  EXPECT_EQ(status.lastError, "");
  service_.loseRoutes();
  time_.advance(3.0);
  ASSERT_THAT(keeper_->status().events, SizeIs(1));
  EXPECT_THAT(keeper_->status().events[0].text, HasSubstr("is set again"));
  EXPECT_EQ(keeper_->status().events[0].time, wallClock_.base.addingSeconds(2.5));
}

TEST_F(GainKeeperTest, KeepsTheLastTwentyEvents) {
  hold(kMusic, 0.4);
  for (int index = 0; index < 25; ++index) {
    service_.standingMessage = "Message " + std::to_string(index);
    time_.advance(2.0);
  }
  ASSERT_THAT(keeper_->status().events, SizeIs(20));
  EXPECT_EQ(keeper_->status().events.front().text, "Message 5");
  EXPECT_EQ(keeper_->status().events.back().text, "Message 24");
}

TEST_F(GainKeeperTest, ASuccessEndsTheLastError) {
  service_.listFailure = "Audio access failed.";
  list();
  time_.run();
  service_.listFailure.reset();
  list();
  time_.run();
  EXPECT_EQ(keeper_->status().lastError, "");
  EXPECT_EQ(keeper_->status().lastCause, "");
}

}  // namespace
}  // namespace monitor::vesk
