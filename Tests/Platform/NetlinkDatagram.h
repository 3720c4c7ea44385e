// SPDX-License-Identifier: MIT
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace monitor::platform {

// The bytes of a netlink datagram, put together message by message. `Self` adds the messages of its subject.
template <class Self>
class NetlinkDatagram {
 public:
  // The end of a dump, or an error.
  Self& control(std::uint16_t type) {
    const std::size_t begin = open(type);
    const int status = 0;
    append(&status, sizeof status);
    return close(begin);
  }
  std::vector<std::byte> bytes;

 protected:
  std::size_t open(std::uint16_t type) {
    const std::size_t begin = bytes.size();
    nlmsghdr header{};
    header.nlmsg_type = type;
    append(&header, sizeof header);
    return begin;
  }
  Self& close(std::size_t begin) {
    const auto length = static_cast<std::uint32_t>(bytes.size() - begin);
    std::memcpy(bytes.data() + begin, &length, sizeof length);
    return static_cast<Self&>(*this);
  }
  void attribute(unsigned short type, const void* data, std::size_t size) {
    rtattr header{};
    header.rta_type = type;
    header.rta_len = static_cast<unsigned short>(sizeof header + size);
    append(&header, sizeof header);
    append(data, size);
  }
  void append(const void* data, std::size_t size) {
    const auto* first = static_cast<const std::byte*>(data);
    bytes.insert(bytes.end(), first, first + size);
    bytes.resize((bytes.size() + 3) & ~std::size_t{3});
  }
};

}  // namespace monitor::platform
