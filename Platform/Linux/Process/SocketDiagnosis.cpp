// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/SocketDiagnosis.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "Platform/Linux/Process/BoundedFile.h"

namespace monitor::platform {
namespace {

using Bytes = std::span<const std::byte>;

// The kernel answers a dump at once; this bounds the wait for an answer that never comes.
constexpr timeval kReceiveTimeout{1, 0};
// The kernel's dumps come in datagrams of at most 32 KiB.
constexpr std::size_t kDatagram = 65'536;

template <class T>
std::optional<T> leading(Bytes bytes) {
  if (bytes.size() < sizeof(T)) return std::nullopt;
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

Bytes after(Bytes bytes, std::size_t length) {
  return bytes.subspan(std::min((length + 3U) & ~std::size_t{3}, bytes.size()));
}

void readSocket(Bytes message, ListeningSockets& sockets) {
  const auto socket = leading<inet_diag_msg>(message);
  if (!socket || socket->idiag_state != TCP_LISTEN || socket->idiag_inode == 0) return;
  const std::uint16_t port = ntohs(socket->id.idiag_sport);
  if (port != 0) sockets.emplace(socket->idiag_inode, port);
}

bool askForListeners(int socket, std::uint8_t family) {
  struct {
    nlmsghdr header;
    inet_diag_req_v2 sockets;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.sockets.sdiag_family = family;
  request.sockets.sdiag_protocol = IPPROTO_TCP;
  request.sockets.idiag_states = 1U << TCP_LISTEN;
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  return ::sendto(socket, &request, sizeof request, 0, reinterpret_cast<const sockaddr*>(&kernel),
                  sizeof kernel) == static_cast<ssize_t>(sizeof request);
}

bool receiveListeners(int socket, std::span<std::byte> buffer, SocketDump& dump) {
  dump.done = false;
  while (!dump.done && !dump.failed) {
    const ssize_t count = ::recv(socket, buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    readSocketMessages(buffer.first(static_cast<std::size_t>(count)), dump);
  }
  return !dump.failed;
}

}  // namespace

void readSocketMessages(std::span<const std::byte> datagram, SocketDump& dump) {
  Bytes rest = datagram;
  while (const auto header = leading<nlmsghdr>(rest)) {
    if (header->nlmsg_len < sizeof(nlmsghdr) || header->nlmsg_len > rest.size()) {
      dump.failed = true;
      return;
    }
    const Bytes message = rest.subspan(sizeof(nlmsghdr), header->nlmsg_len - sizeof(nlmsghdr));
    if (header->nlmsg_type == NLMSG_DONE) dump.done = true;
    if (header->nlmsg_type == NLMSG_ERROR) dump.failed = true;
    if (header->nlmsg_type == SOCK_DIAG_BY_FAMILY) readSocket(message, dump.sockets);
    if (dump.done || dump.failed) return;
    rest = after(rest, header->nlmsg_len);
  }
}

std::optional<ListeningSockets> diagnoseListeningSockets() {
  const FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!socket.valid()) return std::nullopt;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout, sizeof kReceiveTimeout);
  alignas(nlmsghdr) std::array<std::byte, kDatagram> buffer;
  SocketDump dump;
  for (const std::uint8_t family : {std::uint8_t{AF_INET}, std::uint8_t{AF_INET6}}) {
    if (!askForListeners(socket.get(), family) || !receiveListeners(socket.get(), buffer, dump)) {
      return std::nullopt;
    }
  }
  return std::move(dump.sockets);
}

}  // namespace monitor::platform
