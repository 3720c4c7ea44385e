// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "MonitorCore/CounterRate.h"

namespace monitor {

// The counters of one network interface or one storage device at one moment.
struct NetworkCounter {
  std::string name;            // under which its history is kept
  std::uint64_t received = 0;  // bytes in, or bytes read
  std::uint64_t sent = 0;      // bytes out, or bytes written
  bool physical = false;       // only physical rows count, and only they are remembered
};

// Rates of a set of counter pairs, summed over the physical ones. Not thread-safe.
class InterfaceRates {
 public:
  struct Sum {
    std::optional<double> download;  // bytes per second; absent when no row yielded a rate
    std::optional<double> upload;
  };

  // `uptime` as for CounterRate. An interface that is missing from `counters`, or no longer physical, loses
  // its history. Of rows that share a name every one after the first yields no rate: its time did not
  // advance.
  Sum sample(const std::vector<NetworkCounter>& counters, double uptime);

  // By name, the counters of received and sent bytes.
  using Rates = std::unordered_map<std::string, std::pair<CounterRate, CounterRate>>;
  [[nodiscard]] const Rates& rates() const { return rates_; }

 private:
  Rates rates_;
};

}  // namespace monitor
