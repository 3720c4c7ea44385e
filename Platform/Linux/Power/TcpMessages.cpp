// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/TcpMessages.h"

#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>

#include <cstddef>
#include <cstdint>

namespace monitor::platform {
namespace {

using netlink::Bytes;
using netlink::leading;

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
  netlink::forEachAttribute(netlink::after(message, sizeof(inet_diag_msg)), [&](unsigned type, Bytes payload) {
    if (type == INET_DIAG_INFO) counted = readCounters(payload, socket);
  });
  if (counted) dump.sockets.push_back(socket);
}

}  // namespace

void readTcpMessages(std::span<const std::byte> datagram, TcpDump& dump) {
  netlink::forEachMessage(datagram, SOCK_DIAG_BY_FAMILY, dump, [&](Bytes message) { readSocket(message, dump); });
}

}  // namespace monitor::platform
