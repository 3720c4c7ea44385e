// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/GraphicsCards.h"

#include <algorithm>
#include <string_view>

namespace monitor::platform {
namespace {

constexpr std::string_view kClass = "sys/class/drm/";

// "card0"; "card0-HDMI-A-1" is an outlet of it.
bool isCard(std::string_view name) {
  constexpr std::string_view kPrefix = "card";
  return name.starts_with(kPrefix) && unsignedNumber(name.substr(kPrefix.size())).has_value();
}

std::string busAddress(const HostFiles& files, const std::string& device) {
  constexpr std::string_view kKey = "PCI_SLOT_NAME=";
  const std::string text = files.text(device + "/uevent").value_or("");
  for (const std::string_view word : words(text)) {
    if (word.starts_with(kKey)) return std::string(word.substr(kKey.size()));
  }
  return {};
}

std::optional<double> percent(std::optional<double> number) {
  return number && *number >= 0.0 && *number <= 100.0 ? number : std::nullopt;
}

// A counter that stands at zero is not kept: no part of a running machine was busy since its start.
void addIdle(const HostFiles& files, const std::string& part, const std::string& path, GraphicsCard& card) {
  const auto text = files.line(path);
  const auto value = text ? unsignedNumber(*text) : std::nullopt;
  if (value && *value != 0) card.idleMilliseconds[part] = *value;
}

void readIdleTimes(const HostFiles& files, const std::string& folder, GraphicsCard& card) {
  for (const std::string& part : files.names(folder + "/gt")) {
    addIdle(files, part, folder + "/gt/" + part + "/rc6_residency_ms", card);
  }
  for (const std::string& tile : files.names(folder + "/device")) {
    if (!tile.starts_with("tile")) continue;
    for (const std::string& part : files.names(folder + "/device/" + tile)) {
      if (!part.starts_with("gt")) continue;
      const std::string path = folder + "/device/" + tile + '/' + part + "/gtidle/idle_residency_ms";
      addIdle(files, tile + '/' + part, path, card);
    }
  }
  if (card.idleMilliseconds.empty()) addIdle(files, "power", folder + "/power/rc6_residency_ms", card);
}

GraphicsCard readCard(const HostFiles& files, const std::string& folder) {
  const std::string device = folder + "/device";
  GraphicsCard card;
  card.device = busAddress(files, device);
  card.asleep = files.line(device + "/power/runtime_status") == "suspended";
  if (card.asleep) return card;
  card.busyPercent = percent(files.number(device + "/gpu_busy_percent"));
  readIdleTimes(files, folder, card);
  return card;
}

using Looks = std::vector<const GraphicsCard*>;  // of one card

// A look at a card that slept counts as zero, beside at least one where the driver said something.
std::optional<double> meanBusyShare(const Looks& looks) {
  double sum = 0.0;
  std::size_t count = 0;
  bool told = false;
  for (const GraphicsCard* look : looks) {
    if (!look->asleep && !look->busyPercent) continue;
    told = told || look->busyPercent.has_value();
    sum += look->busyPercent.value_or(0.0) / 100.0;
    ++count;
  }
  return told ? std::optional(sum / static_cast<double>(count)) : std::nullopt;
}

// The part that was powered down least is as busy as the card.
std::optional<double> shareNotIdle(const GraphicsCard& before, const GraphicsCard& after, double seconds) {
  constexpr double kMillisecondsPerSecond = 1'000.0;
  std::optional<double> busiest;
  for (const auto& [part, idleAfter] : after.idleMilliseconds) {
    const auto idleBefore = before.idleMilliseconds.find(part);
    if (idleBefore == before.idleMilliseconds.end() || idleBefore->second > idleAfter) return std::nullopt;
    const double idle =
        static_cast<double>(idleAfter - idleBefore->second) / kMillisecondsPerSecond / seconds;
    busiest = std::max(busiest.value_or(0.0), 1.0 - std::min(idle, 1.0));
  }
  return busiest;
}

std::optional<double> cardShare(const Looks& looks, const GraphicsInterval& interval) {
  if (const auto share = meanBusyShare(looks)) return share;
  const auto slept = [](const GraphicsCard* look) { return look->asleep; };
  if (std::all_of(looks.begin(), looks.end(), slept)) return 0.0;
  const auto engines = busiestEngine(interval.before, interval.after, looks.back()->device, interval.seconds);
  return engines ? engines : shareNotIdle(*looks.front(), *looks.back(), interval.seconds);
}

}  // namespace

GraphicsCards readGraphicsCards(const HostFiles& files) {
  GraphicsCards cards;
  for (const std::string& name : files.names(kClass)) {
    if (isCard(name)) cards.emplace(name, readCard(files, std::string(kClass) + name));
  }
  return cards;
}

std::optional<double> graphicsBusyShare(const GraphicsInterval& interval) {
  if (interval.looks.empty() || !(interval.seconds > 0)) return std::nullopt;
  std::optional<double> busiest;
  for (const auto& [name, last] : interval.looks.back()) {
    Looks looks;
    for (const GraphicsCards& cards : interval.looks) {
      const auto found = cards.find(name);
      if (found != cards.end()) looks.push_back(&found->second);
    }
    // One that came meanwhile has been seen too little.
    if (looks.size() != interval.looks.size()) continue;
    const auto share = cardShare(looks, interval);
    if (share) busiest = std::max(busiest.value_or(0.0), *share);
  }
  return busiest;
}

}  // namespace monitor::platform
