// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/KeeperJournal.h"

namespace monitor::vesk {

void KeeperJournal::tell(const std::string& text) {
  if (text.empty()) return;
  if (events_.size() == kMostEvents) events_.pop_front();
  events_.push_back({clock_.now(), text});
  if (onTell) onTell(text);
}

bool KeeperJournal::noteStandingMessage(const std::string& text) {
  if (text == standingMessage_) return false;
  standingMessage_ = text;
  tell(text);
  return !text.empty();
}

void KeeperJournal::noteFailure(const std::string& error, const std::string& cause) {
  lastError_ = error;
  lastCause_ = cause;
}

}  // namespace monitor::vesk
