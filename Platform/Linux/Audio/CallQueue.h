// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Platform/Linux/Audio/AudioStatus.h"
#include "Platform/Linux/Audio/LoopThread.h"

namespace monitor::platform {

// Calls from other threads that are carried out on the loop thread, in steps, and answered within a deadline.
class CallQueue {
 public:
  using Clock = std::chrono::steady_clock;

  // All parts run on the loop thread.
  struct Operation {
    // Starts the work; a failure ends the call.
    std::function<AudioOutcome()> begin;
    // Asked after begin() and after every change until it answers. Absent: the call is done with begin().
    std::function<std::optional<AudioOutcome>()> poll = {};
    // Takes back what begin() started, when the call fails, or succeeds only after its caller has stopped
    // waiting.
    std::function<void()> undo = {};
    // Begun even when its caller has stopped waiting: it ends something, and nobody will ask for that again.
    bool evenLate = false;
  };

  explicit CallQueue(LoopThread& thread);

  // Runs the operation and waits for its outcome, until `deadline` at the latest: it is then timed out and
  // undone. Any thread but the loop's.
  AudioOutcome run(Operation operation, Clock::time_point deadline);

  // Loop thread. Asks every unanswered call.
  void poll();
  // Answers every unanswered call with this failure; what it began is gone already and is not undone.
  void failAll(const AudioOutcome& outcome);

 private:
  struct Call;

  void begin(const std::shared_ptr<Call>& call);
  // Whether the call is answered now.
  static bool advance(Call& call, Clock::time_point now);
  static void answer(Call& call, AudioOutcome outcome);
  void armTimer();

  LoopThread& thread_;
  LoopTimer timer_;
  std::vector<std::shared_ptr<Call>> calls_;
};

}  // namespace monitor::platform
