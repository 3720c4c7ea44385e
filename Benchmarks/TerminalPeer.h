// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace monitor::bench {

// Another monitor that runs in a terminal of its own, 120 by 40, and refreshes once a second.
class TerminalPeer {
 public:
  [[nodiscard]] static bool installed(const std::string& program);
  // In its default settings but for the refresh, with nothing of this user's.
  [[nodiscard]] static std::vector<std::string> htop();
  [[nodiscard]] static std::vector<std::string> btop();

  explicit TerminalPeer(const std::vector<std::string>& command);
  ~TerminalPeer();
  TerminalPeer(const TerminalPeer&) = delete;
  TerminalPeer& operator=(const TerminalPeer&) = delete;

  // Processor seconds of one refresh, over the next few. Throws std::runtime_error when the program has
  // ended.
  [[nodiscard]] double secondsOfARefresh() const;

 private:
  [[nodiscard]] double cpuSeconds() const;

  std::filesystem::path home_;
  pid_t pid_ = -1;
  int terminal_ = -1;
  std::thread reader_;  // a terminal that nobody reads stops the program
};

}  // namespace monitor::bench
