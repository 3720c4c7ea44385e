// SPDX-License-Identifier: MIT
#include "MonitorHelperService/HelperDelegate.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Tests/Fakes/FakeServiceConnections.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tests/MonitorHelperService/HeldWorker.h"

namespace monitor {
namespace {

using Connection = std::shared_ptr<RemoteConnection<MonitorHelperProtocol>>;

class HelperDelegateTest : public ::testing::Test {
 protected:
  HelperDelegateTest() {
    connections.setDelegate(&delegate);
    (void)connections.resume();
  }
  // A client of `user` that calls once.
  Connection call(std::uint32_t user) {
    connections.nextUser = user;
    const auto connection = connections.makeConnection(MonitorServiceIdentity::helper, true);
    connection->resume();
    connection->remoteObjectProxyWithErrorHandler([this](const RemoteError&) { ++errors; })
        ->collect([this](const auto&, const auto&) { ++replies; });
    time.run();
    return connection;
  }

  fakes::VirtualTime time;
  fakes::FakeClock clock{time};
  std::shared_ptr<tests::HeldWorker> worker = std::make_shared<tests::HeldWorker>();
  std::vector<std::uint32_t> runs;
  HelperDelegate delegate{std::make_shared<SharedCollection>(
      SharedCollection::Ports{time.makeQueue("helper"), worker, clock, [](std::uint32_t) { return true; },
                              [this](std::uint32_t owner) {
                                runs.push_back(owner);
                                return AdvancedSample();
                              }})};
  fakes::FakeServiceConnections<MonitorHelperProtocol> connections{time.makeQueue("transport")};
  int replies = 0;
  int errors = 0;
};

TEST_F(HelperDelegateTest, ConfiguresTheConnectionInThisOrderAndDemandsTheClientsSignature) {
  const auto client = call(501);
  EXPECT_EQ(connections.links[0]->serviceCalls,
            (std::vector<std::string>{"requirement", "interface", "object", "resume"}));
  EXPECT_EQ(connections.links[0]->serviceRequirement, MonitorServiceIdentity::clientRequirement);
}

TEST_F(HelperDelegateTest, RunIsForTheUserWhomTheTransportVouchesFor) {
  const auto anna = call(1000);
  const auto bert = call(1001);
  worker->endOne();
  time.advance(1.0);
  worker->endOne();
  time.run();
  EXPECT_EQ(runs, (std::vector<std::uint32_t>{1000, 1001}));
  EXPECT_EQ(replies, 2);
}

TEST_F(HelperDelegateTest, SessionIsReleasedWithItsConnection) {
  auto client = call(501);
  const auto session = connections.links[0]->lastExported;
  EXPECT_FALSE(session.expired());
  client->invalidate();
  time.run();
  EXPECT_TRUE(session.expired());
}

TEST_F(HelperDelegateTest, ClientThatLeftBeforeItsTurnIsNotRunFor) {
  const auto anna = call(1000);
  const auto bert = call(1001);
  bert->invalidate();
  time.run();
  worker->endOne();
  time.advance(5.0);
  EXPECT_EQ(worker->underWay(), 0U);
  EXPECT_EQ(runs, (std::vector<std::uint32_t>{1000}));
}

TEST_F(HelperDelegateTest, SixteenSessionsOfOneUserAreServedAndNoMore) {
  std::vector<Connection> clients;
  for (int i = 0; i < 16; ++i) clients.push_back(call(1000));
  EXPECT_EQ(errors, 0);
  clients.push_back(call(1000));
  EXPECT_EQ(errors, 1);
  EXPECT_EQ(connections.links.back()->refused, 1U);
  clients.push_back(call(1001));  // another user is not concerned
  EXPECT_EQ(errors, 1);
  clients.front()->invalidate();
  time.run();
  const int before = errors;  // of the connection that was given up
  clients.push_back(call(1000));
  EXPECT_EQ(errors, before);
}

}  // namespace
}  // namespace monitor
