// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/ServiceBus.h"

namespace monitor::platform {

// The audio service on the session bus. The thread that resumes it is the service's IPC thread: the accept
// hook, the handlers of the connections and the calls of the exported objects run there, and nothing else
// does.
//
// The bus vouches for the user id of a peer and for nothing more: code-signing requirements are carried, not
// enforced.
class AudioServiceListener final : public ServiceListener<MonitorAudioProtocol> {
 public:
  // Everything by default except for tests, which use a bus, limits and patience of their own.
  explicit AudioServiceListener(std::shared_ptr<MainQueue> queue, ServiceBusOptions options = defaults());
  ~AudioServiceListener() override;
  AudioServiceListener(const AudioServiceListener&) = delete;
  AudioServiceListener& operator=(const AudioServiceListener&) = delete;
  [[nodiscard]] static ServiceBusOptions defaults();

  void setConnectionCodeSigningRequirement(std::string_view requirement) override {
    requirement_ = requirement;
  }
  void setDelegate(ServiceListenerDelegate<MonitorAudioProtocol>* delegate) override { delegate_ = delegate; }
  // Runs the queue given at construction until the service leaves: 0 after stop() or an idle minute, 1 when
  // the bus is lost or cannot be had, which is said on stderr. No session is left by then; the work that the
  // sessions submitted elsewhere may still be under way. REQUIRES: a delegate.
  int resume() override;

  // Any thread: ends the sessions, lets the answers under way out, and makes resume() return 0.
  void stop();
  [[nodiscard]] const std::string& requirement() const { return requirement_; }

 private:
  [[nodiscard]] std::unique_ptr<PeerSession> accept(std::uint32_t userIdentifier);

  std::shared_ptr<MainQueue> queue_;
  ServiceBusOptions options_;
  std::string requirement_;
  ServiceListenerDelegate<MonitorAudioProtocol>* delegate_ = nullptr;
  ServiceBus* serving_ = nullptr;  // the queue only
};

}  // namespace monitor::platform
