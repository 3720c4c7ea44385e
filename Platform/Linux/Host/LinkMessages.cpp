// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/LinkMessages.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <string>
#include <utility>

namespace monitor::platform {
namespace {

using netlink::Bytes;
using netlink::leading;

std::string nameOf(Bytes payload) {
  std::string name(reinterpret_cast<const char*>(payload.data()), payload.size());
  return name.substr(0, name.find('\0'));
}

// Newer kernels append counters: only the leading ones are read.
bool readCounters(Bytes statistics, InterfaceCounter& link) {
  constexpr std::size_t kReceived = offsetof(rtnl_link_stats64, rx_bytes);
  constexpr std::size_t kSent = offsetof(rtnl_link_stats64, tx_bytes);
  static_assert(kSent > kReceived);
  if (statistics.size() < kSent + sizeof(std::uint64_t)) return false;
  link.received = *leading<std::uint64_t>(statistics.subspan(kReceived));
  link.sent = *leading<std::uint64_t>(statistics.subspan(kSent));
  return true;
}

void readLink(Bytes message, LinkDump& dump) {
  const auto header = leading<ifinfomsg>(message);
  if (!header) return;
  InterfaceCounter link;
  link.up = (header->ifi_flags & IFF_UP) != 0;
  bool counted = false;
  netlink::forEachAttribute(netlink::after(message, sizeof(ifinfomsg)), [&](unsigned type, Bytes payload) {
    if (type == IFLA_IFNAME) {
      link.name = nameOf(payload);
    } else if (type == IFLA_STATS64) {
      counted = readCounters(payload, link);
    }
  });
  if (counted && !link.name.empty()) dump.links.push_back(std::move(link));
}

}  // namespace

void readLinkMessages(std::span<const std::byte> datagram, LinkDump& dump) {
  netlink::forEachMessage(datagram, RTM_NEWLINK, dump, [&](Bytes message) { readLink(message, dump); });
}

}  // namespace monitor::platform
