// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/TcpMessages.h"

#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>

#include <cstring>
#include <random>

#include "Tests/Platform/NetlinkDatagram.h"

namespace monitor::platform {
namespace {

class Datagram : public NetlinkDatagram<Datagram> {
 public:
  Datagram& socket(const TcpSocket& socket, std::size_t informationSize = sizeof(tcp_info)) {
    const std::size_t begin = open(SOCK_DIAG_BY_FAMILY);
    inet_diag_msg message{};
    message.idiag_inode = static_cast<std::uint32_t>(socket.inode);
    message.id.idiag_cookie[0] = static_cast<std::uint32_t>(socket.cookie);
    message.id.idiag_cookie[1] = static_cast<std::uint32_t>(socket.cookie >> 32U);
    append(&message, sizeof message);
    const std::uint8_t shutdown = 0;
    attribute(INET_DIAG_SHUTDOWN, &shutdown, sizeof shutdown);
    tcp_info information{};
    information.tcpi_bytes_received = socket.received;
    information.tcpi_bytes_acked = socket.sent;
    if (informationSize > 0) attribute(INET_DIAG_INFO, &information, informationSize);
    return close(begin);
  }
};

TcpDump read(std::span<const std::byte> bytes) {
  TcpDump dump;
  readTcpMessages(bytes, dump);
  return dump;
}

constexpr std::size_t kCountersEnd = offsetof(tcp_info, tcpi_bytes_received) + sizeof(std::uint64_t);
const TcpSocket kOne{0x1'0000'0002, 4711, 5'000'000'000, 7};
const TcpSocket kOther{3, 0, 0, 9};

TEST(TcpMessagesTest, ReadsEverySocketOfADatagram) {
  const auto dump = read(Datagram().socket(kOne).socket(kOther).control(NLMSG_DONE).bytes);
  EXPECT_TRUE(dump.done);
  EXPECT_FALSE(dump.failed);
  EXPECT_EQ(dump.sockets, (std::vector<TcpSocket>{kOne, kOther}));
}

TEST(TcpMessagesTest, DatagramsOfADumpAddUp) {
  TcpDump dump;
  readTcpMessages(Datagram().socket(kOne).bytes, dump);
  EXPECT_FALSE(dump.done);
  readTcpMessages(Datagram().socket(kOther).control(NLMSG_DONE).bytes, dump);
  EXPECT_TRUE(dump.done);
  EXPECT_EQ(dump.sockets.size(), 2U);
}

TEST(TcpMessagesTest, RecordsOfOlderAndNewerKernelsAreRead) {
  EXPECT_EQ(read(Datagram().socket(kOne, kCountersEnd).bytes).sockets.size(), 1U);
  EXPECT_TRUE(read(Datagram().socket(kOne, kCountersEnd - 1).bytes).sockets.empty());
}

TEST(TcpMessagesTest, SocketWithoutCountersIsPassedOver) {
  const auto dump = read(Datagram().socket(kOne, 0).socket(kOther).bytes);
  EXPECT_EQ(dump.sockets, std::vector<TcpSocket>{kOther});
}

TEST(TcpMessagesTest, RefusalEndsTheDump) {
  const auto dump = read(Datagram().control(NLMSG_ERROR).socket(kOne).bytes);
  EXPECT_TRUE(dump.failed);
  EXPECT_TRUE(dump.sockets.empty());
}

TEST(TcpMessagesTest, EveryTruncationIsReadWithoutHarm) {
  const auto whole = Datagram().socket(kOne).socket(kOther).control(NLMSG_DONE).bytes;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const std::vector<std::byte> piece(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    const auto dump = read(piece);
    EXPECT_FALSE(dump.done) << length;
    EXPECT_LE(dump.sockets.size(), 2U);
  }
}

TEST(TcpMessagesTest, RandomBytesAreReadWithoutHarm) {
  std::mt19937 random(5);
  const auto whole = Datagram().socket(kOne).socket(kOther).control(NLMSG_DONE).bytes;
  for (int round = 0; round < 5'000; ++round) {
    auto bytes = whole;
    for (int change = 0; change < 8; ++change)
      bytes[random() % bytes.size()] = static_cast<std::byte>(random() & 0xFFU);
    EXPECT_LE(read(bytes).sockets.size(), whole.size() / sizeof(nlmsghdr));
  }
}

}  // namespace
}  // namespace monitor::platform
