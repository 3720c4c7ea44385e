// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ObjectTable.h"

#include <algorithm>
#include <utility>

namespace monitor::platform {

const ProcessObject* ObjectTable::process(AudioObjectID id) const {
  const auto found = std::find_if(processes.begin(), processes.end(),
                                  [id](const ProcessObject& object) { return object.id == id; });
  return found == processes.end() ? nullptr : &*found;
}

bool ObjectTable::exists(AudioObjectID id) const {
  return id == audio::kSystemObject || process(id) != nullptr || devices.contains(id) || taps.contains(id) ||
         aggregates.contains(id);
}

PublishedTable::PublishedTable() : table_(std::make_shared<const ObjectTable>()) {}

void PublishedTable::publish(ObjectTable table) {
  auto next = std::make_shared<const ObjectTable>(std::move(table));
  {
    const std::lock_guard lock{mutex_};
    table_.swap(next);
  }
  changed_.notify_all();
}

PublishedTable::Table PublishedTable::current() const {
  const std::lock_guard lock{mutex_};
  return table_;
}

PublishedTable::Table PublishedTable::waitFor(const std::function<bool(const ObjectTable&)>& settled,
                                              std::chrono::steady_clock::time_point deadline) const {
  std::unique_lock lock{mutex_};
  changed_.wait_until(lock, deadline, [&] { return settled(*table_); });
  return table_;
}

}  // namespace monitor::platform
