// SPDX-License-Identifier: MIT
#include "MonitorAudioService/Delegate.h"

#include <gmock/gmock.h>

#include <system_error>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Tests/MonitorAudioService/ServiceWorld.h"

namespace monitor {
namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using State = fakes::FakeLink<MonitorAudioProtocol>::State;

class DelegateTest : public testing::Test {
 protected:
  ServiceWorld world_;
};

TEST_F(DelegateTest, TheServiceStartsInOrder) {
  std::vector<std::string> order;
  const auto take = [&]() -> std::shared_ptr<ServiceListener<MonitorAudioProtocol>> {
    EXPECT_NE(world_.service.delegate, nullptr) << "the delegate comes first";
    EXPECT_THAT(world_.connections->listenerCalls, IsEmpty());
    order.emplace_back("take");
    return world_.connections;
  };
  world_.connections->exitStatus = 7;
  EXPECT_EQ(runService(world_.service, world_.ports(), take), 7);
  EXPECT_THAT(order, ElementsAre("take"));
  EXPECT_THAT(world_.connections->listenerCalls, ElementsAre("requirement", "delegate", "resume"));
  EXPECT_EQ(world_.connections->listenerRequirement, MonitorServiceIdentity::clientRequirement);
  EXPECT_EQ(world_.service.listener, world_.connections);
}

TEST_F(DelegateTest, AClientIsConfiguredInOrder) {
  world_.run();
  const TestClient client(world_);
  EXPECT_EQ(client.link().state, State::Live);
  EXPECT_THAT(client.link().serviceCalls,
              ElementsAre("requirement", "interface", "object", "invalidation", "interruption", "resume"));
  EXPECT_EQ(client.link().serviceRequirement, MonitorServiceIdentity::clientRequirement);
  EXPECT_NE(client.session(), nullptr);
}

TEST_F(DelegateTest, AClientOfAnotherUserIsRefusedUntouched) {
  world_.run();
  for (const std::uint32_t user : {world_.system.user + 1, 0U}) {
    world_.connections->nextUser = user;
    const TestClient client(world_);
    EXPECT_EQ(client.link().state, State::Invalid);
    EXPECT_EQ(client.invalidations, 1);
    EXPECT_THAT(client.link().serviceCalls, IsEmpty());
  }
  EXPECT_EQ(world_.hardware.openViews(), 0U);
  EXPECT_THAT(world_.queues.made, IsEmpty());
}

TEST_F(DelegateTest, EveryClientIsRefusedBeforeMacOSFourteenPointTwo) {
  world_.run();
  const auto isAccepted = [this](std::optional<OperatingSystemVersion> version) {
    world_.system.version = version;
    const TestClient client(world_);
    EXPECT_EQ(client.link().serviceCalls.empty(), client.link().state == State::Invalid);
    return client.link().state == State::Live;
  };
  EXPECT_FALSE(isAccepted(OperatingSystemVersion{13, 9, 9}));
  EXPECT_FALSE(isAccepted(OperatingSystemVersion{14, 1, 99}));
  EXPECT_TRUE(isAccepted(OperatingSystemVersion{14, 2, 0}));
  EXPECT_TRUE(isAccepted(OperatingSystemVersion{15, 0, 0}));
  EXPECT_TRUE(isAccepted(std::nullopt)) << "the rule is about macOS";
}

TEST_F(DelegateTest, EachClientHasItsOwnRouterQueueAndView) {
  world_.run();
  const TestClient first(world_);
  const TestClient second(world_);
  EXPECT_NE(first.session()->router(), second.session()->router());
  EXPECT_NE(first.session()->router()->queue(), second.session()->router()->queue());
  EXPECT_EQ(world_.hardware.openViews(), 2U);
  const std::pair<std::string, QualityOfService> expected{"app.vesk.monitor.audio",
                                                          QualityOfService::UserInitiated};
  EXPECT_THAT(world_.queues.made, ElementsAre(expected, expected));
}

// A system that is out of threads.
class NoQueues final : public SerialQueueFactory {
 public:
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string, QualityOfService) override {
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  }
};

TEST_F(DelegateTest, AClientForWhomThereIsNoQueueIsRefused) {
  NoQueues none;
  AudioServicePorts ports{
      world_.hardware, none, world_.clock, world_.processes, world_.bundles, world_.system, [] {
        return std::string("uuid");
      }};
  runService(world_.service, ports, [this] { return world_.connections; });
  const TestClient client(world_);
  EXPECT_EQ(client.link().state, State::Invalid);
  EXPECT_EQ(world_.hardware.openViews(), 0U);
}

