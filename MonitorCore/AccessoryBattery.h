// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>

namespace monitor {

// The battery of one connected accessory. Its fields are fixed once it is made.
class AccessoryBattery {
 public:
  AccessoryBattery(std::string id, std::string name, double percent)
      : id_(std::move(id)), name_(std::move(name)), percent_(percent) {}

  [[nodiscard]] const std::string& id() const { return id_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] double percent() const { return percent_; }  // 0…100

  friend bool operator==(const AccessoryBattery&, const AccessoryBattery&) = default;

 private:
  std::string id_;
  std::string name_;
  double percent_;
};

}  // namespace monitor
