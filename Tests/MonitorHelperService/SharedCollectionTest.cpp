// SPDX-License-Identifier: MIT
#include "MonitorHelperService/SharedCollection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "MonitorCore/MonitorError.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tests/MonitorHelperService/HeldWorker.h"

namespace monitor {
namespace {

constexpr std::uint32_t kAnna = 1000;
constexpr std::uint32_t kBert = 1001;
constexpr std::uint32_t kCleo = 1002;

struct Answer {
  std::string who;
  std::optional<AdvancedSample> sample;
  std::optional<std::string> message;
};

class SharedCollectionTest : public ::testing::Test {
 protected:
  // Calls as `who`, who stays until forget().
  void call(std::uint32_t user, const std::string& who) {
    auto caller = std::make_shared<int>(0);
    collection->request(user, caller, [this, who](const auto& data, const auto& message) {
      answers.push_back({who, data ? std::optional(decodeAdvancedSample(*data)) : std::nullopt, message});
    });
    callers.emplace_back(who, std::move(caller));
    time.run();
  }
  void forget(const std::string& who) {
    std::erase_if(callers, [&](const auto& entry) { return entry.first == who; });
  }
  // Lets the run under way end after `seconds`.
  void endRunAfter(double seconds) {
    time.advance(seconds);
    worker->endOne();
    time.run();
  }
  [[nodiscard]] std::string answered() const {
    std::string names;
    for (const Answer& answer : answers) names += (names.empty() ? "" : " ") + answer.who;
    return names;
  }

