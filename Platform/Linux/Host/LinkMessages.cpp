// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/LinkMessages.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace monitor::platform {
namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t aligned(std::size_t length) {
  return (length + 3U) & ~std::size_t{3};
}

template <class T>
std::optional<T> leading(Bytes bytes) {
  if (bytes.size() < sizeof(T)) return std::nullopt;
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

Bytes after(Bytes bytes, std::size_t length) {
  return bytes.subspan(std::min(aligned(length), bytes.size()));
}

std::string nameOf(Bytes payload) {
  std::string name(reinterpret_cast<const char*>(payload.data()), payload.size());
  return name.substr(0, name.find('\0'));
}

void readLink(Bytes message, LinkDump& dump) {
  const auto header = leading<ifinfomsg>(message);
  if (!header) return;
  InterfaceCounter link;
  link.up = (header->ifi_flags & IFF_UP) != 0;
  bool counted = false;
  Bytes attributes = after(message, sizeof(ifinfomsg));
  while (const auto attribute = leading<rtattr>(attributes)) {
    if (attribute->rta_len < sizeof(rtattr) || attribute->rta_len > attributes.size()) break;
    const Bytes payload = attributes.subspan(sizeof(rtattr), attribute->rta_len - sizeof(rtattr));
    if (attribute->rta_type == IFLA_IFNAME) {
      link.name = nameOf(payload);
    } else if (attribute->rta_type == IFLA_STATS64) {
      // Newer kernels append counters: only the leading ones are read.
      constexpr std::size_t kReceived = offsetof(rtnl_link_stats64, rx_bytes);
      constexpr std::size_t kSent = offsetof(rtnl_link_stats64, tx_bytes);
      if (payload.size() >= kSent + sizeof(std::uint64_t)) {
        link.received = *leading<std::uint64_t>(payload.subspan(kReceived));
        link.sent = *leading<std::uint64_t>(payload.subspan(kSent));
        counted = true;
      }
    }
    attributes = after(attributes, attribute->rta_len);
  }
  if (counted && !link.name.empty()) dump.links.push_back(std::move(link));
}

}  // namespace

void readLinkMessages(std::span<const std::byte> datagram, LinkDump& dump) {
  Bytes rest = datagram;
  while (const auto header = leading<nlmsghdr>(rest)) {
    if (header->nlmsg_len < sizeof(nlmsghdr) || header->nlmsg_len > rest.size()) {
      dump.failed = true;
      return;
    }
    const Bytes message = rest.subspan(sizeof(nlmsghdr), header->nlmsg_len - sizeof(nlmsghdr));
    if (header->nlmsg_type == NLMSG_DONE) dump.done = true;
    if (header->nlmsg_type == NLMSG_ERROR) dump.failed = true;
    if (header->nlmsg_type == RTM_NEWLINK) readLink(message, dump);
    if (dump.done || dump.failed) return;
    rest = after(rest, header->nlmsg_len);
  }
}

}  // namespace monitor::platform
