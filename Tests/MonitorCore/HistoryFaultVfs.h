// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

namespace monitor::fakes {

enum class FileCall : std::uint8_t { Open, Write, Sync, Truncate };

// While it lives, SQLite's file calls go through it, for connections that name no file layer of their own. It
// counts them and can fail the n-th of a kind. A write that fails has written the first half of its bytes.
// Syncs reach no disk, which a test that kills no machine does not need. One at a time, one thread.
class FaultVfs {
 public:
  FaultVfs();
  ~FaultVfs();
  FaultVfs(const FaultVfs&) = delete;
  FaultVfs& operator=(const FaultVfs&) = delete;

  // Fails the `n`-th of these calls from now on, counted from 1, and `forGood` all that follow it.
  void failNth(FileCall call, int n, bool forGood);
  void disarm();
  // Whether a call has been failed since failNth().
  [[nodiscard]] bool failed() const;

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace monitor::fakes
