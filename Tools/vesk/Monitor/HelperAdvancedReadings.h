// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>

#include "Tools/vesk/HelperReadings.h"
#include "Tools/vesk/Monitor/AdvancedReadings.h"

namespace monitor::vesk {

// The readings of the helper that this system may have.
class HelperAdvancedReadings final : public AdvancedReadings {
 public:
  explicit HelperAdvancedReadings(HelperPorts ports = makeHelperPorts()) : helper_(std::move(ports)) {}

  void request() override { helper_.request(); }
  void settle(double seconds) override { (void)helper_.settle(seconds); }
  // A sample is fresh as long as 90 s at most lie between it and the snapshot: no longer than sampling
  // bridges.
  void mergeInto(MonitorSnapshot& snapshot) override;
  [[nodiscard]] std::string status() const override { return helper_.status(); }

 private:
  HelperReadings helper_;
};

}  // namespace monitor::vesk
