// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

#include "Platform/Linux/Ipc/Bus.h"
#include "Tools/AudioLab/ChildProcess.h"

namespace monitor::tests {

// What a service manager does to a service of `Type=dbus`: as soon as its name is free, the process that had
// it is told to end, whether it is on its way out already or not.
class TypeDbusManager {
 public:
  TypeDbusManager(const std::string& busAddress, std::string name);
  ~TypeDbusManager();
  TypeDbusManager(const TypeDbusManager&) = delete;
  TypeDbusManager& operator=(const TypeDbusManager&) = delete;

  // How many times a process was told.
  [[nodiscard]] std::size_t told() const { return told_; }

 private:
  static int onOwner(sd_bus_message* signal, void* data, sd_bus_error* error);
  void noteOwner(const char* owner);
  void run();

  std::string name_;
  platform::Bus bus_;
  lab::Descriptor process_;  // of the owner, for signals
  std::atomic<std::size_t> told_ = 0;
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

}  // namespace monitor::tests
