// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "MonitorCore/Date.h"
#include "MonitorCore/Ports/Time.h"

namespace monitor::vesk {

// What the agent has to tell: sentences about things that nobody asked for, newest last, and the last
// failure. One thread; the clock outlives it.
class KeeperJournal {
 public:
  struct Event {
    Date time;
    std::string text;
  };

  static constexpr std::size_t kMostEvents = 20;

  explicit KeeperJournal(const WallClock& clock) : clock_(clock) {}

  // Ignores the empty text.
  void tell(const std::string& text);
  // The message that comes with the service's lists stands until another replaces it: true, and told, the
  // first time only.
  bool noteStandingMessage(const std::string& text);
  void noteFailure(const std::string& error, const std::string& cause);
  void noteSuccess() { noteFailure({}, {}); }

  [[nodiscard]] std::vector<Event> events() const { return {events_.begin(), events_.end()}; }
  [[nodiscard]] const std::string& lastError() const { return lastError_; }
  [[nodiscard]] const std::string& lastCause() const { return lastCause_; }

  std::function<void(const std::string& text)> onTell;

 private:
  const WallClock& clock_;
  std::deque<Event> events_;
  std::string standingMessage_;
  std::string lastError_;
  std::string lastCause_;
};

}  // namespace monitor::vesk
