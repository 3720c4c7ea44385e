// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "MonitorCore/AppUsage.h"
#include "MonitorCore/Date.h"
#include "MonitorCore/MonitorPreferences.h"

namespace monitor {

// One alert to show. `id` is the rule's key, the app id, "|" and the rule's kind: "com.example.editor|cpu".
struct MonitorAlert {
  std::string id;
  std::string appID;
  std::string title;
  std::string detail;

  friend bool operator==(const MonitorAlert&, const MonitorAlert&) = default;
};

// Watches the app rows of successive samples and raises alerts: for an app that keeps the CPU, the disk or
// the network busy without a break, and for one whose memory grew markedly over an hour. A raised alert is
// not repeated for 1800 seconds while its cause lasts. A value; fed once per sample; not thread-safe.
class MonitorAlertRules {
 public:
  struct MemoryEntry {
    Date date;
    double bytes;
  };
  using Dates = std::unordered_map<std::string, Date>;
  using MemoryHistories = std::unordered_map<std::string, std::deque<MemoryEntry>>;

  // The new alerts of one sample, in the order of `apps` and, within an app, cpu, disk, network, memory. With
  // alerts switched off: reset() and none. A gap of more than 90 seconds since the previous sample, or a date
  // before it, restarts every timer. `preferences` are normalised by the caller; as soon as there is an app
  // to judge, a cpuThreshold that is not finite or does not fit a 64-bit integer stops the program.
  [[nodiscard]] std::vector<MonitorAlert> evaluate(const std::vector<AppUsage>& apps, Date date,
                                                   const MonitorPreferences& preferences);
  // Forgets the timers and the memory histories, but not which alerts were raised when: switching alerts off
  // and on does not repeat them early.
  void reset();

  [[nodiscard]] std::optional<Date> lastSample() const { return lastSample_; }
  // By rule key, when the condition was first seen true in the present run.
  [[nodiscard]] const Dates& starts() const { return starts_; }
  // By app id, oldest first; at most the last 3660 seconds.
  [[nodiscard]] const MemoryHistories& memory() const { return memory_; }
  // By rule key, when the alert was last raised. Never pruned.
  [[nodiscard]] const Dates& sent() const { return sent_; }

 private:
  struct SustainedRule;

  void forgetOthers(const std::unordered_set<std::string_view>& eligible);
  void judgeSustained(const AppUsage& app, const SustainedRule& rule, Date date,
                      std::vector<MonitorAlert>& alerts);
  void judgeMemory(const AppUsage& app, Date date, double growthBytes, std::vector<MonitorAlert>& alerts);
  bool mayRaise(const std::string& key, Date date);

  std::optional<Date> lastSample_;
  Dates starts_;
  MemoryHistories memory_;
  Dates sent_;
};

}  // namespace monitor
