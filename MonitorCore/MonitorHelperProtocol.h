// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "MonitorCore/Data.h"

namespace monitor {

// The privileged helper's interface as both ends see it.
class MonitorHelperProtocol {
 public:
  // JSON of one AdvancedSample, or nothing and a message to show.
  using CollectReply =
      std::function<void(const std::optional<Data>& data, const std::optional<std::string>& message)>;

  virtual ~MonitorHelperProtocol() = default;
  virtual void collect(CollectReply reply) = 0;
};

}  // namespace monitor
