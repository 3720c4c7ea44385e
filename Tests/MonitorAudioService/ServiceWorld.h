// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MonitorAudioService/AudioService.h"
#include "MonitorAudioService/AudioSession.h"
#include "MonitorCore/AudioApplication.h"
#include "Tests/Fakes/FakeAudioWorld.h"
#include "Tests/Fakes/FakeServiceConnections.h"

namespace monitor::testing_support {

using fakes::keyOf;

// The whole service and its clients on virtual time.
struct ServiceWorld : fakes::FakeAudioWorld {
  SilenceWatch* silence = nullptr;  // null is the rule turned off
  std::shared_ptr<fakes::FakeServiceConnections<MonitorAudioProtocol>> connections =
      std::make_shared<fakes::FakeServiceConnections<MonitorAudioProtocol>>(time.makeQueue("transport"));
  AudioService service;

  // Sessions end before the world they live in.
  ~ServiceWorld() {
    for (std::size_t link = 0; link < connections->links.size(); ++link) connections->dropClient(link);
    time.run();
  }

  AudioServicePorts ports() {
    return {hardware, queues, clock, processes, bundles, system, makeUuid(), silence};
  }
  int run() {
    return runService(service, ports(), [this] { return connections; });
  }
};

struct ListAnswer {
  std::optional<std::vector<AudioApplication>> applications;
  std::optional<std::string> message;
  int replies = 0;
};

struct GainAnswer {
  std::optional<std::string> error;
  int replies = 0;
};

// A client of that service.
class TestClient {
 public:
  explicit TestClient(ServiceWorld& world)
      : world_(world),
        connection_(world.connections->makeConnection("audio", false)),
        index_(world.connections->links.size() - 1) {
    connection_->setInvalidationHandler([this] { ++invalidations; });
    connection_->resume();
    world_.time.run();
  }

  ListAnswer list() {
    auto answer = std::make_shared<ListAnswer>();
    proxy()->applications([answer](const auto& data, const auto& message) {
      ++answer->replies;
      if (data) answer->applications = decodeApplications(*data);
      answer->message = message;
    });
    world_.time.run();
    return *answer;
  }
  GainAnswer setGain(double gain, const Data& processes) {
    auto answer = std::make_shared<GainAnswer>();
    proxy()->setGain(gain, processes, [answer](const auto& error) {
      ++answer->replies;
      answer->error = error;
    });
    world_.time.run();
    return *answer;
  }
  GainAnswer setGain(double gain, std::int32_t pid) { return setGain(gain, encodeProcessKeys({keyOf(pid)})); }
  int stop() {
    auto replies = std::make_shared<int>(0);
    proxy()->stop([replies] { ++*replies; });
    world_.time.run();
    return *replies;
  }
  void drop() {
    world_.connections->dropClient(index_);
    world_.time.run();
  }

  [[nodiscard]] std::shared_ptr<MonitorAudioProtocol> proxy() const {
    return connection_->remoteObjectProxy();
  }
  [[nodiscard]] fakes::FakeLink<MonitorAudioProtocol>& link() const {
    return *world_.connections->links.at(index_);
  }
  [[nodiscard]] std::size_t index() const { return index_; }
  // The service's own object for this client; null once it is gone.
  [[nodiscard]] std::shared_ptr<AudioSession> session() const {
    return std::dynamic_pointer_cast<AudioSession>(link().exported());
  }
  int invalidations = 0;

 private:
  ServiceWorld& world_;
  std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> connection_;
  std::size_t index_;
};

}  // namespace monitor::testing_support
