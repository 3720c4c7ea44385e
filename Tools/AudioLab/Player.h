// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/PrivateStack.h"

namespace monitor::lab {

enum class PlayerKind { Native, Pulse };

struct PlayerSetup {
  PlayerKind kind = PlayerKind::Native;
  std::string name = "Lab Player";          // application and node name
  std::vector<std::string> arguments = {};  // further options of the player program, see its --help
  unsigned streams = 1;                     // opened at the start
  // Where a copy of the player program is put to be run, below the stack's directory
  // ("Music.app/Contents/MacOS/Music"); who looks at the executable sees a program of that name. Empty: the
  // program itself.
  std::string installAs = {};
  bool ownPidNamespace = false;  // the program sees itself as pid 1; needs root or user namespaces
};

// A real program on a private stack that plays the counter signal. Destroying it kills it.
class Player {
 public:
  // Returns when all its streams play. LabError otherwise.
  Player(const PrivateStack& stack, PlayerSetup setup);

  // The pid of the program as the machine sees it, also when it is in a namespace of its own.
  [[nodiscard]] pid_t pid() const { return pid_; }
  // The pid that it has by its own account.
  [[nodiscard]] pid_t ownPid() const { return ownPid_; }
  // Opens one more stream, and returns its index when it plays; waits for nothing with `wait` false.
  std::size_t open(bool wait = true);
  void close();  // the stream opened last; returns when it is gone for the player
  void pause();  // all streams; PulseAudio calls it cork
  void resume();
  void quit();  // the orderly way, waited for
  void kill();
  [[nodiscard]] ChildProcess& process() { return child_; }
  // Waits until the stream is in that state: "streaming" and "paused" are known for both kinds. False at the
  // deadline and when the player has gone.
  bool waitForState(std::size_t stream, const std::string& state, Milliseconds deadline = Milliseconds(5000));
  // The next error that a stream reports, empty if there is none by the deadline.
  std::string waitForError(Milliseconds deadline = Milliseconds(5000));

 private:
  bool waitUntil(const std::function<bool()>& condition, Milliseconds deadline);
  void take(const std::string& line);
  void command(const std::string& text);
  void waitForStateOfAll(const std::string& state);

  std::string name_;
  std::filesystem::path log_;
  ChildProcess child_;
  pid_t pid_ = 0, ownPid_ = 0;
  std::size_t opened_ = 0;                     // streams ever: the next one's index
  std::map<std::size_t, std::string> states_;  // as last reported
  std::vector<std::size_t> indices_;           // of the open streams
  std::vector<std::string> errors_;
  std::string obeyed_;
};

}  // namespace monitor::lab
