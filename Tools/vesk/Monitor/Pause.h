// SPDX-License-Identifier: MIT
#pragma once

namespace monitor::vesk {

// Waiting between two samples, which whoever started the command may cut short for good.
class Pause {
 public:
  virtual ~Pause() = default;
  // Returns true once the clock of the command shows `time`, false at once when the command is to end.
  [[nodiscard]] virtual bool until(double time) = 0;
};

}  // namespace monitor::vesk
