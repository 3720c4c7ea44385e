// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/LinkMessages.h"

#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <random>
#include <string>

#include "Tests/Platform/NetlinkDatagram.h"

namespace monitor::platform {
namespace {

class Datagram : public NetlinkDatagram<Datagram> {
 public:
  Datagram& link(const std::string& name, unsigned flags, std::uint64_t received, std::uint64_t sent) {
    const std::size_t begin = open(RTM_NEWLINK);
    ifinfomsg info{};
    info.ifi_flags = flags;
    append(&info, sizeof info);
    attribute(IFLA_IFNAME, name.c_str(), name.size() + 1);
    rtnl_link_stats64 statistics{};
    statistics.rx_bytes = received;
    statistics.tx_bytes = sent;
    attribute(IFLA_STATS64, &statistics, sizeof statistics);
    return close(begin);
  }
};

LinkDump read(std::span<const std::byte> bytes) {
  LinkDump dump;
  readLinkMessages(bytes, dump);
  return dump;
}

TEST(LinkMessagesTest, ReadsNamesFlagsAndCountersOfEveryLink) {
  const auto dump =
      read(Datagram().link("lo", IFF_UP, 1, 2).link("enp3s0", 0, 5'000'000'000, 7).control(NLMSG_DONE).bytes);
  EXPECT_TRUE(dump.done);
  EXPECT_FALSE(dump.failed);
  ASSERT_EQ(dump.links.size(), 2U);
  EXPECT_EQ(dump.links[0].name, "lo");
  EXPECT_TRUE(dump.links[0].up);
  EXPECT_EQ(dump.links[1].name, "enp3s0");
  EXPECT_FALSE(dump.links[1].up);
  EXPECT_EQ(dump.links[1].received, 5'000'000'000U);
  EXPECT_EQ(dump.links[1].sent, 7U);
}

TEST(LinkMessagesTest, DumpGoesOnInTheNextDatagram) {
  LinkDump dump;
  readLinkMessages(Datagram().link("a", 0, 1, 1).bytes, dump);
  EXPECT_FALSE(dump.done);
  readLinkMessages(Datagram().link("b", 0, 1, 1).control(NLMSG_DONE).bytes, dump);
  EXPECT_TRUE(dump.done);
  EXPECT_EQ(dump.links.size(), 2U);
}

TEST(LinkMessagesTest, RefusalFailsTheDump) {
  EXPECT_TRUE(read(Datagram().control(NLMSG_ERROR).bytes).failed);
}

TEST(LinkMessagesTest, LinkWithoutNameIsPassedOver) {
  EXPECT_TRUE(read(Datagram().link("", IFF_UP, 1, 2).bytes).links.empty());
}

TEST(LinkMessagesTest, LengthThatLeavesTheDatagramFailsTheDump) {
  auto datagram = Datagram().link("a", 0, 1, 1);
  datagram.bytes.pop_back();
  datagram.bytes.pop_back();
  EXPECT_TRUE(read(datagram.bytes).failed);
}

TEST(LinkMessagesTest, AnyBytesAreSurvived) {
  std::mt19937 random(7);
  const auto original =
      Datagram().link("enp3s0", IFF_UP, 1, 2).link("wlan0", 0, 3, 4).control(NLMSG_DONE).bytes;
  for (int round = 0; round < 20'000; ++round) {
    auto bytes = original;
    for (int change = 0; change < 3; ++change) {
      bytes[random() % bytes.size()] = static_cast<std::byte>(random() & 0xFFU);
    }
    bytes.resize(random() % (bytes.size() + 1));
    (void)read(bytes);
  }
}

}  // namespace
}  // namespace monitor::platform
