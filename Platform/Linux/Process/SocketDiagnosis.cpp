// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/SocketDiagnosis.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <utility>

#include "Platform/Linux/Process/BoundedFile.h"

namespace monitor::platform {
namespace {

using netlink::Bytes;

void readSocket(Bytes message, ListeningSockets& sockets) {
  const auto socket = netlink::leading<inet_diag_msg>(message);
  if (!socket || socket->idiag_state != TCP_LISTEN || socket->idiag_inode == 0) return;
  const std::uint16_t port = ntohs(socket->id.idiag_sport);
  if (port != 0) sockets.emplace(socket->idiag_inode, port);
}

bool askForListeners(int socket, std::uint8_t family) {
  inet_diag_req_v2 sockets{};
  sockets.sdiag_family = family;
  sockets.sdiag_protocol = IPPROTO_TCP;
  sockets.idiag_states = 1U << TCP_LISTEN;
  return netlink::askForDump(socket, SOCK_DIAG_BY_FAMILY, sockets);
}

bool receiveListeners(int socket, std::span<std::byte> buffer, SocketDump& dump) {
  dump.done = false;
  return netlink::receiveDump(socket, buffer, dump,
                              [&](Bytes datagram) { readSocketMessages(datagram, dump); });
}

}  // namespace

void readSocketMessages(std::span<const std::byte> datagram, SocketDump& dump) {
  netlink::forEachMessage(datagram, SOCK_DIAG_BY_FAMILY, dump,
                          [&](Bytes message) { readSocket(message, dump.sockets); });
}

std::optional<ListeningSockets> diagnoseListeningSockets() {
  const FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!socket.valid()) return std::nullopt;
  alignas(nlmsghdr) std::array<std::byte, netlink::kDatagramBytes> buffer;
  SocketDump dump;
  for (const std::uint8_t family : {std::uint8_t{AF_INET}, std::uint8_t{AF_INET6}}) {
    if (!askForListeners(socket.get(), family) || !receiveListeners(socket.get(), buffer, dump)) {
      return std::nullopt;
    }
  }
  return std::move(dump.sockets);
}

}  // namespace monitor::platform
