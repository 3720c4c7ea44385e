// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform {

// The property listeners of all views. Listeners are submitted to their queues, never called here. Any
// thread.
class ListenerTable {
 public:
  struct Registration {
    const void* view = nullptr;  // only compared
    AudioObjectID object = 0;
    AudioObjectAddress address;
    std::shared_ptr<SerialQueue> queue;
    std::shared_ptr<const AudioPropertyListener> listener;

    friend bool operator==(const Registration&, const Registration&) = default;
  };

  void add(Registration registration);
  // Removes one equal registration. Whether there was one.
  bool remove(const Registration& registration);
  void removeView(const void* view);
  // Submits every listener of the property.
  void notify(AudioObjectID object, const AudioObjectAddress& address);
  [[nodiscard]] std::size_t size() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Registration> registrations_;
};

}  // namespace monitor::platform
