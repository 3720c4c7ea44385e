// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "Tools/vesk/Agent/ProgramPresence.h"

namespace monitor::vesk {

enum class HoldState : std::uint8_t {
  Active,   // the service last said that the program plays at the held gain
  Lost,     // it plays unchanged, and the gain is to be set again
  Waiting,  // the program lives but is not listed; the gain is set again when it is
};

// One gain that is to stay until it is changed or the program ends.
struct HeldGain {
  AudioApplication app;  // as last listed
  double gain = 1.0;
  HoldState state = HoldState::Active;
  std::string trouble;   // why it is not Active
  int attempts = 0;      // to set it again, since it last stayed for kSettledSeconds
  double retryAt = 0.0;  // Lost: not before this time of the monotonic clock
  double activeSince = 0.0;
};

// The gains a client holds and what becomes of them when the service's list says something else. Values and
// rules only: times are handed in (seconds of a monotonic clock), requests are made by the owner.
class HeldGains {
 public:
  // The service restores routes itself 0.4 s after the output device changed; a loss that short is none.
  static constexpr double kFirstRetrySeconds = 0.5;
  static constexpr double kLongestRetrySeconds = 8.0;
  // A gain that stayed this long is trusted again: its next loss is retried at once.
  static constexpr double kSettledSeconds = 60.0;

  [[nodiscard]] bool empty() const { return held_.empty(); }
  [[nodiscard]] std::vector<HeldGain> all() const;
  [[nodiscard]] const HeldGain* find(const std::string& id) const;

  // The user's word: `app` plays at `gain` from now on. Replaces what was held, attempts included.
  void hold(const AudioApplication& app, double gain, double now);
  // Keeps the new gain for a program that is not listed now. False where nothing is held for it.
  bool changeWaiting(const std::string& id, double gain);
  bool release(const std::string& id) { return held_.erase(id) > 0; }
  void clear() { held_.clear(); }

  // Compares with what the service says. `reason` is why a route that is missing may be missing. Returns
  // sentences for the user about programs that ended, left or came back.
  std::vector<std::string> reconcile(const std::vector<AudioApplication>& list, ProgramPresence& presence,
                                     const std::string& reason, double now);
  // The service is gone and all routes with it.
  void loseAll(const std::string& reason, double now);

  // The gains that may be set again now. Their `app` is as last listed.
  [[nodiscard]] std::vector<HeldGain> due(double now) const;
  // When the next of them is due.
  [[nodiscard]] std::optional<double> nextRetry() const;
  void beginRestore(const std::string& id);
  // Sentences for the user; nothing where they would repeat the last one or the gain is no longer held.
  std::optional<std::string> restored(const std::string& id, double now);
  std::optional<std::string> restoreFailed(const std::string& id, const std::string& error, double now);

 private:
  static void lose(HeldGain& held, const std::string& reason, double now);
  static void compare(HeldGain& held, const AudioApplication& listed, const std::string& reason, double now);

  std::map<std::string, HeldGain> held_;  // by application id
};

}  // namespace monitor::vesk
