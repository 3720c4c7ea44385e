// SPDX-License-Identifier: MIT
#include "Tools/vesk/HelperReadings.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/AdvancedSample.h"
#include "Tests/Fakes/FakeDaemonRegistry.h"
#include "Tests/Fakes/FakeServiceConnections.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tools/vesk/Monitor/HelperAdvancedReadings.h"

namespace monitor::vesk {
namespace {

// A helper whose answers the test holds.
class HeldHelper final : public MonitorHelperProtocol,
                         public ServiceListenerDelegate<MonitorHelperProtocol>,
                         public std::enable_shared_from_this<HeldHelper> {
 public:
  void collect(CollectReply reply) override { replies.push_back(std::move(reply)); }
  bool shouldAcceptNewConnection(
      const std::shared_ptr<ServiceConnection<MonitorHelperProtocol>>& connection) override {
    connection->setExportedObject(shared_from_this());
    connection->resume();
    return true;
  }
  std::vector<CollectReply> replies;
};

class HelperReadingsTest : public ::testing::Test {
 protected:
  HelperReadingsTest() {
    connections->setDelegate(helper.get());
    (void)connections->resume();
    registry->current = DaemonStatus::Enabled;
  }
  // Asks, and lets the register of daemons answer.
  void request() {
    readings->request();
    time.run();
    if (!registry->pending.empty()) registry->answer();
    time.run();
  }
  void answer(double timestamp) {
    AdvancedSample sample;
    sample.timestamp = Date{timestamp};
    sample.notes = {"A note."};
    helper->replies.at(0)(encodeAdvancedSample(sample), std::nullopt);
    helper->replies.clear();
    time.run();
  }
  [[nodiscard]] std::optional<Date> latest() const {
    const auto sample = readings->latest();
    return sample ? std::optional(sample->timestamp) : std::nullopt;
  }

