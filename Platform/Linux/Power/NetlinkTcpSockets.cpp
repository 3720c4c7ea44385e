// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/NetlinkTcpSockets.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <span>

#include "Platform/Linux/Base/Netlink.h"
#include "Platform/Linux/Power/TcpMessages.h"

namespace monitor::platform {
namespace {

// Some thousand connections that end within one interval.
constexpr int kEndingsBuffer = 4 << 20;
// Connections may end as fast as they are fetched; they must not keep this process from its work.
constexpr int kMostEndings = 1 << 16;

// States of include/net/tcp_states.h, which no header of the system exports: all but those without counters.
constexpr unsigned kTimeWait = 6;
constexpr unsigned kClosed = 7;
constexpr unsigned kListen = 10;
constexpr unsigned kNewConnection = 12;
constexpr unsigned kStates =
    0xFFFU & ~((1U << kTimeWait) | (1U << kClosed) | (1U << kListen) | (1U << kNewConnection));

FileDescriptor openDiagnostics(int flags) {
  return FileDescriptor(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_SOCK_DIAG));
}

constexpr unsigned groupMask(unsigned group) {
  return 1U << (group - 1);
}

FileDescriptor watchEndings() {
  FileDescriptor socket = openDiagnostics(SOCK_NONBLOCK);
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groupMask(SKNLGRP_INET_TCP_DESTROY) | groupMask(SKNLGRP_INET6_TCP_DESTROY);
  if (!socket.valid() ||
      ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return FileDescriptor(-1);
  }
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kEndingsBuffer, sizeof kEndingsBuffer) != 0)
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kEndingsBuffer, sizeof kEndingsBuffer);
  return socket;
}

bool askForSockets(int socket, unsigned char family) {
  inet_diag_req_v2 question{};
  question.sdiag_family = family;
  question.sdiag_protocol = IPPROTO_TCP;
  question.idiag_ext = 1U << (INET_DIAG_INFO - 1);
  question.idiag_states = kStates;
  return netlink::askForDump(socket, SOCK_DIAG_BY_FAMILY, question);
}

// Whether all connections of the family were told.
bool dumpFamily(unsigned char family, std::vector<TcpSocket>& sockets) {
  const FileDescriptor socket = openDiagnostics(0);
  if (!socket.valid() || !askForSockets(socket.get(), family)) return false;
  std::vector<std::byte> buffer(netlink::kDatagramBytes);
  TcpDump dump;
  const bool whole = netlink::receiveDump(socket.get(), buffer, dump,
                                          [&](netlink::Bytes datagram) { readTcpMessages(datagram, dump); });
  sockets.insert(sockets.end(), dump.sockets.begin(), dump.sockets.end());
  return whole;
}

}  // namespace

NetlinkTcpSockets::NetlinkTcpSockets() : endings_(watchEndings()) {}

std::optional<std::vector<TcpSocket>> NetlinkTcpSockets::current() {
  std::vector<TcpSocket> sockets;
  // Half a list would make the other half look new, and all that it ever carried, the next time.
  if (!dumpFamily(AF_INET, sockets) || !dumpFamily(AF_INET6, sockets)) return std::nullopt;
  return sockets;
}

std::vector<TcpSocket> NetlinkTcpSockets::ended() {
  std::vector<TcpSocket> sockets;
  std::vector<std::byte> buffer(netlink::kDatagramBytes);
  for (int left = kMostEndings; left > 0 && endings_.valid(); --left) {
    const ssize_t count = ::recv(endings_.get(), buffer.data(), buffer.size(), 0);
    // Overrun: what was lost is lost, what follows still counts.
    if (count < 0 && (errno == EINTR || errno == ENOBUFS)) continue;
    if (count <= 0) break;
    TcpDump dump;
    readTcpMessages(std::span(buffer).first(static_cast<std::size_t>(count)), dump);
    sockets.insert(sockets.end(), dump.sockets.begin(), dump.sockets.end());
  }
  return sockets;
}

}  // namespace monitor::platform
