// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ListeningSockets.h"

#include <gtest/gtest.h>

#include <string>

namespace monitor::platform {
namespace {

ListeningSockets socketsIn(const std::string& table) {
  ListeningSockets sockets;
  addListeningSockets(table, sockets);
  return sockets;
}

TEST(ListeningSocketsTest, OnlyTheListeningStateCounts) {
  EXPECT_EQ(socketsIn("0: 0100007F:1F90 0:0 0A 0:0 0:0 0 1000 0 77 1"), (ListeningSockets{{77, 8080}}));
  EXPECT_TRUE(socketsIn("0: 0100007F:1F90 0:0 01 0:0 0:0 0 1000 0 77 1").empty());
}

TEST(ListeningSocketsTest, PortZeroAndLinesThatMakeNoSenseAreSkipped) {
  EXPECT_TRUE(socketsIn("0: 0100007F:0000 0:0 0A 0:0 0:0 0 1000 0 77 1").empty());
  EXPECT_TRUE(socketsIn("0: 0100007F:zz 0:0 0A 0:0 0:0 0 1000 0 77 1").empty());
  EXPECT_TRUE(socketsIn("0: 0100007F:12345 0:0 0A 0:0 0:0 0 1000 0 77 1").empty());
  EXPECT_TRUE(socketsIn("0: 0100007F:1F90 0:0 0A 0:0 0:0 0 1000 0").empty());
  EXPECT_TRUE(socketsIn("0: 0100007F:1F90 0:0 0A 0:0 0:0 0 1000 0 0 1").empty());
  EXPECT_TRUE(socketsIn("\n\n   \n").empty());
}

TEST(ListeningSocketsTest, LastLineNeedsNoLineFeed) {
  EXPECT_EQ(socketsIn("0: 0:0001 0:0 0A 0:0 0:0 0 0 0 5 1\n1: 0:0002 0:0 0A 0:0 0:0 0 0 0 6").size(), 2U);
}

TEST(ListeningSocketsTest, InodeIsTheNumberInTheLinksName) {
  EXPECT_EQ(socketInode("socket:[1234]"), 1234U);
  EXPECT_FALSE(socketInode("pipe:[1234]"));
  EXPECT_FALSE(socketInode("socket:[]"));
  EXPECT_FALSE(socketInode("socket:[12x]"));
  EXPECT_FALSE(socketInode("socket:[12"));
  EXPECT_FALSE(socketInode("socket:["));
}

}  // namespace
}  // namespace monitor::platform
