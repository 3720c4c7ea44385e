// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/TcpMessages.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>

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

// Newer kernels append to the record, older ones lack its end: only what is asked for has to be there.
bool readCounters(Bytes information, TcpSocket& socket) {
  constexpr std::size_t kAcked = offsetof(tcp_info, tcpi_bytes_acked);
  constexpr std::size_t kReceived = offsetof(tcp_info, tcpi_bytes_received);
  static_assert(kReceived > kAcked);
  if (information.size() < kReceived + sizeof(std::uint64_t)) return false;
  socket.sent = *leading<std::uint64_t>(information.subspan(kAcked));
  socket.received = *leading<std::uint64_t>(information.subspan(kReceived));
  return true;
}

void readSocket(Bytes message, TcpDump& dump) {
  const auto header = leading<inet_diag_msg>(message);
  if (!header) return;
  TcpSocket socket;
  constexpr unsigned kHalf = 32;
  socket.cookie = (std::uint64_t{header->id.idiag_cookie[1]} << kHalf) | header->id.idiag_cookie[0];
  socket.inode = header->idiag_inode;
  bool counted = false;
  Bytes attributes = after(message, sizeof(inet_diag_msg));
  while (const auto attribute = leading<rtattr>(attributes)) {
    if (attribute->rta_len < sizeof(rtattr) || attribute->rta_len > attributes.size()) break;
    const Bytes payload = attributes.subspan(sizeof(rtattr), attribute->rta_len - sizeof(rtattr));
    if (attribute->rta_type == INET_DIAG_INFO) counted = readCounters(payload, socket);
    attributes = after(attributes, attribute->rta_len);
  }
  if (counted) dump.sockets.push_back(socket);
}

}  // namespace

void readTcpMessages(std::span<const std::byte> datagram, TcpDump& dump) {
  Bytes rest = datagram;
  while (const auto header = leading<nlmsghdr>(rest)) {
    if (header->nlmsg_len < sizeof(nlmsghdr) || header->nlmsg_len > rest.size()) {
      dump.failed = true;
      return;
    }
    const Bytes message = rest.subspan(sizeof(nlmsghdr), header->nlmsg_len - sizeof(nlmsghdr));
    if (header->nlmsg_type == NLMSG_DONE) dump.done = true;
    if (header->nlmsg_type == NLMSG_ERROR) dump.failed = true;
    if (header->nlmsg_type == SOCK_DIAG_BY_FAMILY) readSocket(message, dump);
    if (dump.done || dump.failed) return;
    rest = after(rest, header->nlmsg_len);
  }
}

}  // namespace monitor::platform
