// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/SocketDiagnosis.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>

#include <cstring>
#include <vector>

namespace monitor::platform {
namespace {

class Datagram {
 public:
  Datagram& socket(std::uint16_t port, std::uint32_t inode, std::uint8_t state = TCP_LISTEN) {
    inet_diag_msg message{};
    message.idiag_state = state;
    message.idiag_inode = inode;
    message.id.idiag_sport = htons(port);
    return add(SOCK_DIAG_BY_FAMILY, &message, sizeof message);
  }
  Datagram& add(std::uint16_t type, const void* payload = nullptr, std::size_t size = 0) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof header + size);
    header.nlmsg_type = type;
    append(&header, sizeof header);
    append(payload, size);
    bytes.resize((bytes.size() + 3U) & ~std::size_t{3});
    return *this;
  }
  std::vector<std::byte> bytes;

 private:
  void append(const void* data, std::size_t size) {
    const auto* begin = static_cast<const std::byte*>(data);
    bytes.insert(bytes.end(), begin, begin + size);
  }
};

SocketDump read(const std::vector<std::byte>& bytes) {
  SocketDump dump;
  readSocketMessages(bytes, dump);
  return dump;
}

TEST(SocketDiagnosisTest, ListeningSocketsAreTakenInHostByteOrder) {
  Datagram datagram;
  datagram.socket(8'080, 111).socket(22, 222, TCP_ESTABLISHED).socket(443, 333).add(NLMSG_DONE);
  const SocketDump dump = read(datagram.bytes);
  EXPECT_TRUE(dump.done);
  EXPECT_FALSE(dump.failed);
  EXPECT_EQ(dump.sockets, (ListeningSockets{{111, 8'080}, {333, 443}}));
}

TEST(SocketDiagnosisTest, SocketsWithoutAPortOrAnInodeAreLeftOut) {
  Datagram datagram;
  EXPECT_TRUE(read(datagram.socket(0, 111).socket(80, 0).bytes).sockets.empty());
}

TEST(SocketDiagnosisTest, RefusalIsAFailure) {
  Datagram datagram;
  EXPECT_TRUE(read(datagram.add(NLMSG_ERROR).bytes).failed);
}

TEST(SocketDiagnosisTest, LengthsThatLieAreRefused) {
  Datagram datagram;
  datagram.socket(80, 111);
  auto tooLong = datagram.bytes;
  reinterpret_cast<nlmsghdr*>(tooLong.data())->nlmsg_len += 4;
  EXPECT_TRUE(read(tooLong).failed);
  auto tooShort = datagram.bytes;
  reinterpret_cast<nlmsghdr*>(tooShort.data())->nlmsg_len = sizeof(nlmsghdr) - 1;
  EXPECT_TRUE(read(tooShort).failed);
}

TEST(SocketDiagnosisTest, EveryPrefixOfADatagramIsReadWithoutHarm) {
  Datagram datagram;
  datagram.socket(80, 111).socket(81, 222).add(NLMSG_DONE);
  for (std::size_t size = 0; size < datagram.bytes.size(); ++size) {
    const SocketDump dump = read({datagram.bytes.begin(), datagram.bytes.begin() + static_cast<long>(size)});
    EXPECT_LE(dump.sockets.size(), 2U);
    EXPECT_FALSE(dump.done);
  }
}

TEST(SocketDiagnosisTest, MessageTooShortForASocketIsPassedOver) {
  Datagram datagram;
  const char half[10] = {};
  EXPECT_TRUE(read(datagram.add(SOCK_DIAG_BY_FAMILY, half, sizeof half).bytes).sockets.empty());
}

}  // namespace
}  // namespace monitor::platform
