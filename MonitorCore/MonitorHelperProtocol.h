// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "MonitorCore/Data.h"

namespace monitor {

// The privileged helper's interface as both ends see it.
class MonitorHelperProtocol {
 public:
  // JSON of one AdvancedSample, or nothing and a message to show.
  using CollectReply =
      std::function<void(const std::optional<Data>& data, const std::optional<std::string>& message)>;

  // The message for a user to whom this system's helper gives nothing.
  static constexpr std::string_view kRefusedText =
      "Only the user of an active local session may have these readings.";

  virtual ~MonitorHelperProtocol() = default;
  virtual void collect(CollectReply reply) = 0;
};

}  // namespace monitor
