// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessKey.h"

namespace monitor {

std::string ProcessKey::id() const { return std::to_string(pid) + ':' + std::to_string(start); }

std::string fallbackIdentity(const ProcessKey& key) { return "process:" + key.id(); }

}  // namespace monitor

std::size_t std::hash<monitor::ProcessKey>::operator()(const monitor::ProcessKey& key) const noexcept {
  const std::size_t seed = std::hash<std::int32_t>{}(key.pid);
  return seed ^ (std::hash<std::uint64_t>{}(key.start) + 0x9e3779b97f4a7c15ULL + (seed << 6U) + (seed >> 2U));
}
