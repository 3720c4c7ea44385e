// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/HelperServiceListener.h"

#include <utility>

#include "MonitorCore/MonitorServiceIdentity.h"

namespace monitor::platform {
namespace {

// The rules let nobody have more than 16 at once, so a dozen users have to conspire to keep others out.
constexpr std::size_t kMostPeers = 256;

}  // namespace

HelperServiceListener::HelperServiceListener(std::shared_ptr<MainQueue> queue, ServiceBusOptions options)
    : BusServiceListener(std::move(queue), std::move(options)) {}

ServiceBusOptions HelperServiceListener::defaults() {
  ServiceBusOptions options;
  options.address.kind = BusAddress::Kind::System;
  options.name = MonitorServiceIdentity::helper;
  options.limits.peers = kMostPeers;
  return options;
}

}  // namespace monitor::platform
