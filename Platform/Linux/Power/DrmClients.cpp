// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/DrmClients.h"

#include <algorithm>

#include "Platform/Linux/Host/HostFiles.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kMostEngines = 64;
constexpr std::size_t kLongestName = 64;
constexpr std::uint64_t kLargestCapacity = 1'024;
constexpr double kNano = 1e-9;

// The first word of a line's value as a number; the word behind it is the unit.
std::optional<std::uint64_t> amount(std::string_view value, std::string_view unit) {
  const auto pieces = words(value);
  if (pieces.empty() || pieces.size() > 2 || (pieces.size() == 2 && pieces[1] != unit)) return std::nullopt;
  return unsignedNumber(pieces[0]);
}

class Reader {
 public:
  void take(std::string_view key, std::string_view value) {
    if (key == "drm-driver") {
      key_.driver = word(value);
    } else if (key == "drm-pdev") {
      key_.device = word(value);
    } else if (key == "drm-client-id") {
      id_ = amount(value, "");
    } else if (takePrefix(key, "drm-engine-capacity-")) {
      if (DrmEngine* engine = engineOf(key)) {
        engine->capacity = std::clamp<std::uint64_t>(amount(value, "").value_or(1), 1, kLargestCapacity);
      }
    } else if (takePrefix(key, "drm-engine-")) {
      if (DrmEngine* engine = engineOf(key)) engine->nanoseconds = amount(value, "ns");
    } else if (takePrefix(key, "drm-total-cycles-")) {
      if (DrmEngine* engine = engineOf(key)) engine->totalCycles = amount(value, "");
    } else if (takePrefix(key, "drm-cycles-")) {
      if (DrmEngine* engine = engineOf(key)) engine->cycles = amount(value, "");
    }
  }

  std::optional<DrmClients::value_type> result() {
    std::erase_if(engines_,
                  [](const auto& entry) { return !entry.second.nanoseconds && !entry.second.cycles; });
    if (key_.driver.empty() || !id_ || engines_.empty()) return std::nullopt;
    key_.id = *id_;
    return DrmClients::value_type(std::move(key_), std::move(engines_));
  }

 private:
  static bool takePrefix(std::string_view& key, std::string_view prefix) {
    if (!key.starts_with(prefix)) return false;
    key.remove_prefix(prefix.size());
    return true;
  }
  static std::string word(std::string_view value) {
    const auto pieces = words(value);
    return pieces.size() == 1 && pieces[0].size() <= kLongestName ? std::string(pieces[0]) : std::string();
  }
  DrmEngine* engineOf(std::string_view name) {
    if (name.empty() || name.size() > kLongestName) return nullptr;
    const auto found = engines_.find(std::string(name));
    if (found != engines_.end()) return &found->second;
    return engines_.size() < kMostEngines ? &engines_[std::string(name)] : nullptr;
  }

  DrmClientKey key_;
  std::optional<std::uint64_t> id_;
  DrmEngines engines_;
};

double growth(std::uint64_t before, std::uint64_t after) {
  return after > before ? static_cast<double>(after - before) : 0.0;
}

const DrmEngine* engineBefore(const DrmClients& before, const DrmClientKey& client, const std::string& name) {
  const auto engines = before.find(client);
  if (engines == before.end()) return nullptr;
  const auto engine = engines->second.find(name);
  return engine == engines->second.end() ? nullptr : &engine->second;
}

}  // namespace

std::optional<DrmClients::value_type> parseDrmClient(std::string_view text) {
  Reader reader;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) reader.take(line.substr(0, colon), line.substr(colon + 1));
  }
  return reader.result();
}

double busySeconds(const DrmEngine* before, const DrmEngine& after, double seconds) {
  const double most = seconds * static_cast<double>(after.capacity);
  if (after.nanoseconds) {
    // The number of a client is never given again: all that a new one has was worked since the first look.
    const std::uint64_t earlier = before != nullptr ? before->nanoseconds.value_or(0) : 0;
    return std::min(growth(earlier, *after.nanoseconds) * kNano, most);
  }
  // Total cycles count from no beginning of the client's, so a share needs both looks.
  if (before == nullptr || !before->cycles || !before->totalCycles || !after.cycles || !after.totalCycles) {
    return 0.0;
  }
  const double passed = growth(*before->totalCycles, *after.totalCycles);
  if (!(passed > 0)) return 0.0;
  return std::min(growth(*before->cycles, *after.cycles) / passed * seconds, most);
}

std::optional<double> busiestEngine(const DrmClients& before, const DrmClients& after,
                                    std::string_view device, double seconds) {
  if (!(seconds > 0)) return std::nullopt;
  std::map<std::string_view, double> shares;
  for (const auto& [client, engines] : after) {
    if (client.device != device) continue;
    for (const auto& [name, engine] : engines) {
      shares[name] += busySeconds(engineBefore(before, client, name), engine, seconds) / seconds /
                      static_cast<double>(engine.capacity);
    }
  }
  if (shares.empty()) return std::nullopt;
  const auto busiest = std::max_element(shares.begin(), shares.end(), [](const auto& one, const auto& other) {
    return one.second < other.second;
  });
  return std::min(busiest->second, 1.0);
}

double clientBusySeconds(const DrmClients& before, const DrmClients::value_type& after, double seconds) {
  double busy = 0.0;
  for (const auto& [name, engine] : after.second) {
    busy += busySeconds(engineBefore(before, after.first, name), engine, seconds);
  }
  return busy;
}

}  // namespace monitor::platform
