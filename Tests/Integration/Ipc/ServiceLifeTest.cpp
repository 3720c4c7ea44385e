// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorMac/AudioClient.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/BusNames.h"
#include "Platform/Linux/Ipc/RemoteConnections.h"
#include "Tests/Integration/Ipc/ServiceOnBus.h"
#include "Tests/Platform/Ipc/TypeDbusManager.h"

namespace monitor::tests {
namespace {

using testing::HasSubstr;
namespace names = platform::names;

TEST(ServiceLife, SigtermGivesPlaybackBackAndEndsWell) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    ServiceOnBus service;
    RawClient client(service.bus);
    ASSERT_EQ(client.setGain(0.4, selection(1)), "");
    service.process.signal(signal);
    EXPECT_EQ(service.exitStatus(), 0);
    EXPECT_THAT(service.log(), HasSubstr("left with 0 views, clean"));
  }
}

TEST(ServiceLife, LosingTheBusGivesPlaybackBackAndFails) {
  ServiceOnBus service;
  RawClient client(service.bus);
  ASSERT_EQ(client.setGain(0.4, selection(1)), "");
  service.bus.kill();
  EXPECT_EQ(service.exitStatus(), 1);
  EXPECT_THAT(service.log(), HasSubstr("The connection to the bus is lost."));
  EXPECT_THAT(service.log(), HasSubstr("left with 0 views, clean"));
}

TEST(ServiceLife, LeavesWhenIdleAndNotBefore) {
  ServiceOnBus service({"--idle", "0.2"});
  {
    RawClient client(service.bus);
    ASSERT_EQ(client.setGain(0.4, selection(1)), "");
    EXPECT_EQ(service.process.wait(lab::Milliseconds(500)), std::nullopt);
  }
  EXPECT_EQ(service.exitStatus(), 0);
}

TEST(ServiceLife, IsStartedByItsFirstCallAndAgainAfterItHasLeft) {
  const PrivateBus bus({.activations = {{kServiceName, fakeServiceProgram() + " --idle 0.1"}}});
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(bus.ownerOf(kServiceName), 0);
    auto client = std::make_unique<RawClient>(bus);
    EXPECT_EQ(client->setGain(0.4, selection(1)), "");
    EXPECT_NE(bus.ownerOf(kServiceName), 0);
    client.reset();
    for (int i = 0; i < 5000 && bus.ownerOf(kServiceName) != 0; ++i) usleep(1000);
  }
}

