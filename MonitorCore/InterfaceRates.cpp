// SPDX-License-Identifier: MIT
#include "MonitorCore/InterfaceRates.h"

#include <string_view>
#include <unordered_set>

namespace monitor {
namespace {

void add(std::optional<double>& sum, std::optional<double> rate) {
  if (rate) sum = sum.value_or(0.0) + *rate;
}

}  // namespace

InterfaceRates::Sum InterfaceRates::sample(const std::vector<NetworkCounter>& counters, double uptime) {
  std::unordered_set<std::string_view> present;
  for (const NetworkCounter& counter : counters) {
    if (counter.physical) present.insert(counter.name);
  }
  std::erase_if(rates_, [&present](const auto& entry) { return !present.contains(entry.first); });

  Sum sum;
  for (const NetworkCounter& counter : counters) {
    if (!counter.physical) continue;
    auto& [received, sent] = rates_[counter.name];
    add(sum.download, received.sample(counter.received, uptime));
    add(sum.upload, sent.sample(counter.sent, uptime));
  }
  return sum;
}

}  // namespace monitor
