// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ListenerTable.h"

#include <algorithm>
#include <utility>

namespace monitor::platform {

void ListenerTable::add(Registration registration) {
  const std::lock_guard lock{mutex_};
  registrations_.push_back(std::move(registration));
}

bool ListenerTable::remove(const Registration& registration) {
  // Declared before the lock: a queue or listener whose last reference goes here is destroyed without it.
  Registration removed;
  const std::lock_guard lock{mutex_};
  const auto found = std::find(registrations_.begin(), registrations_.end(), registration);
  if (found == registrations_.end()) return false;
  removed = std::move(*found);
  registrations_.erase(found);
  return true;
}

void ListenerTable::removeView(const void* view) {
  std::vector<Registration> removed;
  const std::lock_guard lock{mutex_};
  const auto first = std::stable_partition(registrations_.begin(), registrations_.end(),
                                           [view](const Registration& each) { return each.view != view; });
  removed.assign(std::make_move_iterator(first), std::make_move_iterator(registrations_.end()));
  registrations_.erase(first, registrations_.end());
}

void ListenerTable::notify(AudioObjectID object, const AudioObjectAddress& address) {
  std::vector<Registration> due;
  {
    const std::lock_guard lock{mutex_};
    std::copy_if(registrations_.begin(), registrations_.end(), std::back_inserter(due),
                 [&](const Registration& each) { return each.object == object && each.address == address; });
  }
  for (auto& each : due) {
    each.queue->submit([listener = std::move(each.listener)] { (*listener)(); });
  }
}

std::size_t ListenerTable::size() const {
  const std::lock_guard lock{mutex_};
  return registrations_.size();
}

}  // namespace monitor::platform
