// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/HeldGains.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "Tools/vesk/GainText.h"

namespace monitor::vesk {
namespace {

double retryDelay(int attempts) {
  if (attempts == 0) return HeldGains::kFirstRetrySeconds;
  return std::min(HeldGains::kLongestRetrySeconds, std::ldexp(1.0, std::min(attempts, 10)));
}

const AudioApplication* listedUnder(const std::vector<AudioApplication>& list, const std::string& id) {
  const auto found = std::find_if(list.begin(), list.end(), [&](const auto& app) { return app.id == id; });
  return found == list.end() ? nullptr : &*found;
}

}  // namespace

std::vector<HeldGain> HeldGains::all() const {
  std::vector<HeldGain> result;
  result.reserve(held_.size());
  for (const auto& [id, held] : held_) result.push_back(held);
  return result;
}

const HeldGain* HeldGains::find(const std::string& id) const {
  const auto found = held_.find(id);
  return found == held_.end() ? nullptr : &found->second;
}

void HeldGains::hold(const AudioApplication& app, double gain, double now) {
  HeldGain held;
  held.app = app;
  held.app.gain = gain;
  held.gain = gain;
  held.activeSince = now;
  held_.insert_or_assign(app.id, std::move(held));
}

bool HeldGains::changeWaiting(const std::string& id, double gain) {
  const auto found = held_.find(id);
  if (found == held_.end()) return false;
  found->second.gain = gain;
  return true;
}

void HeldGains::lose(HeldGain& held, const std::string& reason, double now) {
  held.state = HoldState::Lost;
  held.trouble = reason;
  held.retryAt = now + retryDelay(held.attempts);
}

void HeldGains::compare(HeldGain& held, const AudioApplication& listed, const std::string& reason,
                        double now) {
  held.app = listed;
  if (listed.gain == held.gain) {
    if (held.state != HoldState::Active) held.activeSince = now;
    if (now - held.activeSince >= kSettledSeconds) held.attempts = 0;
    held.state = HoldState::Active;
    held.trouble.clear();
  } else if (held.state == HoldState::Active) {
    lose(held, reason, now);
  } else if (held.state == HoldState::Waiting) {
    held.state = HoldState::Lost;
    held.trouble = "the program had no audio for a while";
    held.retryAt = now;
  }
}

std::vector<std::string> HeldGains::reconcile(const std::vector<AudioApplication>& list,
                                              ProgramPresence& presence, const std::string& reason,
                                              double now) {
  std::vector<std::string> sentences;
  for (auto entry = held_.begin(); entry != held_.end();) {
    HeldGain& held = entry->second;
    if (const AudioApplication* listed = listedUnder(list, entry->first)) {
      presence.saw(*listed);
      compare(held, *listed, reason, now);
    } else if (!presence.lives(held.app)) {
      sentences.push_back(fmt::format("{} ended; its volume of {} is no longer held.", held.app.name,
                                      percentText(held.gain)));
      presence.forget(entry->first);
      entry = held_.erase(entry);
      continue;
    } else if (held.state != HoldState::Waiting) {
      held.state = HoldState::Waiting;
      held.trouble = "the program has no audio now";
      sentences.push_back(fmt::format("{} has no audio now; its volume of {} is set again when it has.",
                                      held.app.name, percentText(held.gain)));
    }
    ++entry;
  }
  return sentences;
}

void HeldGains::loseAll(const std::string& reason, double now) {
  for (auto& [id, held] : held_) {
    if (held.state == HoldState::Active) lose(held, reason, now);
  }
}

std::vector<HeldGain> HeldGains::due(double now) const {
  std::vector<HeldGain> result;
  for (const auto& [id, held] : held_) {
    if (held.state == HoldState::Lost && held.retryAt <= now) result.push_back(held);
  }
  return result;
}

std::optional<double> HeldGains::nextRetry() const {
  std::optional<double> next;
  for (const auto& [id, held] : held_) {
    if (held.state != HoldState::Lost) continue;
    if (!next || held.retryAt < *next) next = held.retryAt;
  }
  return next;
}

void HeldGains::beginRestore(const std::string& id) {
  const auto found = held_.find(id);
  if (found != held_.end()) ++found->second.attempts;
}

std::optional<std::string> HeldGains::restored(const std::string& id, double now) {
  const auto found = held_.find(id);
  if (found == held_.end()) return std::nullopt;
  HeldGain& held = found->second;
  held.state = HoldState::Active;
  held.activeSince = now;
  return fmt::format("{}: the volume of {} was lost ({}) and is set again.", held.app.name,
                     percentText(held.gain), std::exchange(held.trouble, {}));
}

std::optional<std::string> HeldGains::restoreFailed(const std::string& id, const std::string& error,
                                                    double now) {
  const auto found = held_.find(id);
  if (found == held_.end()) return std::nullopt;
  HeldGain& held = found->second;
  held.retryAt = now + retryDelay(held.attempts);
  if (held.trouble == error) return std::nullopt;
  held.trouble = error;
  return fmt::format("{}: the volume of {} was lost and could not be set again: {}", held.app.name,
                     percentText(held.gain), error);
}

}  // namespace monitor::vesk
