// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Tools/AudioLab/Listening.h"
#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/PrivateStack.h"
#include "Tools/AudioLab/Recorder.h"

namespace monitor::lab {

// What the playing program is called, and listed as.
inline constexpr const char* kProgram = "Lab Music";

// One program that plays on a private audio system, and `vesk` with agent and service started by the session
// bus.
class Playground : public testing::Test {
 protected:
  // With further options of the player program.
  explicit Playground(std::vector<std::string> playerArguments = {});

  // Runs `vesk` to its end.
  [[nodiscard]] CommandResult vesk(std::vector<std::string> arguments) const;
  // `vesk gain PROGRAM value`, expected to succeed.
  void setGain(const std::string& value) const;
  // Waits to hear the program at that level, in what is recorded from frame `from` on.
  [[nodiscard]] std::optional<Heard> hear(double level, std::size_t from,
                                          Milliseconds deadline = Milliseconds(10'000)) const;
  // The process of the service or the agent; 0 when it does not run.
  [[nodiscard]] pid_t service() const;
  [[nodiscard]] pid_t agent() const;

  PrivateStack stack;
  Player player;
  Recorder recorder;
};

}  // namespace monitor::lab
