// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorHelperService/SharedCollection.h"

namespace monitor {

// What one client talks to. The user is the one that the transport vouched for when the client connected; no
// message names a user. Any thread; replies run on the schedule's queue.
class HelperSession final : public MonitorHelperProtocol, public std::enable_shared_from_this<HelperSession> {
 public:
  HelperSession(std::uint32_t user, std::shared_ptr<SharedCollection> collection);

  void collect(CollectReply reply) override;
  [[nodiscard]] std::uint32_t user() const { return user_; }

 private:
  const std::uint32_t user_;
  const std::shared_ptr<SharedCollection> collection_;
};

}  // namespace monitor
