// SPDX-License-Identifier: MIT
#pragma once

#include <termios.h>

#include <optional>
#include <string>
#include <string_view>

#include "Tools/vesk/Top/TopView.h"

namespace monitor::vesk {

// A terminal as a live view needs it, for as long as the object lives: its other screen, no cursor, keys
// unbuffered and not echoed. The destructor gives back what was there before, and so does a crash of the
// program. One at a time in a program.
class LiveTerminal {
 public:
  // Both are descriptors of terminals, and stay open. Throws std::system_error where they refuse.
  LiveTerminal(int input, int output);
  ~LiveTerminal();
  LiveTerminal(const LiveTerminal&) = delete;
  LiveTerminal& operator=(const LiveTerminal&) = delete;

  // Gives the terminal back for a while, and takes it again.
  void leave();
  void enter();

  [[nodiscard]] ScreenSize size() const;  // 24 by 80 where the terminal does not tell
  [[nodiscard]] int input() const { return input_; }
  // What was typed, when there is something; nothing at the end of the input.
  [[nodiscard]] std::optional<std::string> read();
  // False when the terminal is gone.
  [[nodiscard]] bool write(std::string_view bytes);

 private:
  int input_;
  int output_;
  termios former_{};
  bool entered_ = false;
};

}  // namespace monitor::vesk