  fakes::VirtualTime time;
  fakes::FakeClock clock{time};
  std::shared_ptr<tests::HeldWorker> worker = std::make_shared<tests::HeldWorker>();
  std::vector<std::uint32_t> runs;                     // whom each ended run was for
  std::vector<std::uint32_t> refused;                  // users who may not collect
  std::function<void(AdvancedSample&)> duringCollect;  // may throw
  std::vector<std::pair<std::string, std::shared_ptr<int>>> callers;
  std::vector<Answer> answers;
  std::shared_ptr<SharedCollection> collection = std::make_shared<SharedCollection>(SharedCollection::Ports{
      time.makeQueue("helper"), worker, clock,
      [this](std::uint32_t user) { return std::find(refused.begin(), refused.end(), user) == refused.end(); },
      [this](std::uint32_t owner) {
        runs.push_back(owner);
        AdvancedSample sample;
        // The run's number, so that an answer tells which run it is from.
        sample.timestamp = Date{static_cast<double>(runs.size())};
        sample.processes = {{{static_cast<std::int32_t>(owner), 1}, {}, {}, 1.0}};
        if (duringCollect) duringCollect(sample);
        return sample;
      }});
};

TEST_F(SharedCollectionTest, FirstCallRunsAtOnce) {
  call(kAnna, "a");
  EXPECT_EQ(worker->underWay(), 1U);
  EXPECT_TRUE(answers.empty());
  endRunAfter(1.1);
  ASSERT_EQ(answered(), "a");
  EXPECT_EQ(answers[0].sample->processes[0].key.pid, 1000);
  EXPECT_EQ(answers[0].message, std::nullopt);
  EXPECT_EQ(worker->underWay(), 0U);
}

TEST_F(SharedCollectionTest, CallersShareARunThatBeganAfterTheirCall) {
  call(kAnna, "a1");
  for (const char* who : {"a2", "a3", "a4"}) call(kAnna, who);
  endRunAfter(1.1);
  EXPECT_EQ(answered(), "a1");  // the run under way began before the others' calls
  EXPECT_EQ(worker->underWay(), 1U);
  endRunAfter(1.1);
  ASSERT_EQ(answered(), "a1 a2 a3 a4");
  for (std::size_t i = 1; i < 4; ++i) EXPECT_EQ(answers[i].sample->timestamp, Date{2.0});
  EXPECT_EQ(runs.size(), 2U);
}

TEST_F(SharedCollectionTest, AnotherUsersRunBeginsWhenTheFirstEnds) {
  call(kAnna, "a");
  call(kBert, "b");
  EXPECT_EQ(worker->underWay(), 1U);
  endRunAfter(1.1);
  EXPECT_EQ(answered(), "a");
  EXPECT_EQ(worker->underWay(), 1U);
  endRunAfter(1.1);
  EXPECT_EQ(answered(), "a b");
  EXPECT_EQ(runs, (std::vector<std::uint32_t>{kAnna, kBert}));
}

TEST_F(SharedCollectionTest, NoResultOfOneUsersRunReachesAnother) {
  for (int i = 0; i < 5; ++i) {
    call(kAnna, "a");
    call(kBert, "b");
  }
  while (worker->underWay() > 0) endRunAfter(1.1);
  ASSERT_EQ(answers.size(), 10U);
  for (const Answer& answer : answers) {
    ASSERT_EQ(answer.sample->processes.size(), 1U);
    EXPECT_EQ(answer.sample->processes[0].key.pid, answer.who == "a" ? 1000 : 1001);
  }
}

TEST_F(SharedCollectionTest, UsersTakeTurnsHoweverOftenOneOfThemCalls) {
  call(kAnna, "a");
  call(kAnna, "a");
  call(kBert, "b");
  call(kCleo, "c");
  for (int i = 0; i < 6; ++i) {
    endRunAfter(1.1);
    if (i < 3) call(kAnna, "a");
    if (worker->underWay() == 0) break;
  }
  EXPECT_EQ(std::vector<std::uint32_t>(runs.begin(), runs.begin() + 4),
            (std::vector<std::uint32_t>{kAnna, kAnna, kBert, kCleo}));
  EXPECT_EQ(answers.size(), 7U);
}

TEST_F(SharedCollectionTest, RunsBeginAtLeastASecondApart) {
  call(kAnna, "a");
  endRunAfter(0.25);  // a tool that fails is quick
  call(kAnna, "a");
  time.advance(0.5);
  EXPECT_EQ(worker->underWay(), 0U);
  time.advance(0.249);
  EXPECT_EQ(worker->underWay(), 0U);
  time.advance(0.001);
  EXPECT_EQ(worker->underWay(), 1U);
}

TEST_F(SharedCollectionTest, ASecondApartHoldsAcrossUsers) {
  call(kAnna, "a");
  call(kBert, "b");
  endRunAfter(0.25);
  EXPECT_EQ(worker->underWay(), 0U);
  time.advance(0.749);
  EXPECT_EQ(worker->underWay(), 0U);
  time.advance(0.001);
  EXPECT_EQ(worker->underWay(), 1U);
}

TEST_F(SharedCollectionTest, CallAfterAQuietSecondRunsAtOnce) {
  call(kAnna, "a");
  endRunAfter(0.25);
  time.advance(0.75);
  call(kAnna, "a");
  EXPECT_EQ(worker->underWay(), 1U);
}

TEST_F(SharedCollectionTest, CallersDuringTheWaitShareTheRunThatEndsIt) {
  call(kAnna, "a1");
  endRunAfter(0.25);
  call(kAnna, "a2");
  time.advance(0.5);
  call(kAnna, "a3");
  endRunAfter(0.25);
  EXPECT_EQ(answered(), "a1 a2 a3");
  EXPECT_EQ(runs.size(), 2U);
}

TEST_F(SharedCollectionTest, NothingRunsForThoseWhoHaveGone) {
  call(kAnna, "a");
  call(kBert, "b");
  call(kCleo, "c");
  forget("b");
  endRunAfter(1.1);
  endRunAfter(1.1);
  EXPECT_EQ(runs, (std::vector<std::uint32_t>{kAnna, kCleo}));
  EXPECT_EQ(answered(), "a c");
  EXPECT_EQ(worker->underWay(), 0U);
}

TEST_F(SharedCollectionTest, ThoseWhoHaveGoneAreLeftOutOfASharedRun) {
  call(kAnna, "a1");
  call(kAnna, "a2");
  call(kAnna, "a3");
  forget("a2");
  endRunAfter(1.1);
  endRunAfter(1.1);
  EXPECT_EQ(answered(), "a1 a3");
}

TEST_F(SharedCollectionTest, RunUnderWayEndsAlsoWhenItsCallerHasGone) {
  call(kAnna, "a");
  forget("a");
  call(kBert, "b");
  endRunAfter(1.1);
  endRunAfter(1.1);
  EXPECT_EQ(runs, (std::vector<std::uint32_t>{kAnna, kBert}));
}

TEST_F(SharedCollectionTest, FailureIsEverybodysMessage) {
  duringCollect = [](AdvancedSample&) {
    throw MonitorError(MonitorError::kMonitorDomain, 1,
                       "macOS could not collect the optional hardware readings.");
  };
  call(kAnna, "a1");
  call(kAnna, "a2");
  call(kAnna, "a3");
  endRunAfter(1.1);
  duringCollect = [](AdvancedSample&) { throw std::runtime_error("no descriptor is left"); };
  endRunAfter(1.1);
  ASSERT_EQ(answered(), "a1 a2 a3");
  EXPECT_EQ(answers[0].message, "macOS could not collect the optional hardware readings.");
  EXPECT_EQ(answers[1].message, "no descriptor is left");
  EXPECT_EQ(answers[2].message, "no descriptor is left");
  for (const Answer& answer : answers) EXPECT_EQ(answer.sample, std::nullopt);
}

TEST_F(SharedCollectionTest, RunAfterAFailedOneIsServed) {
  duringCollect = [](AdvancedSample&) { throw std::runtime_error("once"); };
  call(kAnna, "a1");
  endRunAfter(1.1);
  duringCollect = nullptr;
  call(kAnna, "a2");
  endRunAfter(1.1);
  EXPECT_TRUE(answers.at(1).sample.has_value());
}

TEST_F(SharedCollectionTest, SampleThatCannotBeEncodedIsAMessage) {
  duringCollect = [](AdvancedSample& sample) { sample.interval = std::numeric_limits<double>::infinity(); };
  call(kAnna, "a");
  endRunAfter(1.1);
  ASSERT_EQ(answered(), "a");
  EXPECT_EQ(answers[0].sample, std::nullopt);
  EXPECT_NE(answers[0].message.value_or(""), "");
}

TEST_F(SharedCollectionTest, WattsLeaveRounded) {
  duringCollect = [](AdvancedSample& sample) {
    sample.readings.emplace(MetricID::PowerWatts,
                            MetricReading(7.77, MetricUnit::Watts, std::string(kPowermetricsSource),
                                          MetricState::Available, Date{1.0}, {}));
  };
  call(kAnna, "a");
  endRunAfter(1.1);
  EXPECT_EQ(answers.at(0).sample->readings.at(MetricID::PowerWatts).value, 7.8);
}

TEST_F(SharedCollectionTest, MoreThan64WaitingCallsOfOneUserAreRefused) {
  call(kAnna, "first");
  for (int i = 0; i < 64; ++i) call(kAnna, "waits");
  EXPECT_TRUE(answers.empty());
  call(kAnna, "one too many");
  ASSERT_EQ(answered(), "one too many");
  EXPECT_EQ(answers[0].message, "Too many requests for readings are waiting.");
  call(kBert, "another user");
  EXPECT_EQ(answers.size(), 1U);
  forget("waits");
  call(kAnna, "room again");
  EXPECT_EQ(answers.size(), 1U);
}

TEST_F(SharedCollectionTest, UserWhoMayNotCollectIsToldSoAtEachCall) {
  refused = {kBert};
  call(kBert, "b");
  ASSERT_EQ(answered(), "b");
  EXPECT_EQ(answers[0].message, "Only the user of an active local session may have these readings.");
  EXPECT_EQ(worker->underWay(), 0U);
  refused = {};
  call(kBert, "b");
  EXPECT_EQ(worker->underWay(), 1U);
}

TEST_F(SharedCollectionTest, ScheduleMayGoDuringARun) {
  call(kAnna, "a");
  collection.reset();
  endRunAfter(1.1);
  EXPECT_TRUE(answers.empty());
}

}  // namespace
}  // namespace monitor
