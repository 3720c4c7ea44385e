// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

namespace monitor {
namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;

class AudioRouterLifetimeTest : public testing::Test {
 protected:
  void release() {
    world_.router.reset();
    world_.time.run();
  }

  RouterWorld world_;
};

TEST_F(AudioRouterLifetimeTest, HasASerialQueueOfItsOwn) {
  ASSERT_EQ(world_.queues.made.size(), 1U);
  EXPECT_EQ(world_.queues.made[0].first, "app.vesk.monitor.audio");
  EXPECT_EQ(world_.queues.made[0].second, QualityOfService::UserInitiated);
  EXPECT_EQ(world_.router->queue()->label(), "app.vesk.monitor.audio");
}

TEST_F(AudioRouterLifetimeTest, ListensToOutputAndProcessesOnItsQueue) {
  const auto second = world_.makeRouter();
  EXPECT_THAT(world_.hardware.calls(), IsEmpty()) << "the view is used on the queue only";
  bool offQueue = false;
  world_.hardware.beforeCall = [&](const std::string&) { offQueue |= !second->queue()->isCurrent(); };
  world_.time.run();
  EXPECT_FALSE(offQueue);
  EXPECT_THAT(world_.hardware.callTexts(),
              ElementsAre("addPropertyListener 1 dOut", "addPropertyListener 1 prs#"));
  world_.hardware.beforeCall = nullptr;
}

TEST_F(AudioRouterLifetimeTest, ItsEndRestoresPlaybackThenRemovesTheListenersAllOnItsQueue) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  const std::string device = std::to_string(world_.routeOf(812));
  const std::string tap = std::to_string(world_.hardware.taps().begin()->first);
  world_.hardware.forgetCalls();
  bool offQueue = false;
  const std::weak_ptr<SerialQueue> queue = world_.router->queue();
  world_.hardware.beforeCall = [&](const std::string&) {
    const auto held = queue.lock();
    offQueue |= held == nullptr || !held->isCurrent();
  };
  world_.router.reset();
  EXPECT_THAT(world_.hardware.calls(), IsEmpty()) << "not on the thread that let go";
  world_.time.run();
  EXPECT_FALSE(offQueue);
  EXPECT_THAT(world_.hardware.callTexts(),
              ElementsAre("stopDevice " + device, "destroyIOProc " + device,
                          "destroyAggregateDevice " + device, "destroyProcessTap " + tap,
                          "removePropertyListener 1 dOut", "removePropertyListener 1 prs#"));
  for (const auto& call : world_.hardware.calls()) EXPECT_EQ(call.status, 0) << call.text;
  EXPECT_EQ(world_.hardware.openViews(), 0U);
  EXPECT_EQ(world_.hardware.listeners(), 0U);
  EXPECT_TRUE(queue.expired());
  world_.hardware.beforeCall = nullptr;
}

TEST_F(AudioRouterLifetimeTest, ReleasedOnItsOwnQueueItEndsAtOnce) {
  const std::weak_ptr<SerialQueue> queue = world_.router->queue();
  queue.lock()->submit([&] {
    world_.router.reset();
    EXPECT_EQ(world_.hardware.openViews(), 0U);
  });
  world_.time.run();
  EXPECT_TRUE(queue.expired());
}

TEST_F(AudioRouterLifetimeTest, ReleasedBeforeItStartedItNeverListens) {
  auto second = world_.makeRouter();
  second.reset();
  world_.time.run();
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
  EXPECT_EQ(world_.hardware.openViews(), 1U);
}

TEST_F(AudioRouterLifetimeTest, APendingRestoreDoesNotReviveIt) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.setDefaultOutput(world_.hardware.addDevice("new", fakes::floatFormat(2, 48'000.0)));
  world_.time.run();
  world_.hardware.forgetCalls();
  release();
  EXPECT_EQ(world_.hardware.openViews(), 0U);
  world_.hardware.forgetCalls();
  world_.time.advance(10.0);
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioRouterLifetimeTest, APendingNotificationDoesNotReviveIt) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  const auto queue = world_.router->queue();
  world_.router.reset();                              // its end is submitted first …
  world_.hardware.notify(audio::kProcessObjectList);  // … then these
  world_.hardware.notify(audio::kDefaultOutputDevice);
  world_.hardware.forgetCalls();
  world_.time.run();
  EXPECT_THAT(world_.hardware.routeCalls(),
              ElementsAre("stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"));
  world_.hardware.forgetCalls();
  world_.time.advance(10.0);
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioRouterLifetimeTest, ItsTimerEndsWithIt) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  const auto queue = world_.router->queue();  // somebody keeps the queue
  release();
  world_.hardware.forgetCalls();
  world_.processes.recordReads = 0;
  world_.time.advance(20.0);
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
  EXPECT_EQ(world_.processes.recordReads, 0);
}

TEST_F(AudioRouterLifetimeTest, ARequestInTheQueueKeepsItUntilItIsDone) {
  world_.play(812);
  std::size_t listed = 0;
  const auto queue = world_.router->queue();
  queue->submit([router = world_.router, &listed] { listed = router->applications().applications.size(); });
  release();
  EXPECT_EQ(listed, 1U);
  EXPECT_EQ(world_.hardware.openViews(), 0U);
}

TEST_F(AudioRouterLifetimeTest, WhateverFailsAtItsEndNothingStays) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.failFrom(1, -32);
  release();
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.hardware.listeners(), 0U);
  EXPECT_EQ(world_.hardware.openViews(), 0U);
}

TEST_F(AudioRouterLifetimeTest, TwoRoutersKeepTheirRoutesApart) {
  const auto second = world_.makeRouter();
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  second->queue()->submit([&] { second->setGain(0.6, {keyOf(813)}); });
  world_.time.run();
  EXPECT_EQ(world_.level(813), 0.6F);
  world_.stop();
  EXPECT_EQ(world_.level(812), 1.0F);
  EXPECT_EQ(world_.level(813), 0.6F);
}

}  // namespace
}  // namespace monitor
