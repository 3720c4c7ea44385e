// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <chrono>
#include <thread>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/RemoteConnections.h"
#include "Tests/Contract/ServiceConnectionContract.h"
#include "Tests/Platform/Ipc/PrivateBus.h"
#include "Tests/Platform/Ipc/ServiceThread.h"

namespace monitor::contract {
namespace {

class BusHarness {
 public:
  explicit BusHarness(ServiceListenerDelegate<MonitorAudioProtocol>& delegate) : delegate_(delegate) {
    options_.lastAnswersSeconds = 0.0;  // a crash waits for nothing
    start();
  }
  RemoteConnectionFactory<MonitorAudioProtocol>& factory() { return factory_; }
  [[nodiscard]] static std::string user() { return std::to_string(getuid()); }
  static bool await(Event& event) { return event.wait(); }
  static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }
  void crashService() {
    service_.reset();
    start();
  }

 private:
  void start() { service_ = std::make_unique<tests::ServiceThread>(bus_, delegate_, options_); }

  ServiceListenerDelegate<MonitorAudioProtocol>& delegate_;
  platform::ServiceBusOptions options_ = platform::AudioServiceListener::defaults();
  tests::PrivateBus bus_;
  platform::BusAudioConnections factory_{bus_.busAddress()};
  std::unique_ptr<tests::ServiceThread> service_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(OverTheBus, ServiceConnectionContract, BusHarness);

}  // namespace
}  // namespace monitor::contract
