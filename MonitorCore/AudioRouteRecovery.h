// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

#include "MonitorCore/ProcessKey.h"

namespace monitor {

// Which applications had a gain when the default output device changed, so that their routes can be rebuilt
// on the new device. Holds intents, not routes: nothing of the old device survives in it.
class AudioRouteRecovery {
 public:
  struct Intent {
    std::vector<ProcessKey> keys;
    double gain = 1.0;

    friend bool operator==(const Intent&, const Intent&) = default;
  };

  // Replaces an earlier intent of that application.
  void remember(const std::string& id, std::vector<ProcessKey> keys, double gain);
  void remove(const std::string& id);
  void clear();
  // All intents, in an order that carries no meaning; none are left.
  [[nodiscard]] std::vector<Intent> takePending();

  [[nodiscard]] const std::map<std::string, Intent>& pending() const { return pending_; }

 private:
  std::map<std::string, Intent> pending_;  // by application id
};

}  // namespace monitor
