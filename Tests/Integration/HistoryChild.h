// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

namespace monitor::fakes {

// A forked copy of the test program that runs one function, with a pipe back. Killed, if it still runs, and
// reaped when the object goes. The test must have no other threads.
class HistoryChild {
 public:
  // In the child: sends one number, which arrives whole.
  using Report = std::function<void(int)>;

  // The child exits with what `body` returns.
  explicit HistoryChild(const std::function<int(const Report&)>& body);
  ~HistoryChild();
  HistoryChild(const HistoryChild&) = delete;
  HistoryChild& operator=(const HistoryChild&) = delete;

  // The next number, waiting for it; nothing when the child has gone and all has been read.
  std::optional<int> next();
  // SIGKILL. Reports sent before can still be read.
  void kill();
  // Waits for the end: the exit status, or nothing when a signal ended it.
  std::optional<int> wait();

 private:
  pid_t pid_ = -1;
  int pipe_ = -1;
};

// Exit status of a child that cannot do what it is for on this machine.
inline constexpr int kNotPossibleHere = 77;

}  // namespace monitor::fakes
