// SPDX-License-Identifier: MIT
#include "Tests/Contract/SerialQueueContract.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor::contract {
namespace {

struct VirtualHarness {
  fakes::VirtualTime time;
  std::shared_ptr<SerialQueue> makeQueue(std::string label) { return time.makeQueue(std::move(label)); }
  bool await(Event& event) {
    time.run();
    for (int step = 0; step < 100 && !event.happened(); ++step) time.advance(unit() / 4);
    return event.happened();
  }
  static double unit() { return 1.0; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, SerialQueueContract, VirtualHarness);

}  // namespace
}  // namespace monitor::contract
