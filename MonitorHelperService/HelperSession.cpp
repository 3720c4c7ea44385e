// SPDX-License-Identifier: MIT
#include "MonitorHelperService/HelperSession.h"

#include <utility>

namespace monitor {

HelperSession::HelperSession(std::uint32_t user, std::shared_ptr<SharedCollection> collection)
    : user_(user), collection_(std::move(collection)) {}

void HelperSession::collect(CollectReply reply) {
  collection_->request(user_, weak_from_this(), std::move(reply));
}

}  // namespace monitor
