// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace monitor::platform {

// What one TCP connection has carried since it was made, without headers and repetitions.
struct TcpSocket {
  std::uint64_t cookie = 0;    // the kernel's name of the socket, never given again
  std::uint64_t inode = 0;     // as in the descriptors of its owners; 0 when they have closed it
  std::uint64_t received = 0;  // bytes
  std::uint64_t sent = 0;      // bytes that the other side confirmed

  friend bool operator==(const TcpSocket&, const TcpSocket&) = default;
};

// The TCP connections of one network namespace. For one thread.
class TcpSockets {
 public:
  virtual ~TcpSockets() = default;
  // All connections there are; nothing when the kernel does not tell. May block for up to a second.
  [[nodiscard]] virtual std::optional<std::vector<TcpSocket>> current() = 0;
  // Those that ended since the last call, with what they had carried in the end. May miss some.
  [[nodiscard]] virtual std::vector<TcpSocket> ended() = 0;
};

}  // namespace monitor::platform
