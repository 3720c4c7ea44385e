// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/NetlinkTcpSockets.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstddef>
#include <span>

#include "Platform/Linux/Power/TcpMessages.h"

namespace monitor::platform {
namespace {

// The kernel answers a dump at once; this bounds the wait for an answer that never comes.
constexpr timeval kReceiveTimeout{1, 0};
constexpr std::size_t kDatagram = 65'536;
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
  struct {
    nlmsghdr header;
    inet_diag_req_v2 question;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.question.sdiag_family = family;
  request.question.sdiag_protocol = IPPROTO_TCP;
  request.question.idiag_ext = 1U << (INET_DIAG_INFO - 1);
  request.question.idiag_states = kStates;
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  return ::sendto(socket, &request, sizeof request, 0, reinterpret_cast<const sockaddr*>(&kernel),
                  sizeof kernel) == static_cast<ssize_t>(sizeof request);
}

// Whether all connections of the family were told.
bool dumpFamily(unsigned char family, std::vector<TcpSocket>& sockets) {
  const FileDescriptor socket = openDiagnostics(0);
  if (!socket.valid() || !askForSockets(socket.get(), family)) return false;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout, sizeof kReceiveTimeout);
  std::vector<std::byte> buffer(kDatagram);
  TcpDump dump;
  while (!dump.done && !dump.failed) {
    const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    readTcpMessages(std::span(buffer).first(static_cast<std::size_t>(count)), dump);
  }
  sockets.insert(sockets.end(), dump.sockets.begin(), dump.sockets.end());
  return !dump.failed;
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
  std::vector<std::byte> buffer(kDatagram);
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
