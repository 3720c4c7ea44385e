// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <optional>
#include <utility>
#include <vector>

#include "MonitorCore/Ports/Time.h"
#include "Tools/vesk/Monitor/Pause.h"

namespace monitor::vesk {

// Takes signals over for as long as it lives: instead of ending the program they are read from here. A signal
// that was ignored before stays ignored. One at a time in a program.
class SignalWatch {
 public:
  explicit SignalWatch(const std::vector<int>& signals);  // std::system_error without descriptors
  ~SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

  // Readable when a signal has arrived.
  [[nodiscard]] int descriptor() const { return readEnd_; }
  // The next signal that arrived.
  [[nodiscard]] std::optional<int> take();

 private:
  int readEnd_ = -1;
  std::vector<std::pair<int, struct sigaction>> former_;
};

// Waits by the clock, until one of the signals that end a program arrives.
class SignalPause final : public Pause {
 public:
  explicit SignalPause(const Clock& clock);
  [[nodiscard]] bool until(double time) override;

 private:
  const Clock& clock_;
  SignalWatch watch_;
};

}  // namespace monitor::vesk
