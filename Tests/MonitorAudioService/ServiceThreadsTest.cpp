// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "MonitorAudioService/AudioService.h"
#include "MonitorAudioService/AudioSession.h"
#include "MonitorCore/AudioApplication.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/Queues.h"
#include "Tests/Fakes/FakeApplicationBundles.h"
#include "Tests/Fakes/FakeAudioHardware.h"
#include "Tests/Fakes/FakeProcessTable.h"
#include "Tests/Fakes/FakeServiceConnections.h"
#include "Tests/Fakes/FakeSystemInformation.h"

// The service on real queues, with clients, audio system and realtime thread all moving at once.
namespace monitor {
namespace {

constexpr double kPatience = 30.0;  // seconds, for a machine that is busy elsewhere

ProcessKey keyOf(std::int32_t pid) {
  return {pid, static_cast<std::uint64_t>(pid) * 1000};
}

// Counts down from many threads.
class Countdown {
 public:
  explicit Countdown(int count) : left_(count) {}
  void arrive() {
    const std::lock_guard lock(mutex_);
    if (--left_ == 0) done_.notify_all();
  }
  [[nodiscard]] bool wait() {
    std::unique_lock lock(mutex_);
    return done_.wait_for(lock, std::chrono::duration<double>(kPatience), [this] { return left_ <= 0; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  int left_;
};

class ServiceThreadsTest : public testing::Test {
 protected:
  static constexpr std::int32_t kFirstPid = 1000;
  static constexpr std::int32_t kPrograms = 8;

  ServiceThreadsTest() {
    for (std::int32_t pid = kFirstPid; pid < kFirstPid + kPrograms; ++pid) {
      processes_.add(keyOf(pid), "/usr/bin/player", system_.user);
      hardware_.addProcess(pid);
    }
    const AudioServicePorts ports{hardware_, *queues_, clock_, processes_, bundles_, system_, [this] {
                                    return "uuid-" + std::to_string(++uuids_);
                                  }};
    runService(service_, ports, [this] { return connections_; });
  }
  // All that the service began ends by itself once its clients are gone; the delegate is asked until then.
  ~ServiceThreadsTest() override {
    service_.listener.reset();
    connections_.reset();
    EXPECT_TRUE(platform::waitForSerialQueues(before_, kPatience)) << "a queue's thread is left";
    EXPECT_EQ(hardware_.openViews(), 0U);
    EXPECT_EQ(hardware_.listeners(), 0U);
    EXPECT_TRUE(hardware_.isClean());
  }

  std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> connect() {
    auto connection = connections_->makeConnection("audio", false);
    connection->resume();
    return connection;
  }

  std::size_t before_ = platform::liveSerialQueues();
  std::unique_ptr<SerialQueueFactory> queues_ = platform::makeSerialQueueFactory();
  platform::MonotonicClock clock_;
  fakes::FakeAudioHardware hardware_;
  fakes::FakeProcessTable processes_;
  fakes::FakeApplicationBundles bundles_;
  fakes::FakeSystemInformation system_;
  std::atomic<int> uuids_ = 0;
  std::shared_ptr<fakes::FakeServiceConnections<MonitorAudioProtocol>> connections_ =
      std::make_shared<fakes::FakeServiceConnections<MonitorAudioProtocol>>(
          queues_->makeSerialQueue("transport", QualityOfService::Unspecified));
  AudioService service_;
};

TEST_F(ServiceThreadsTest, ClientsComeAskAndGoWhileSoundPlaysAndEverythingChanges) {
  std::atomic<bool> stopping = false;
  std::thread realtime([&] {
    while (!stopping) {
      hardware_.runCycles();
      std::this_thread::yield();
    }
  });
  std::thread changes([&] {
    const AudioObjectID first = hardware_.defaultOutput();
    const AudioObjectID second = hardware_.addDevice("headphones", fakes::floatFormat(2, 44'100.0));
    for (int round = 0; !stopping; ++round) {
      hardware_.notify(audio::kProcessObjectList);
      hardware_.setDefaultOutput(round % 2 == 0 ? second : first);
      std::this_thread::yield();
    }
  });
  constexpr int kRounds = 12;
  constexpr int kRequests = 4;
  for (int round = 0; round < kRounds; ++round) {
    Countdown replies(kPrograms * kRequests);
    std::vector<std::shared_ptr<RemoteConnection<MonitorAudioProtocol>>> clients;
    for (std::int32_t index = 0; index < kPrograms; ++index) {
      clients.push_back(connect());
      const auto proxy =
          clients.back()->remoteObjectProxyWithErrorHandler([&](const auto&) { replies.arrive(); });
      const Data selection = encodeProcessKeys({keyOf(kFirstPid + index)});
      proxy->setGain(0.4, selection, [&](const auto&) { replies.arrive(); });
      proxy->applications([&](const auto& data, const auto&) {
        EXPECT_TRUE(data.has_value());
        replies.arrive();
      });
      proxy->setGain(0.2, selection, [&](const auto&) { replies.arrive(); });
      proxy->stop([&] { replies.arrive(); });
    }
    EXPECT_TRUE(replies.wait());
  }
  stopping = true;
  realtime.join();
  changes.join();
}

TEST_F(ServiceThreadsTest, ClientsThatLeaveWithRequestsUnderWayLeaveNothing) {
  constexpr int kClients = 40;
  for (int count = 0; count < kClients; ++count) {
    const auto client = connect();
    const auto proxy = client->remoteObjectProxy();
    proxy->setGain(0.4, encodeProcessKeys({keyOf(kFirstPid + count % kPrograms)}), [](const auto&) {});
    proxy->applications([](const auto&, const auto&) {});
  }
}

TEST_F(ServiceThreadsTest, ASessionMayBeReleasedOnAnyThread) {
  const AudioRouterPorts ports{hardware_.openView(),
                               *queues_,
                               clock_,
                               processes_,
                               bundles_,
                               system_,
                               [] { return std::string("uuid"); }};
  auto session = std::make_shared<AudioSession>(ports);
  Countdown replies(1);
  session->setGain(0.4, encodeProcessKeys({keyOf(kFirstPid)}), [&](const auto& error) {
    EXPECT_EQ(error, std::nullopt);
    replies.arrive();
  });
  EXPECT_TRUE(replies.wait());
  std::thread elsewhere([released = std::move(session)]() mutable { released.reset(); });
  elsewhere.join();
}

TEST_F(ServiceThreadsTest, ASessionMayBeReleasedByItsOwnReply) {
  Countdown replies(1);
  auto* session = new std::shared_ptr<AudioSession>(std::make_shared<AudioSession>(
      AudioRouterPorts{hardware_.openView(), *queues_, clock_, processes_, bundles_, system_,
                       [] { return std::string("uuid"); }}));
  (*session)->applications([&replies, session](const auto&, const auto&) {
    delete session;
    replies.arrive();
  });
  EXPECT_TRUE(replies.wait());
}

}  // namespace
}  // namespace monitor
