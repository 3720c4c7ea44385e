// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/Linux/Ipc/Bus.h"
#include "Tests/Platform/Ipc/PrivateBus.h"

namespace monitor::tests {

// The part of the system's service manager that keeps unit files and starts units, on a private bus, under
// its name and with its errors. It knows the units that the test gives it.
class ServiceManagerMock {
 public:
  explicit ServiceManagerMock(const PrivateBus& bus);
  ~ServiceManagerMock();
  ServiceManagerMock(const ServiceManagerMock&) = delete;
  ServiceManagerMock& operator=(const ServiceManagerMock&) = delete;

  void setState(const std::string& unit, const std::string& state);
  [[nodiscard]] std::string state(const std::string& unit) const;
  // Answers every call of `member` with this error from now on; the empty name ends that.
  void failWith(const std::string& member, const std::string& error);
  // The calls so far with their arguments: "StartUnit vesk-helper.service replace".
  [[nodiscard]] std::vector<std::string> calls() const;
  // Whether each call so far allowed the manager to ask the user for a password.
  [[nodiscard]] bool everyChangeMayAsk() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace monitor::tests
