// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorMac/Ports/DaemonRegistry.h"

namespace monitor::fakes {

// A register of one daemon. Answers wait in the order they were asked until the test lets them go.
struct FakeDaemonRegistry final : DaemonRegistry {
  DaemonStatus current = DaemonStatus::NotRegistered;
  std::optional<MonitorError> failure;  // of every change asked for
  std::vector<std::string> calls;
  std::vector<std::function<void()>> pending;

  void status(std::string_view propertyList, StatusCompletion completion) override {
    calls.push_back("status " + std::string(propertyList));
    pending.emplace_back([completion = std::move(completion), answer = current] { completion(answer); });
  }
  void registerDaemon(std::string_view propertyList, ChangeCompletion completion) override {
    change("register " + std::string(propertyList), DaemonStatus::Enabled, std::move(completion));
  }
  void unregisterDaemon(std::string_view propertyList, ChangeCompletion completion) override {
    change("unregister " + std::string(propertyList), DaemonStatus::NotRegistered, std::move(completion));
  }

  // Lets the answer at `index` go.
  void answer(std::size_t index = 0) {
    const auto task = std::move(pending.at(index));
    pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(index));
    task();
  }

 private:
  void change(std::string call, DaemonStatus result, ChangeCompletion completion) {
    calls.push_back(std::move(call));
    pending.emplace_back([this, result, completion = std::move(completion)] {
      if (!failure) current = result;
      completion(failure);
    });
  }
};

}  // namespace monitor::fakes
