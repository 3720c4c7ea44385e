// SPDX-License-Identifier: MIT
#include "Tests/Fakes/FakeServiceConnections.h"

#include <gmock/gmock.h>

#include <optional>

#include "Tests/Fakes/VirtualTime.h"

namespace monitor::fakes {
namespace {

using testing::ElementsAre;
using testing::SizeIs;
using State = FakeLink<MonitorHelperProtocol>::State;

// Keeps its replies until the test calls them.
class Helper final : public MonitorHelperProtocol {
 public:
  void collect(CollectReply reply) override { replies.push_back(std::move(reply)); }
  std::vector<CollectReply> replies;
};

class Delegate final : public ServiceListenerDelegate<MonitorHelperProtocol> {
 public:
  bool shouldAcceptNewConnection(
      const std::shared_ptr<ServiceConnection<MonitorHelperProtocol>>& connection) override {
    users.push_back(connection->effectiveUserIdentifier());
    if (refuses) return false;
    connection->setCodeSigningRequirement("signed client");
    connection->setExportedInterface();
    connection->setExportedObject(std::make_shared<Helper>());
    connection->setInvalidationHandler([this] { ++invalidations; });
    connection->setInterruptionHandler([this] { ++interruptions; });
    connection->resume();
    return true;
  }
  bool refuses = false;
  std::vector<std::uint32_t> users;
  int invalidations = 0;
  int interruptions = 0;
};

class FakeServiceConnectionsTest : public testing::Test {
 protected:
  void listen() {
    service_.setDelegate(&delegate_);
    service_.resume();
  }
  std::shared_ptr<RemoteConnection<MonitorHelperProtocol>> connect() {
    auto client = service_.makeConnection("helper", true);
    client->setRemoteObjectInterface();
    client->setCodeSigningRequirement("signed service");
    client->setInvalidationHandler([this] { ++invalidations_; });
    client->setInterruptionHandler([this] { ++interruptions_; });
    client->resume();
    return client;
  }
  void ask(RemoteConnection<MonitorHelperProtocol>& client) {
    client
        .remoteObjectProxyWithErrorHandler(
            [this](const RemoteError& error) { errors_.push_back(error.code); })
        ->collect([this](const auto& data, const auto&) { answers_.push_back(data.value_or("none")); });
  }
  FakeLink<MonitorHelperProtocol>& link() { return *service_.links.at(0); }
  Helper& exported() { return dynamic_cast<Helper&>(*link().exported()); }

