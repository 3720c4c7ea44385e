// SPDX-License-Identifier: MIT
#include "MonitorCore/AudioRouteRecovery.h"

#include <utility>

namespace monitor {

void AudioRouteRecovery::remember(const std::string& id, std::vector<ProcessKey> keys, double gain) {
  pending_.insert_or_assign(id, Intent{std::move(keys), gain});
}

void AudioRouteRecovery::remove(const std::string& id) {
  pending_.erase(id);
}

void AudioRouteRecovery::clear() {
  pending_.clear();
}

std::vector<AudioRouteRecovery::Intent> AudioRouteRecovery::takePending() {
  std::vector<Intent> intents;
  intents.reserve(pending_.size());
  for (auto& [id, intent] : std::exchange(pending_, {})) intents.push_back(std::move(intent));
  return intents;
}

}  // namespace monitor
