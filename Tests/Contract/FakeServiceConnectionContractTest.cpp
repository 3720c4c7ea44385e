// SPDX-License-Identifier: MIT
#include "Tests/Contract/ServiceConnectionContract.h"
#include "Tests/Fakes/FakeServiceConnections.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor::contract {
namespace {

class FakeHarness {
 public:
  explicit FakeHarness(ServiceListenerDelegate<MonitorAudioProtocol>& delegate) {
    service_.setDelegate(&delegate);
    service_.resume();
  }
  RemoteConnectionFactory<MonitorAudioProtocol>& factory() { return service_; }
  [[nodiscard]] std::string user() const { return std::to_string(service_.nextUser); }
  bool await(const Event& event) {
    time_.run();
    return event.happened();
  }
  void settle() { time_.run(); }
  void crashService() {
    for (std::size_t link = 0; link < service_.links.size(); ++link) service_.crashService(link);
    time_.run();
  }

 private:
  fakes::VirtualTime time_;
  fakes::FakeServiceConnections<MonitorAudioProtocol> service_{time_.makeQueue("transport")};
};

INSTANTIATE_TYPED_TEST_SUITE_P(InProcess, ServiceConnectionContract, FakeHarness);

}  // namespace
}  // namespace monitor::contract
