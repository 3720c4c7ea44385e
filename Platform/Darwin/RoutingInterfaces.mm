// SPDX-License-Identifier: MIT
#import <Foundation/Foundation.h>
#import <SystemConfiguration/SystemConfiguration.h>

#include <net/if.h>
#include <net/route.h>
#include <sys/sysctl.h>

#include <array>

#include "MonitorMac/RoutingMessages.h"
#include "Platform/Darwin/MachHostStatistics.h"
#include "Platform/Darwin/Text.h"

namespace monitor::platform {
namespace {

bool isPhysical(CFStringRef _Nullable type) {
  if (type == nullptr) return false;
  const auto known = (CFStringRef _Nonnull)type;
  return CFEqual(known, kSCNetworkInterfaceTypeEthernet) != 0 || CFEqual(known, kSCNetworkInterfaceTypeIEEE80211) != 0 ||
         CFEqual(known, kSCNetworkInterfaceTypeWWAN) != 0;
}

std::optional<std::string> interfaceName(std::uint32_t index) {
  std::array<char, IFNAMSIZ> name{};
  if (if_indextoname(index, name.data()) == nullptr) return std::nullopt;
  return std::string(name.data());
}

class RoutingInterfaces final : public NetworkInterfaces {
 public:
  std::set<std::string> physicalInterfaces() override {
    std::set<std::string> names;
    NSArray* interfaces = (__bridge_transfer NSArray*)SCNetworkInterfaceCopyAll();
    for (id item in interfaces) {
      const auto interface = (__bridge SCNetworkInterfaceRef)item;
      const auto name = plainTextOrNothing((__bridge NSString*)SCNetworkInterfaceGetBSDName(interface));
      if (name && isPhysical(SCNetworkInterfaceGetInterfaceType(interface))) names.insert(*name);
    }
    return names;
  }

  std::vector<InterfaceCounter> counters() override {
    std::array<int, 6> name{CTL_NET, PF_ROUTE, 0, 0, NET_RT_IFLIST2, 0};
    std::size_t size = 0;
    if (sysctl(name.data(), name.size(), nullptr, &size, nullptr, 0) != 0 || !isPlausibleRoutingBufferSize(size)) {
      return {};
    }
    std::vector<std::byte> buffer(size);
    if (sysctl(name.data(), name.size(), buffer.data(), &size, nullptr, 0) != 0) return {};
    buffer.resize(std::min(size, buffer.size()));
    return interfaceCountersFromRoutingMessages(buffer, interfaceName);
  }
};

}  // namespace

std::unique_ptr<NetworkInterfaces> makeNetworkInterfaces() { return std::make_unique<RoutingInterfaces>(); }

}  // namespace monitor::platform