TEST_F(DelegateTest, LosingTheClientRestoresNormalPlayback) {
  world_.run();
  TestClient client(world_);
  const AudioObjectID process = world_.play(812);
  EXPECT_EQ(client.setGain(0.4, 812).error, std::nullopt);
  EXPECT_TRUE(world_.hardware.isMuted(process));
  client.drop();
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_FALSE(world_.hardware.isMuted(process));
  EXPECT_EQ(world_.hardware.openViews(), 0U) << "the router went with its session";
  EXPECT_EQ(world_.hardware.listeners(), 0U);
}

TEST_F(DelegateTest, AnInterruptionStopsRoutingAndTheSessionGoesOn) {
  world_.run();
  TestClient client(world_);
  world_.play(812);
  EXPECT_EQ(client.setGain(0.4, 812).error, std::nullopt);
  world_.connections->interruptOnServiceSide(client.index());
  world_.time.run();
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(client.setGain(0.6, 812).error, std::nullopt);
  EXPECT_EQ(world_.level(812), 0.6F);
}

TEST_F(DelegateTest, ASessionReleasedWithoutAWordEndsItsRouter) {
  world_.run();
  TestClient client(world_);
  world_.play(812);
  EXPECT_EQ(client.setGain(0.4, 812).error, std::nullopt);
  const std::weak_ptr<SerialQueue> queue = client.session()->router()->queue();
  world_.connections->crashService(client.index());
  world_.time.run();
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.hardware.openViews(), 0U);
  EXPECT_TRUE(queue.expired());
}

TEST_F(DelegateTest, ARequestThatIsStillQueuedWhenTheClientGoesLeavesNothing) {
  world_.run();
  TestClient client(world_);
  world_.play(812);
  client.session()->setGain(0.4, encodeProcessKeys({keyOf(812)}), [](const auto&) {});
  client.drop();
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.hardware.openViews(), 0U);
}

TEST_F(DelegateTest, StoppingOneClientLeavesTheOthersRoutes) {
  world_.run();
  TestClient first(world_);
  TestClient second(world_);
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(first.setGain(0.4, 812).error, std::nullopt);
  EXPECT_EQ(second.setGain(0.6, 813).error, std::nullopt);
  EXPECT_EQ(first.list().applications->at(1).gain, 1.0) << "a client sees its own gains";
  EXPECT_EQ(first.stop(), 1);
  EXPECT_EQ(world_.level(812), 1.0F);
  EXPECT_EQ(world_.level(813), 0.6F);
  first.drop();
  EXPECT_EQ(world_.level(813), 0.6F);
}

TEST_F(DelegateTest, WhatOneClientHearsAnotherOneCountsAsHeardByTheService) {
  SilenceWatch silence;
  world_.silence = &silence;
  world_.run();
  TestClient first(world_);
  TestClient second(world_);
  world_.play(812);
  world_.hardware.process(world_.play(813)).silent = true;
  EXPECT_EQ(first.setGain(0.4, 812).error, std::nullopt);
  EXPECT_EQ(second.setGain(0.6, 813).error, std::nullopt);
  for (int passed = 0; passed < 20; ++passed) {
    world_.hardware.runCycles();
    EXPECT_EQ(second.list().message, std::nullopt);
    world_.time.advance(1.0);
  }
  EXPECT_NE(world_.hardware.routeOf(world_.hardware.processOf(813)), 0U);
}

TEST_F(DelegateTest, TheClientOfAServiceThatHearsOnlySilenceIsToldSo) {
  SilenceWatch silence;
  world_.silence = &silence;
  world_.hardware.permissionDenied = true;
  world_.run();
  TestClient client(world_);
  world_.play(812);
  EXPECT_EQ(client.setGain(0.4, 812).error, std::nullopt);
  for (int passed = 0; passed < 10; ++passed) {
    world_.hardware.runCycles();
    EXPECT_EQ(client.list().message, std::nullopt) << passed;
    world_.time.advance(1.0);
  }
  EXPECT_EQ(client.list().message, AudioRouter::kOnlySilenceText);
  EXPECT_TRUE(world_.hardware.isClean());
}

TEST_F(DelegateTest, AThousandClientsThatLeaveAfterOneCallLeaveNothing) {
  world_.run();
  world_.play(812);
  for (int count = 0; count < 1000; ++count) {
    TestClient client(world_);
    EXPECT_EQ(client.list().replies, 1);
    client.drop();
  }
  world_.time.run();
  EXPECT_EQ(world_.hardware.openViews(), 0U);
  EXPECT_EQ(world_.hardware.listeners(), 0U);
  EXPECT_EQ(world_.time.pendingTasks(), 0U);
}

}  // namespace
}  // namespace monitor
