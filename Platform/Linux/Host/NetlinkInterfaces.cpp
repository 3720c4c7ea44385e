// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/NetlinkInterfaces.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "Platform/Linux/Base/Netlink.h"
#include "Platform/Linux/Host/LinkMessages.h"

namespace monitor::platform {
namespace {

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
  ifinfomsg link{};
  link.ifi_family = AF_UNSPEC;
  return netlink::askForDump(socket, RTM_GETLINK, link);
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
  alignas(nlmsghdr) std::array<std::byte, netlink::kDatagramBytes> buffer;
  LinkDump dump;
  const bool whole = netlink::receiveDump(socket.get(), buffer, dump,
                                          [&](netlink::Bytes datagram) { readLinkMessages(datagram, dump); });
  return whole ? std::move(dump.links) : std::vector<InterfaceCounter>();
}

}  // namespace monitor::platform
