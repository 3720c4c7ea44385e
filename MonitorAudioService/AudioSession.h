// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "MonitorAudioEngine/AudioRouter.h"
#include "MonitorCore/MonitorAudioProtocol.h"

namespace monitor {

// What one client talks to. Every request goes to the session's own router and is executed on that router's
// queue, in the order of arrival; the transport's thread only checks sizes, decodes and submits.
//
// Threads: the operations may be called from any thread but the router's. Replies are called on the router's
// queue (in the caller's thread where the queue is idle and nothing is to be stopped), the refusal of a
// selection on the caller's thread. Releasing the session ends the router with everything it
// routes.
class AudioSession final : public MonitorAudioProtocol, public MonitorAudioDiagnostics {
 public:
  static constexpr std::size_t kLargestSelectionBytes = 32'768;
  static constexpr std::string_view kInvalidSelectionText = "Invalid audio app selection.";

  // Makes the router. What the queue's factory throws.
  explicit AudioSession(AudioRouterPorts ports);

  void applications(ApplicationsReply reply) override;
  void setGain(double gain, const Data& processes, SetGainReply reply) override;
  void stop(StopReply reply) override;
  void lastCause(LastCauseReply reply) override;

  [[nodiscard]] const std::shared_ptr<AudioRouter>& router() const { return router_; }

 private:
  const std::shared_ptr<AudioRouter> router_;
};

}  // namespace monitor
