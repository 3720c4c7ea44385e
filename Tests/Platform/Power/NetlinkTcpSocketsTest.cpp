// SPDX-License-Identifier: MIT
// Connections of this process over the loopback interface, as the running kernel tells them.
#include "Platform/Linux/Power/NetlinkTcpSockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

namespace monitor::platform {
namespace {

class Connection {
 public:
  Connection() {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    client_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ready_ = ::bind(listener, generic, length) == 0 && ::listen(listener, 1) == 0 &&
             ::getsockname(listener, generic, &length) == 0 && ::connect(client_, generic, length) == 0;
    if (ready_) server_ = ::accept(listener, nullptr, nullptr);
    ::close(listener);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    close(client_);
    close(server_);
  }

  [[nodiscard]] bool ready() const { return ready_ && server_ >= 0; }
  // Sends from the client and takes all of it on the other side.
  void send(std::size_t bytes) const {
    const std::string data(bytes, 'x');
    ASSERT_EQ(::send(client_, data.data(), data.size(), 0), static_cast<ssize_t>(bytes));
    std::string received(bytes, '\0');
    ASSERT_EQ(::recv(server_, received.data(), bytes, MSG_WAITALL), static_cast<ssize_t>(bytes));
  }
  [[nodiscard]] std::uint64_t serverInode() const {
    struct stat status {};
    ::fstat(server_, &status);
    return status.st_ino;
  }
  void end() {
    close(client_);
    close(server_);
  }

 private:
  static void close(int& socket) {
    if (socket >= 0) ::close(socket);
    socket = -1;
  }
  int client_ = -1;
  int server_ = -1;
  bool ready_ = false;
};

std::optional<TcpSocket> withInode(NetlinkTcpSockets& sockets, std::uint64_t inode) {
  const auto list = sockets.current();
  if (!list) return std::nullopt;
  const auto found = std::find_if(list->begin(), list->end(),
                                  [&](const TcpSocket& socket) { return socket.inode == inode; });
  return found == list->end() ? std::nullopt : std::optional(*found);
}

class NetlinkTcpSocketsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!sockets.current()) GTEST_SKIP() << "the kernel answers no socket diagnostics here";
    ASSERT_TRUE(connection.ready());
  }
  NetlinkTcpSockets sockets;
  Connection connection;
};

TEST_F(NetlinkTcpSocketsTest, BytesOfAConnectionAreCounted) {
  const auto before = withInode(sockets, connection.serverInode());
  ASSERT_TRUE(before);
  connection.send(10'000);
  const auto after = withInode(sockets, connection.serverInode());
  ASSERT_TRUE(after);
  EXPECT_EQ(after->cookie, before->cookie);
  EXPECT_EQ(after->received - before->received, 10'000U);
}

TEST_F(NetlinkTcpSocketsTest, EndOfAConnectionIsToldToRootWithItsLastCounters) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root is told the ends of connections";
  const auto before = withInode(sockets, connection.serverInode());
  ASSERT_TRUE(before);
  connection.send(2'500);
  connection.end();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  std::optional<TcpSocket> ended;
  while (!ended && std::chrono::steady_clock::now() < deadline) {
    for (const TcpSocket& socket : sockets.ended()) {
      if (socket.cookie == before->cookie) ended = socket;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_TRUE(ended);
  EXPECT_GE(ended->received - before->received, 2'500U);
}

}  // namespace
}  // namespace monitor::platform
