// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Tools/ScreenModel.h"
#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/Environment.h"

namespace monitor::vesk {

// A program on a terminal of its own, and what a person would see there. The end kills it.
class PseudoTerminal {
 public:
  PseudoTerminal(std::size_t rows, std::size_t columns, std::vector<std::string> command,
                 const lab::Environment& environment);
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  [[nodiscard]] const ScreenModel& screen() const { return screen_; }
  [[nodiscard]] ScreenModel& screen() { return screen_; }
  // Reads what the program writes until the condition holds; false at the deadline.
  [[nodiscard]] bool waitUntil(const std::function<bool(const ScreenModel&)>& condition);
  [[nodiscard]] bool waitFor(std::string_view text) {
    return waitUntil([text](const ScreenModel& screen) { return screen.shows(text); });
  }
  void type(std::string_view keys) const;
  void resize(std::size_t rows, std::size_t columns);
  void signal(int number) const;
  // The terminal is gone: a line that was cut.
  void hangUp();
  // The wait status once the program has stopped, or ended.
  [[nodiscard]] std::optional<int> waitForStop();
  [[nodiscard]] std::optional<int> waitForEnd();

  [[nodiscard]] termios attributes() const;

 private:
  void setSize(std::size_t rows, std::size_t columns) const;
  // Takes in what has arrived, waiting for it a moment.
  void read();
  [[nodiscard]] std::optional<int> waitForStatus(int options);

  lab::Descriptor ours_;
  lab::Descriptor theirs_;  // kept open, so that the last output can be read
  pid_t pid_ = 0;
  ScreenModel screen_;
};

// Whether input is treated alike.
[[nodiscard]] bool sameAttributes(const termios& left, const termios& right);

}  // namespace monitor::vesk
