// SPDX-License-Identifier: MIT
#include "MonitorMac/AdvancedClient.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Tests/Fakes/FakeDaemonRegistry.h"
#include "Tests/Fakes/FakeServiceConnections.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor {
namespace {

// A helper whose answers the test holds.
class ScriptedHelper final : public MonitorHelperProtocol {
 public:
  void collect(CollectReply reply) override { replies.push_back(std::move(reply)); }
  std::vector<CollectReply> replies;
};

class HelperDelegate final : public ServiceListenerDelegate<MonitorHelperProtocol> {
 public:
  bool shouldAcceptNewConnection(
      const std::shared_ptr<ServiceConnection<MonitorHelperProtocol>>& connection) override {
    connection->setExportedInterface();
    connection->setExportedObject(helper);
    connection->resume();
    return accepts;
  }
  std::shared_ptr<ScriptedHelper> helper = std::make_shared<ScriptedHelper>();
  bool accepts = true;
};

class AdvancedClientTest : public ::testing::Test {
 protected:
  AdvancedClientTest() {
    connections.setDelegate(&delegate);
    (void)connections.resume();
  }

  void enable() {
    registry.current = DaemonStatus::Enabled;
    client->refreshStatus(nullptr);
    registry.answer();
    time.run();
  }
  void ask() {
    client->sample([this](const AdvancedClient::Result& result) { results.push_back(result); });
  }
  void reply(std::size_t index, std::optional<Data> data, std::optional<std::string> message) {
    delegate.helper->replies.at(index)(data, message);
    time.run();
  }
  [[nodiscard]] const MonitorError& error(std::size_t index = 0) const {
    return std::get<MonitorError>(results.at(index));
  }

