// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/AudioServiceListener.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <utility>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Ipc/AudioExport.h"

namespace monitor::platform {
namespace {

// What the accept hook configures. The hook may keep it; the listener keeps it as long as the peer is there.
class BusServiceConnection final : public ServiceConnection<MonitorAudioProtocol> {
 public:
  explicit BusServiceConnection(std::uint32_t userIdentifier) : userIdentifier_(userIdentifier) {}

  [[nodiscard]] std::uint32_t effectiveUserIdentifier() const override { return userIdentifier_; }
  void setCodeSigningRequirement(std::string_view requirement) override { requirement_ = requirement; }
  void setExportedInterface() override {}  // AudioExport is the only one there is
  void setExportedObject(std::shared_ptr<MonitorAudioProtocol> object) override {
    object_ = std::move(object);
  }
  void setInvalidationHandler(std::function<void()> handler) override { invalidation_ = std::move(handler); }
  void setInterruptionHandler(std::function<void()> handler) override { interruption_ = std::move(handler); }
  void resume() override { resumed_ = true; }

  [[nodiscard]] bool serves() const { return resumed_ && object_ != nullptr; }
  [[nodiscard]] MonitorAudioProtocol& object() { return *object_; }
  void end(PeerSession::End reason) {
    const auto interrupted = std::exchange(interruption_, nullptr);
    const auto invalidated = std::exchange(invalidation_, nullptr);
    if (reason == PeerSession::End::BusLost && interrupted) interrupted();
    if (invalidated) invalidated();
    object_.reset();
  }

 private:
  std::uint32_t userIdentifier_;
  std::string requirement_;
  std::shared_ptr<MonitorAudioProtocol> object_;
  std::function<void()> invalidation_;
  std::function<void()> interruption_;
  bool resumed_ = false;
};

class AcceptedPeer final : public AudioPeerSession {
 public:
  explicit AcceptedPeer(std::shared_ptr<BusServiceConnection> connection)
      : connection_(std::move(connection)) {}
  [[nodiscard]] MonitorAudioProtocol& object() override { return connection_->object(); }
  void end(End reason) override { connection_->end(reason); }

 private:
  std::shared_ptr<BusServiceConnection> connection_;
};

}  // namespace

AudioServiceListener::AudioServiceListener(std::shared_ptr<MainQueue> queue, ServiceBusOptions options)
    : queue_(std::move(queue)), options_(std::move(options)) {}
AudioServiceListener::~AudioServiceListener() = default;

ServiceBusOptions AudioServiceListener::defaults() {
  ServiceBusOptions options;
  options.name = MonitorServiceIdentity::audio;
  return options;
}

int AudioServiceListener::resume() {
  int status = EXIT_FAILURE;
  try {
    ServiceBus bus(
        queue_->loop(), options_, [this](std::uint32_t user) { return accept(user); },
        [this, &status](int result) {
          status = result;
          queue_->quit();
        });
    const AudioExport object(bus.bus(), bus.peers());
    bus.start();
    serving_ = &bus;
    queue_->run();
    serving_ = nullptr;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", options_.name.c_str(), error.what());
  }
  return status;
}

void AudioServiceListener::stop() {
  queue_->submit([this] {
    if (serving_ != nullptr) serving_->leave();
  });
}

std::unique_ptr<PeerSession> AudioServiceListener::accept(std::uint32_t userIdentifier) {
  auto connection = std::make_shared<BusServiceConnection>(userIdentifier);
  if (!delegate_->shouldAcceptNewConnection(connection) || !connection->serves()) return nullptr;
  return std::make_unique<AcceptedPeer>(std::move(connection));
}

}  // namespace monitor::platform
