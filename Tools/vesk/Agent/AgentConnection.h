// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Tools/vesk/Agent/BusCalls.h"
#include "Tools/vesk/Agent/GainKeeper.h"

namespace monitor::vesk::agent {

// A command's line to the agent, which the bus starts when it is called. Every call waits for its answer.
// Throws CommandError: Unavailable where bus or agent cannot be reached, Failed where the agent gives no
// sensible answer.
class AgentConnection {
 public:
  AgentConnection();

  [[nodiscard]] GainKeeper::ListAnswer list();
  [[nodiscard]] GainKeeper::Answer setGain(const std::string& application, double gain);
  // These two do not start an agent: nothing where none runs.
  [[nodiscard]] std::optional<GainKeeper::Answer> stop(const std::string& application);
  [[nodiscard]] std::optional<GainKeeper::Status> status();

  // The process that owns a name on the bus, if any does.
  [[nodiscard]] std::optional<pid_t> ownerOf(const char* name);

 private:
  [[nodiscard]] platform::Message newCall(const char* member, bool startsAgent);
  // Null where no agent runs and the call does not start one.
  [[nodiscard]] platform::Message call(const std::function<platform::Message()>& makeCall,
                                       double timeoutSeconds);

  platform::Bus bus_;
};

}  // namespace monitor::vesk::agent