  const AdvancedSample sample{Date{100.0}, 1.0, {}, {{{812, 5000}, 1.0, 2.0, 3.0}}, {"note"}};
  fakes::VirtualTime time;
  HelperDelegate delegate;
  fakes::FakeDaemonRegistry registry;
  fakes::FakeServiceConnections<MonitorHelperProtocol> connections{time.makeQueue("transport")};
  std::shared_ptr<SerialQueue> main = time.makeQueue("main");
  std::shared_ptr<AdvancedClient> client = AdvancedClient::make(connections, registry, main);
  std::vector<AdvancedClient::Result> results;
};

TEST_F(AdvancedClientTest, NotEnabledCompletesAtOnceAndMakesNoConnection) {
  for (const DaemonStatus status :
       {DaemonStatus::NotRegistered, DaemonStatus::RequiresApproval, DaemonStatus::NotFound}) {
    registry.current = status;
    client->refreshStatus(nullptr);
    registry.answer();
    time.run();
    results.clear();
    ask();
    ASSERT_EQ(results.size(), 1U);
    EXPECT_EQ(error().domain(), MonitorError::kCocoaDomain);
    EXPECT_FALSE(client->hasConnection());
    EXPECT_TRUE(connections.links.empty());
  }
}

TEST_F(AdvancedClientTest, ConnectsAsAPrivilegedClientThatDemandsTheHelpersSignature) {
  enable();
  ask();
  time.run();
  ASSERT_EQ(connections.links.size(), 1U);
  const auto& link = *connections.links[0];
  EXPECT_EQ(link.serviceName, "app.vesk.native.monitor-helper");
  EXPECT_TRUE(link.privileged);
  EXPECT_EQ(link.clientRequirement, MonitorServiceIdentity::requirement(MonitorServiceIdentity::helper));
  EXPECT_EQ(link.clientCalls,
            (std::vector<std::string>{"interface", "requirement", "invalidation", "resume"}));
}

TEST_F(AdvancedClientTest, ReplyWithDataIsTheSample) {
  enable();
  ask();
  time.run();
  reply(0, encodeAdvancedSample(sample), std::nullopt);
  ASSERT_EQ(results.size(), 1U);
  EXPECT_EQ(std::get<AdvancedSample>(results[0]), sample);
}

TEST_F(AdvancedClientTest, ConnectionIsKeptForTheNextRequest) {
  enable();
  ask();
  time.run();
  reply(0, encodeAdvancedSample(sample), std::nullopt);
  ask();
  time.run();
  EXPECT_EQ(connections.links.size(), 1U);
  EXPECT_EQ(delegate.helper->replies.size(), 2U);
}

TEST_F(AdvancedClientTest, ReplyWithAMessageAndNoDataSurfacesTheMessage) {
  enable();
  ask();
  time.run();
  reply(0, std::nullopt, "macOS could not collect the optional hardware readings.");
  EXPECT_EQ(error(), MonitorError(MonitorError::kMonitorDomain, 2,
                                  "macOS could not collect the optional hardware readings."));
}

TEST_F(AdvancedClientTest, ReplyWithNothingSaysThatTheHelperReturnedNoReadings) {
  enable();
  ask();
  time.run();
  reply(0, std::nullopt, std::nullopt);
  EXPECT_EQ(error(), MonitorError("Monitor", 2, "The optional helper did not return readings."));
}

TEST_F(AdvancedClientTest, UndecodableDataIsAFailureWithTheHelpersMessageOrTheDefault) {
  enable();
  ask();
  ask();
  time.run();
  reply(0, "{}", std::nullopt);
  reply(1, "[", "broken");
  EXPECT_EQ(error(0), MonitorError("Monitor", 2, "The optional helper did not return readings."));
  EXPECT_EQ(error(1), MonitorError("Monitor", 2, "broken"));
}

TEST_F(AdvancedClientTest, HelperThatNeverAnswersFailsOnceAfterEightSeconds) {
  enable();
  connections.setHangs(true);
  ask();
  time.advance(7.999);
  EXPECT_TRUE(results.empty());
  time.advance(0.001);
  ASSERT_EQ(results.size(), 1U);
  EXPECT_EQ(error().domain(), MonitorError::kMonitorDomain);
  time.advance(60.0);
  EXPECT_EQ(results.size(), 1U);
}

TEST_F(AdvancedClientTest, ReplyAfterTheTimeOutIsDropped) {
  enable();
  ask();
  time.advance(8.0);
  ASSERT_EQ(results.size(), 1U);
  reply(0, encodeAdvancedSample(sample), std::nullopt);
  EXPECT_EQ(results.size(), 1U);
}

TEST_F(AdvancedClientTest, ReplyJustBeforeTheTimeOutCounts) {
  enable();
  ask();
  time.advance(7.999);
  reply(0, encodeAdvancedSample(sample), std::nullopt);
  time.advance(10.0);
  ASSERT_EQ(results.size(), 1U);
  EXPECT_TRUE(std::holds_alternative<AdvancedSample>(results[0]));
}

TEST_F(AdvancedClientTest, ConnectionErrorIsHandedOverAsItIs) {
  enable();
  ask();
  time.run();
  connections.crashService(0);
  time.run();
  ASSERT_EQ(results.size(), 1U);
  EXPECT_EQ(error().domain(), fakes::kFakeTransportDomain);
  EXPECT_EQ(error().code(), fakes::kFakeInterrupted);
}

TEST_F(AdvancedClientTest, RefusedConnectionFailsAndTheNextRequestMakesANewOne) {
  delegate.accepts = false;
  enable();
  ask();
  time.run();
  ASSERT_EQ(results.size(), 1U);
  EXPECT_FALSE(client->hasConnection());
  delegate.accepts = true;
  ask();
  time.run();
  EXPECT_EQ(connections.links.size(), 2U);
  reply(0, encodeAdvancedSample(sample), std::nullopt);
  EXPECT_TRUE(std::holds_alternative<AdvancedSample>(results.at(1)));
}

TEST_F(AdvancedClientTest, PeerThatDoesNotSpeakTheProtocolTimesOut) {
  enable();
  connections.setSpeaksProtocol(false);
  ask();
  time.advance(8.0);
  EXPECT_EQ(results.size(), 1U);
}

TEST_F(AdvancedClientTest, DisconnectFailsTheOpenRequestAndIgnoresItsLateReply) {
  enable();
  ask();
  time.run();
  client->disconnect();
  EXPECT_FALSE(client->hasConnection());
  reply(0, encodeAdvancedSample(sample), std::nullopt);
  time.advance(60.0);
  ASSERT_EQ(results.size(), 1U);
  EXPECT_TRUE(std::holds_alternative<MonitorError>(results[0]));
}

TEST_F(AdvancedClientTest, InvalidationOfAnEarlierConnectionLeavesTheNewOneAlone) {
  enable();
  ask();
  time.run();
  client->disconnect();
  ask();
  time.run();
  EXPECT_TRUE(client->hasConnection());
  EXPECT_EQ(connections.links.size(), 2U);
}

TEST_F(AdvancedClientTest, DisconnectWithoutAConnectionIsHarmless) {
  client->disconnect();
  EXPECT_FALSE(client->hasConnection());
}

TEST_F(AdvancedClientTest, ReleasingTheClientStillCompletesItsRequestOnce) {
  enable();
  ask();
  time.run();
  client.reset();
  time.advance(60.0);
  EXPECT_EQ(results.size(), 1U);
}

TEST_F(AdvancedClientTest, StatusIsNotRegisteredUntilItWasRead) {
  EXPECT_EQ(client->status(), DaemonStatus::NotRegistered);
  enable();
  EXPECT_EQ(client->status(), DaemonStatus::Enabled);
  EXPECT_EQ(registry.calls, (std::vector<std::string>{"status app.vesk.native.monitor-helper.plist"}));
}

TEST_F(AdvancedClientTest, SlowerOlderRefreshCannotOverwriteANewerResult) {
  std::vector<DaemonStatus> seen;
  const auto note = [&seen](DaemonStatus status) { seen.push_back(status); };
  registry.current = DaemonStatus::RequiresApproval;
  client->refreshStatus(note);
  registry.current = DaemonStatus::Enabled;
  client->refreshStatus(note);
  registry.answer(1);
  registry.answer(0);
  time.run();
  EXPECT_EQ(client->status(), DaemonStatus::Enabled);
  EXPECT_EQ(seen, (std::vector<DaemonStatus>{DaemonStatus::Enabled, DaemonStatus::RequiresApproval}));
}

TEST_F(AdvancedClientTest, RegistrationReportsItsError) {
  registry.failure = MonitorError("SMAppServiceErrorDomain", 1, "Operation not permitted");
  std::optional<MonitorError> seen;
  client->registerDaemon([&seen](const std::optional<MonitorError>& failure) { seen = failure; });
  registry.answer();
  time.run();
  EXPECT_EQ(seen, registry.failure);
}

TEST_F(AdvancedClientTest, RegistrationWaitsForAPendingUnregistration) {
  std::vector<std::string> order;
  client->unregisterDaemon([&order](const auto&) { order.emplace_back("unregistered"); });
  client->registerDaemon([&order](const auto&) { order.emplace_back("registered"); });
  EXPECT_EQ(registry.calls.size(), 1U);
  registry.answer();
  time.run();
  ASSERT_EQ(registry.calls.size(), 2U);
  EXPECT_EQ(registry.calls[1], "register app.vesk.native.monitor-helper.plist");
  registry.answer();
  time.run();
  EXPECT_EQ(order, (std::vector<std::string>{"unregistered", "registered"}));
  EXPECT_EQ(registry.current, DaemonStatus::Enabled);
}

TEST_F(AdvancedClientTest, RegistrationGoesOnAfterAnUnregistrationThatFailed) {
  registry.failure = MonitorError("SMAppServiceErrorDomain", 1, "Operation not permitted");
  client->unregisterDaemon(nullptr);
  client->registerDaemon(nullptr);
  registry.answer();
  time.run();
  EXPECT_EQ(registry.calls.size(), 2U);
}

TEST_F(AdvancedClientTest, GenerationThatWouldOverflowStopsTheProgram) {
  client = AdvancedClient::make(connections, registry, main, std::numeric_limits<std::int64_t>::max());
  EXPECT_DEATH(client->disconnect(), "");
}

}  // namespace
}  // namespace monitor