  fakes::VirtualTime time;
  std::shared_ptr<HeldHelper> helper = std::make_shared<HeldHelper>();
  std::shared_ptr<fakes::FakeDaemonRegistry> registry = std::make_shared<fakes::FakeDaemonRegistry>();
  std::shared_ptr<fakes::FakeServiceConnections<MonitorHelperProtocol>> connections =
      std::make_shared<fakes::FakeServiceConnections<MonitorHelperProtocol>>(time.makeQueue("transport"));
  std::optional<HelperReadings> readings{HelperPorts{connections, registry, time.makeQueue("main")}};
};

TEST_F(HelperReadingsTest, SampleArrivesWithoutAnybodyWaiting) {
  EXPECT_EQ(readings->status(), "The optional helper has not answered yet.");
  request();
  EXPECT_FALSE(readings->settle(0.0));
  EXPECT_EQ(latest(), std::nullopt);
  answer(100.0);
  EXPECT_TRUE(readings->settle(0.0));
  EXPECT_EQ(latest(), Date{100.0});
  EXPECT_EQ(readings->daemonStatus(), DaemonStatus::Enabled);
  EXPECT_EQ(readings->problem(), "");
  EXPECT_EQ(readings->status(), "Connected. This Mac has not reported a supported hardware reading. A note.");
}

TEST_F(HelperReadingsTest, OneRequestIsOpenAtATime) {
  request();
  request();
  request();
  EXPECT_EQ(helper->replies.size(), 1U);
  answer(100.0);
  request();
  EXPECT_EQ(helper->replies.size(), 1U);
  answer(101.0);
  EXPECT_EQ(latest(), Date{101.0});
  EXPECT_EQ(connections->links.size(), 1U);
}

TEST_F(HelperReadingsTest, RegisterIsAskedAgainOnlyAfterAFailure) {
  request();
  answer(100.0);
  request();
  EXPECT_EQ(registry->calls.size(), 1U);
  helper->replies.at(0)(std::nullopt, "no");
  time.run();
  time.advance(31.0);
  helper->replies.clear();
  request();
  EXPECT_EQ(registry->calls.size(), 2U);
  answer(101.0);
  EXPECT_EQ(latest(), Date{101.0});
}

TEST_F(HelperReadingsTest, HelperThatIsNotEnabledIsNamedAndNotAskedAgainForHalfAMinute) {
  registry->current = DaemonStatus::NotRegistered;
  request();
  EXPECT_TRUE(readings->settle(0.0));
  EXPECT_EQ(readings->status(), "The optional helper is not enabled.");
  EXPECT_EQ(readings->daemonStatus(), DaemonStatus::NotRegistered);
  EXPECT_TRUE(connections->links.empty());
  time.advance(29.9);
  request();
  EXPECT_EQ(registry->calls.size(), 1U);
  time.advance(0.2);
  registry->current = DaemonStatus::Enabled;
  request();
  EXPECT_EQ(registry->calls.size(), 2U);
  answer(100.0);
  EXPECT_EQ(latest(), Date{100.0});
  EXPECT_EQ(readings->problem(), "");
}

TEST_F(HelperReadingsTest, EveryOtherStatusHasItsSentence) {
  registry->current = DaemonStatus::NotFound;
  request();
  EXPECT_EQ(readings->status(), "The optional helper is not installed.");
  time.advance(31.0);
  registry->current = DaemonStatus::RequiresApproval;
  request();
  EXPECT_EQ(readings->status(), "The optional helper needs an administrator's approval.");
}

TEST_F(HelperReadingsTest, RegisterThatNeverAnswersEndsTheRequestAfterThreeSeconds) {
  readings->request();
  time.advance(2.9);
  EXPECT_FALSE(readings->settle(0.0));
  time.advance(0.2);
  EXPECT_TRUE(readings->settle(0.0));
  EXPECT_EQ(readings->daemonStatus(), std::nullopt);
  EXPECT_EQ(readings->status(), "The system does not say whether the helper is enabled.");
}

TEST_F(HelperReadingsTest, HelperThatNeverAnswersEndsTheRequestAfterEightSeconds) {
  request();
  time.advance(7.9);
  EXPECT_FALSE(readings->settle(0.0));
  time.advance(0.2);
  EXPECT_TRUE(readings->settle(0.0));
  EXPECT_EQ(readings->status(), "The optional helper did not return readings.");
}

TEST_F(HelperReadingsTest, HelpersMessageIsTheProblemAndTheLastSampleStays) {
  request();
  answer(100.0);
  request();
  helper->replies.at(0)(std::nullopt, "The power-metrics tool printed more than 8 MiB.");
  time.run();
  EXPECT_EQ(readings->status(), "The power-metrics tool printed more than 8 MiB.");
  EXPECT_EQ(latest(), Date{100.0});
}

TEST_F(HelperReadingsTest, RefusalIsSaidInOurOwnWords) {
  readings.emplace(HelperPorts{connections, registry, time.makeQueue("main"),
                               [](const MonitorError& error) { return error.domain() == "in-process"; }});
  request();
  connections->crashService(0);
  time.run();
  EXPECT_EQ(readings->status(), "Only the user of an active local session may have these readings.");
}

TEST_F(HelperReadingsTest, OwnerThatLeavesGivesTheConnectionUp) {
  request();
  readings.reset();
  time.run();
  EXPECT_EQ(connections->links.at(0)->state, fakes::FakeLink<MonitorHelperProtocol>::State::Invalid);
  time.advance(60.0);
}

class HelperAdvancedReadingsTest : public HelperReadingsTest {
 protected:
  // Merges a sample of this age and says whether it was taken.
  bool merges(double age) {
    HelperAdvancedReadings merging{HelperPorts{connections, registry, time.makeQueue("merging")}};
    merging.request();
    time.run();
    registry->answer();
    time.run();
    answer(1000.0 - age);
    MonitorSnapshot snapshot;
    snapshot.timestamp = Date{1000.0};
    merging.mergeInto(snapshot);
    return snapshot.advancedTimestamp == Date{1000.0 - age};
  }
};

TEST_F(HelperAdvancedReadingsTest, SampleIsMergedUpToNinetySecondsFromTheSnapshot) {
  EXPECT_TRUE(merges(0.0));
  EXPECT_TRUE(merges(90.0));
  EXPECT_FALSE(merges(90.5));
  EXPECT_TRUE(merges(-2.0)) << "the helper answered after the pass";
  EXPECT_TRUE(merges(-90.0));
  EXPECT_FALSE(merges(-90.5));
}

TEST_F(HelperAdvancedReadingsTest, WithoutASampleTheSnapshotStaysAsItIs) {
  HelperAdvancedReadings merging{HelperPorts{connections, registry, time.makeQueue("merging")}};
  MonitorSnapshot snapshot;
  merging.mergeInto(snapshot);
  EXPECT_EQ(snapshot.advancedTimestamp, std::nullopt);
}

}  // namespace
}  // namespace monitor::vesk
