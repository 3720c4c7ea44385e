// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/NetlinkInterfaces.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>

#include "Platform/Linux/Host/LinkMessages.h"

namespace monitor::platform {
namespace {

// The kernel answers a dump at once; this bounds the wait for an answer that never comes.
constexpr timeval kReceiveTimeout{1, 0};
// The kernel's dumps come in datagrams of at most 32 KiB.
constexpr std::size_t kDatagram = 65'536;

class Socket {
 public:
  Socket() : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (fd_ >= 0) ::close(fd_);
  }
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

bool askForLinks(int socket) {
  struct {
    nlmsghdr header;
    ifinfomsg link;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETLINK;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.link.ifi_family = AF_UNSPEC;
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  return ::sendto(socket, &request, sizeof request, 0, reinterpret_cast<const sockaddr*>(&kernel),
                  sizeof kernel) == static_cast<ssize_t>(sizeof request);
}

}  // namespace

std::set<std::string> NetlinkInterfaces::physicalInterfaces() {
  const std::string all = "sys/class/net/";
  std::set<std::string> names;
  for (const std::string& name : files_.names(all)) {
    const std::string folder = all + name;
    if (!files_.exists(folder + "/device")) continue;
    // What passes through this one passes through another one with a device: the ports of the switch behind
    // it, or the interface of a virtual machine that it is the fast path of.
    if (files_.exists(folder + "/dsa") || files_.exists(folder + "/master/device")) continue;
    names.insert(name);
  }
  return names;
}

std::vector<InterfaceCounter> NetlinkInterfaces::counters() {
  const Socket socket;
  if (socket.get() < 0 || !askForLinks(socket.get())) return {};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout, sizeof kReceiveTimeout);
  alignas(nlmsghdr) std::array<std::byte, kDatagram> buffer;
  LinkDump dump;
  while (!dump.done && !dump.failed) {
    const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return {};
    readLinkMessages(std::span(buffer).first(static_cast<std::size_t>(count)), dump);
  }
  return dump.failed ? std::vector<InterfaceCounter>() : std::move(dump.links);
}

}  // namespace monitor::platform
