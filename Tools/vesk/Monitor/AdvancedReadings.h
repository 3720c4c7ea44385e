// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "MonitorCore/MonitorSnapshot.h"

namespace monitor::vesk {

// The readings of the privileged helper beside the sampler's own. The helper takes a second for a sample and
// may not be there at all: nothing here waits for it unless it says so. One caller at a time.
class AdvancedReadings {
 public:
  virtual ~AdvancedReadings() = default;
  // Asks for a sample, unless one is being asked for or there is nobody to ask.
  virtual void request() = 0;
  // Waits for what was asked for, at most `seconds`.
  virtual void settle(double seconds) = 0;
  // Merges the latest sample, as long as it is fresh.
  virtual void mergeInto(MonitorSnapshot& snapshot) = 0;
  // One line for the user: what the helper reports, or why it does not.
  [[nodiscard]] virtual std::string status() const = 0;
};

}  // namespace monitor::vesk
