// SPDX-License-Identifier: MIT
// The schedule between real threads: callers on many, its own queue, and the worker.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "MonitorHelperService/HelperSession.h"
#include "MonitorHelperService/SharedCollection.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/Queues.h"

namespace monitor::tests {
namespace {

constexpr int kThreads = 8;
constexpr int kCallsOfAThread = 8;

bool waitFor(const std::atomic<int>& count, int wanted) {
  for (int i = 0; i < 6000 && count < wanted; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return count >= wanted;
}

TEST(HelperThreads, EveryCallerWhoStaysIsAnsweredWithItsOwnUsersSample) {
  const platform::MonotonicClock clock;
  const auto queues = platform::makeSerialQueueFactory();
  auto collection = std::make_shared<SharedCollection>(SharedCollection::Ports{
      queues->makeSerialQueue("schedule", QualityOfService::Unspecified),
      queues->makeSerialQueue("worker", QualityOfService::Utility), clock, [](std::uint32_t) { return true; },
      [](std::uint32_t owner) {
        AdvancedSample sample;
        sample.processes = {{{static_cast<std::int32_t>(owner), 1}, {}, {}, 1.0}};
        return sample;
      }});
  std::atomic<int> answered = 0;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, user = 1000U + static_cast<std::uint32_t>(i % 2)] {
      const auto stays = std::make_shared<HelperSession>(user, collection);
      for (int call = 0; call < kCallsOfAThread; ++call) {
        stays->collect([&, user](const auto& data, const auto&) {
          const auto pid = data ? decodeAdvancedSample(*data).processes.at(0).key.pid : 0;
          if (pid != static_cast<std::int32_t>(user)) ++wrong;
          ++answered;
        });
        // One that leaves at once; whether it is still answered is nobody's business.
        std::make_shared<HelperSession>(user, collection)->collect([](const auto&, const auto&) {});
      }
      (void)waitFor(answered, kThreads * kCallsOfAThread);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(answered, kThreads * kCallsOfAThread);
  EXPECT_EQ(wrong, 0);
  collection.reset();
  EXPECT_TRUE(platform::waitForSerialQueues(0, 60.0));
}

}  // namespace
}  // namespace monitor::tests
