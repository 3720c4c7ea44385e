// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "MonitorCore/Ports/Time.h"
#include "Tools/vesk/Console.h"

namespace monitor::vesk {

// A bar on standard error for work that takes a while. Draws on a terminal only, at most ten times a second,
// and wipes itself when it goes. Console and clock outlive it. One thread.
class Progress {
 public:
  // `total` in any unit; zero when unknown, which shows the count alone.
  Progress(const Console& console, const Clock& clock, std::string label, std::uint64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(std::uint64_t done);

 private:
  void draw(std::uint64_t done);

  const Console& console_;
  const Clock& clock_;
  std::string label_;
  std::uint64_t total_;
  double lastDraw_;
  bool drawn_ = false;
};

}  // namespace monitor::vesk
