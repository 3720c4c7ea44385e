// SPDX-License-Identifier: MIT
#include "MonitorHelperService/HelperDelegate.h"

#include <algorithm>
#include <utility>

#include "MonitorCore/MonitorServiceIdentity.h"

namespace monitor {

HelperDelegate::HelperDelegate(std::shared_ptr<SharedCollection> collection)
    : collection_(std::move(collection)) {}

bool HelperDelegate::shouldAcceptNewConnection(
    const std::shared_ptr<ServiceConnection<MonitorHelperProtocol>>& connection) {
  auto session = makeSession(connection->effectiveUserIdentifier());
  if (!session) return false;
  // The same requirement as on the listener: checked twice on purpose.
  connection->setCodeSigningRequirement(MonitorServiceIdentity::clientRequirement);
  connection->setExportedInterface();
  connection->setExportedObject(std::move(session));
  connection->resume();
  return true;
}

std::shared_ptr<HelperSession> HelperDelegate::makeSession(std::uint32_t user) {
  const std::lock_guard lock(mutex_);
  std::erase_if(sessions_, [](const auto& session) { return session.expired(); });
  const auto ofThisUser = std::count_if(sessions_.begin(), sessions_.end(), [user](const auto& weak) {
    const auto session = weak.lock();
    return session && session->user() == user;
  });
  if (static_cast<std::size_t>(ofThisUser) >= kMostSessionsOfOneUser) return nullptr;
  auto session = std::make_shared<HelperSession>(user, collection_);
  sessions_.push_back(session);
  return session;
}

}  // namespace monitor
