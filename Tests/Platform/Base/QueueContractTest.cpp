// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/Queues.h"
#include "Tests/Contract/SerialQueueContract.h"

namespace monitor::contract {
namespace {

// Long for a loaded machine, short for a test.
constexpr double kUnitSeconds = 0.01;

struct ThreadHarness {
  std::unique_ptr<SerialQueueFactory> factory = platform::makeSerialQueueFactory();
  std::shared_ptr<SerialQueue> makeQueue(std::string label) {
    return factory->makeSerialQueue(std::move(label), QualityOfService::UserInitiated);
  }
  static bool await(Event& event) { return event.wait(); }
  static double unit() { return kUnitSeconds; }
  ~ThreadHarness() { EXPECT_TRUE(platform::waitForSerialQueues(0, 20.0)); }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Threads, SerialQueueContract, ThreadHarness);

}  // namespace
}  // namespace monitor::contract
