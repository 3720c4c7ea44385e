// SPDX-License-Identifier: MIT
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <sys/socket.h>
#include <sys/time.h>

// Walks over the messages and attributes of netlink dumps. Every length is checked before it is believed.
namespace monitor::platform::netlink {

using Bytes = std::span<const std::byte>;

// The kernel answers a dump at once; this bounds the wait for an answer that never comes.
inline constexpr timeval kReceiveTimeout{1, 0};
// The kernel's dumps come in datagrams of at most 32 KiB.
inline constexpr std::size_t kDatagramBytes = 65'536;

// How far a dump has come.
struct Progress {
  bool done = false;    // the kernel said that nothing follows
  bool failed = false;  // the kernel refused or was disturbed, or the bytes are not netlink messages
};

// The value that the bytes begin with; nothing when they are too few.
template <class T>
std::optional<T> leading(Bytes bytes) {
  if (bytes.size() < sizeof(T)) return std::nullopt;
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

// What follows a part of this length, from the next multiple of four on.
inline Bytes after(Bytes bytes, std::size_t length) {
  return bytes.subspan(std::min((length + 3U) & ~std::size_t{3}, bytes.size()));
}

// Calls `visit(type, payload)` for each attribute, up to the first whose length cannot be.
template <class Visit>
void forEachAttribute(Bytes attributes, Visit&& visit) {
  while (const auto attribute = leading<rtattr>(attributes)) {
    if (attribute->rta_len < sizeof(rtattr) || attribute->rta_len > attributes.size()) return;
    visit(attribute->rta_type, attributes.subspan(sizeof(rtattr), attribute->rta_len - sizeof(rtattr)));
    attributes = after(attributes, attribute->rta_len);
  }
}

// Calls `visit(message)` for each message of `type` in a datagram, until the dump is done or has failed.
template <class Visit>
void forEachMessage(Bytes datagram, unsigned type, Progress& progress, Visit&& visit) {
  while (const auto header = leading<nlmsghdr>(datagram)) {
    if (header->nlmsg_len < sizeof(nlmsghdr) || header->nlmsg_len > datagram.size()) {
      progress.failed = true;
      return;
    }
    const Bytes message = datagram.subspan(sizeof(nlmsghdr), header->nlmsg_len - sizeof(nlmsghdr));
    if (header->nlmsg_type == NLMSG_DONE) progress.done = true;
    if (header->nlmsg_type == NLMSG_ERROR) progress.failed = true;
    if (header->nlmsg_type == type) visit(message);
    if (progress.done || progress.failed) return;
    datagram = after(datagram, header->nlmsg_len);
  }
}

// Asks the kernel for a dump; `question` is what follows the header of such a request.
template <class Question>
bool askForDump(int socket, std::uint16_t type, const Question& question) {
  struct {
    nlmsghdr header;
    Question question;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = type;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.question = question;
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout, sizeof kReceiveTimeout);
  return ::sendto(socket, &request, sizeof request, 0, reinterpret_cast<const sockaddr*>(&kernel),
                  sizeof kernel) == static_cast<ssize_t>(sizeof request);
}

// Receives a dump to its end; `read(datagram)` takes each datagram and keeps `progress`. Whether it was complete.
template <class Read>
bool receiveDump(int socket, std::span<std::byte> buffer, const Progress& progress, Read&& read) {
  while (!progress.done && !progress.failed) {
    const ssize_t count = ::recv(socket, buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    read(Bytes(buffer.first(static_cast<std::size_t>(count))));
  }
  return !progress.failed;
}

}  // namespace monitor::platform::netlink