  VirtualTime time_;
  Delegate delegate_;
  FakeServiceConnections<MonitorHelperProtocol> service_{time_.makeQueue("transport")};
  int invalidations_ = 0;
  int interruptions_ = 0;
  std::vector<std::int64_t> errors_;
  std::vector<std::string> answers_;
};

TEST_F(FakeServiceConnectionsTest, CarriesAMessageAndItsReply) {
  listen();
  service_.nextUser = 77;
  const auto client = connect();
  ask(*client);
  time_.run();
  EXPECT_EQ(link().state, State::Live);
  EXPECT_THAT(delegate_.users, ElementsAre(77U));
  EXPECT_EQ(link().serviceRequirement, "signed client");
  EXPECT_EQ(link().clientRequirement, "signed service");
  EXPECT_THAT(link().serviceCalls,
              ElementsAre("requirement", "interface", "object", "invalidation", "interruption", "resume"));
  ASSERT_THAT(exported().replies, SizeIs(1));
  EXPECT_EQ(link().openMessages(), 1U);
  exported().replies[0]("first", std::nullopt);
  exported().replies[0]("second", std::nullopt);
  time_.run();
  EXPECT_THAT(answers_, ElementsAre("first")) << "a message has one reply";
  EXPECT_EQ(link().openMessages(), 0U);
}

TEST_F(FakeServiceConnectionsTest, MessagesWaitForTheListener) {
  const auto client = connect();
  ask(*client);
  time_.run();
  EXPECT_EQ(link().state, State::Waiting);
  listen();
  time_.run();
  EXPECT_EQ(link().delivered, 1U);
}

TEST_F(FakeServiceConnectionsTest, ARefusedClientBecomesInvalid) {
  delegate_.refuses = true;
  listen();
  const auto client = connect();
  time_.run();
  ask(*client);
  time_.run();
  EXPECT_EQ(link().refused, 1U);
  EXPECT_EQ(invalidations_, 1);
  EXPECT_THAT(errors_, ElementsAre(kFakeInvalid));
  EXPECT_THAT(link().serviceCalls, SizeIs(0));
}

TEST_F(FakeServiceConnectionsTest, DelaysBothWays) {
  listen();
  service_.setDelay(2.0);
  const auto client = connect();
  ask(*client);
  time_.advance(1.9);
  EXPECT_EQ(link().delivered, 0U);
  time_.advance(0.1);
  EXPECT_EQ(link().delivered, 1U);
  exported().replies[0]("late", std::nullopt);
  time_.advance(1.9);
  EXPECT_THAT(answers_, SizeIs(0));
  time_.advance(0.1);
  EXPECT_THAT(answers_, ElementsAre("late"));
}

TEST_F(FakeServiceConnectionsTest, CanHangAndCanLoseReplies) {
  listen();
  const auto client = connect();
  service_.setHangs(true);
  ask(*client);
  time_.advance(100.0);
  EXPECT_EQ(link().delivered, 0U);
  EXPECT_EQ(link().openMessages(), 1U);
  service_.setHangs(false);
  service_.setLosesReplies(true);
  ask(*client);
  time_.run();
  exported().replies.at(0)("lost", std::nullopt);
  time_.advance(100.0);
  EXPECT_THAT(answers_, SizeIs(0));
  EXPECT_EQ(link().openMessages(), 2U);
  client->invalidate();
  time_.run();
  EXPECT_THAT(errors_, ElementsAre(kFakeInvalid, kFakeInvalid));
}

TEST_F(FakeServiceConnectionsTest, ACrashInterruptsTheClientAndTheNextMessageIsAcceptedAnew) {
  listen();
  const auto client = connect();
  ask(*client);
  time_.run();
  const auto lateReply = exported().replies.at(0);
  service_.crashService(0);
  time_.run();
  EXPECT_TRUE(link().lastExported.expired());
  EXPECT_EQ(interruptions_, 1);
  EXPECT_EQ(delegate_.invalidations, 0) << "a dead process hears nothing";
  EXPECT_THAT(errors_, ElementsAre(kFakeInterrupted));
  lateReply("late", std::nullopt);
  ask(*client);
  time_.run();
  EXPECT_THAT(answers_, SizeIs(0));
  EXPECT_EQ(link().accepted, 2U);
  EXPECT_EQ(link().state, State::Live);
}

TEST_F(FakeServiceConnectionsTest, ALostServiceInvalidatesTheClientOnce) {
  listen();
  const auto client = connect();
  ask(*client);
  time_.run();
  service_.invalidateClient(0);
  service_.invalidateClient(0);
  client->invalidate();
  time_.run();
  EXPECT_EQ(invalidations_, 1);
  EXPECT_EQ(interruptions_, 0);
  EXPECT_THAT(errors_, ElementsAre(kFakeInvalid));
}

TEST_F(FakeServiceConnectionsTest, ADroppedClientIsToldToTheServiceOnly) {
  listen();
  const auto client = connect();
  ask(*client);
  time_.run();
  service_.dropClient(0);
  time_.run();
  EXPECT_EQ(delegate_.invalidations, 1);
  EXPECT_TRUE(link().lastExported.expired());
  EXPECT_EQ(invalidations_, 0);
  EXPECT_THAT(errors_, SizeIs(0));
}

TEST_F(FakeServiceConnectionsTest, ReleasingTheClientsEndDropsTheClientOnceNoProxyIsLeft) {
  listen();
  auto client = connect();
  auto proxy = client->remoteObjectProxy();
  client.reset();
  time_.run();
  EXPECT_EQ(delegate_.invalidations, 0);
  proxy.reset();
  time_.run();
  EXPECT_EQ(delegate_.invalidations, 1);
}

TEST_F(FakeServiceConnectionsTest, AnInterruptionOnTheServiceSideKeepsTheConnection) {
  listen();
  const auto client = connect();
  time_.run();
  service_.interruptOnServiceSide(0);
  ask(*client);
  time_.run();
  EXPECT_EQ(delegate_.interruptions, 1);
  EXPECT_EQ(link().delivered, 1U);
}

TEST_F(FakeServiceConnectionsTest, AProxyIsNullWhereTheProtocolIsNotSpoken) {
  listen();
  const auto client = connect();
  service_.setSpeaksProtocol(false);
  EXPECT_EQ(client->remoteObjectProxy(), nullptr);
}

}  // namespace
}  // namespace monitor::fakes