TEST(ServiceLife, AnswersEveryCallThatMeetsItWhileItLeaves) {
  // Whatever the moment, the call reaches the service that is there, or starts the next one.
  const PrivateBus bus({.activations = {{kServiceName, fakeServiceProgram() + " --idle 0.02"}}});
  for (int round = 0; round < 40; ++round) {
    ASSERT_EQ(RawClient(bus).call(kServiceInterface, "Applications"), "") << round;
    usleep(static_cast<useconds_t>(15'000 + round * 500));
  }
}

TEST(ServiceLife, AnswersEveryCallAlsoWhenItsManagerEndsItAsSoonAsTheNameIsFree) {
  const PrivateBus bus({.activations = {{kServiceName, fakeServiceProgram() + " --idle 0.02"}}});
  const TypeDbusManager manager(bus.address(), kServiceName);
  for (int round = 0; round < 40; ++round) {
    ASSERT_EQ(RawClient(bus).call(kServiceInterface, "Applications"), "") << round;
    usleep(static_cast<useconds_t>(15'000 + round * 500));
  }
  EXPECT_GT(manager.told(), 0U);
}

TEST(ServiceLife, RefusesClientsWhenItBelongsToAnotherUser) {
  ServiceOnBus service({"--user", std::to_string(getuid() + 1)});
  RawClient client(service.bus);
  EXPECT_EQ(client.call(kServiceInterface, "Applications"), names::kAccessDenied);
  EXPECT_EQ(client.setGain(0.4, selection(1)), names::kAccessDenied);
  EXPECT_EQ(client.call(kServiceInterface, "Stop"), names::kAccessDenied);
  EXPECT_EQ(service.status(kNothingLeft), kNothingLeft);
}

TEST(ServiceLife, RefusesAnotherUserWhomTheBusLetsIn) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  ServiceOnBus service({}, {.everyUser = true});
  const auto result = service.bus.run(
      {"sh", "-c",
       "exec setpriv --reuid=65534 --regid=65534 --clear-groups busctl --address=" + service.bus.address() +
           " call " + kServiceName + " " + kServicePath + " " + kServiceInterface + " Applications 2>&1"});
  EXPECT_THAT(result.output, HasSubstr("Access denied"));
  EXPECT_NE(result.status, 0);
  EXPECT_EQ(service.status(kNothingLeft), kNothingLeft);
  // The same way round it works for the service's own user.
  EXPECT_THAT(service.call("Applications"), HasSubstr("\"ays\""));
}

// The client of the monitor application, over the bus to the service. The test's thread runs the main queue.
class AudioClientOverTheBus : public testing::Test {
 protected:
  // Runs the main queue until `done` has been called.
  void run(const std::function<void(std::function<void()> done)>& action) {
    bool finished = false;
    main->submit([&] {
      action([&] {
        finished = true;
        main->quit();
      });
    });
    main->submitAfter(20.0, [this] { main->quit(); });
    main->run();
    EXPECT_TRUE(finished);
  }
  std::vector<AudioApplication> list() {
    std::vector<AudioApplication> result;
    run([&](const auto& done) {
      client->applications([&, done](const auto& applications, const auto& message) {
        EXPECT_EQ(message, std::nullopt);
        if (applications) result = *applications;
        done();
      });
    });
    return result;
  }
  std::optional<std::string> setGain(double gain, const AudioApplication& application) {
    std::optional<std::string> result;
    run([&](const auto& done) {
      client->setGain(gain, application, [&, done](const auto& message) {
        result = message;
        done();
      });
    });
    return result;
  }

  std::unique_ptr<ServiceOnBus> service = std::make_unique<ServiceOnBus>();
  std::shared_ptr<platform::MainQueue> main = std::make_shared<platform::MainQueue>();
  platform::BusAudioConnections factory{service->bus.busAddress()};
  std::shared_ptr<AudioClient> client = AudioClient::make(factory, main);
};

TEST_F(AudioClientOverTheBus, ListsSetsAndStops) {
  const auto programs = list();
  ASSERT_EQ(programs.size(), 3U);
  EXPECT_EQ(setGain(0.4, programs[1]), std::nullopt);
  EXPECT_EQ(list()[1].gain, 0.4);
  EXPECT_EQ(setGain(2.0, programs[1]), changedProcessText());
  main->submit([this] { client->stop(); });
  // Everything has gone once the connection is closed, a second later.
  main->submitAfter(1.1, [this] { main->quit(); });
  main->run();
  EXPECT_EQ(service->status(kNothingLeft), kNothingLeft);
}

TEST_F(AudioClientOverTheBus, HearsOnceOfTheServicesDeath) {
  const auto programs = list();
  ASSERT_EQ(setGain(0.4, programs.at(0)), std::nullopt);
  int losses = 0;
  run([&](const auto& done) {
    client->onDisconnect = [&, done] {
      ++losses;
      done();
    };
    service->process.kill();
  });
  main->submitAfter(0.1, [this] { main->quit(); });
  main->run();
  EXPECT_EQ(losses, 1);
}

TEST_F(AudioClientOverTheBus, HearsOnceOfTheLossOfTheBus) {
  ASSERT_EQ(list().size(), 3U);
  int losses = 0;
  run([&](const auto& done) {
    client->onDisconnect = [&, done] {
      ++losses;
      done();
    };
    service->bus.kill();
  });
  main->submitAfter(0.1, [this] { main->quit(); });
  main->run();
  EXPECT_EQ(losses, 1);
}

TEST_F(AudioClientOverTheBus, EndsItsRoutesWhenItsProcessDoes) {
  ASSERT_EQ(setGain(0.4, list().at(0)), std::nullopt);
  client.reset();
  EXPECT_EQ(service->status(kNothingLeft), kNothingLeft);
}

}  // namespace
}  // namespace monitor::tests
