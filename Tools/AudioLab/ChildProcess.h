// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tools/AudioLab/Environment.h"

namespace monitor::lab {

using Milliseconds = std::chrono::milliseconds;

// One descriptor, closed at the end.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  [[nodiscard]] int get() const { return number_; }
  [[nodiscard]] explicit operator bool() const { return number_ >= 0; }
  int release();
  void reset();

 private:
  int number_ = -1;
};

struct SpawnOptions {
  std::vector<std::string> command = {};  // command[0] is looked up in the child's PATH
  Environment environment = {};           // the child's whole environment
  std::filesystem::path log = {};  // receives stderr, and stdout unless `talk`; appended; empty: /dev/null
  bool talk = false;               // stdin and stdout are pipes for send() and receive()
  // The child is killed with the thread that spawned it; only something that has to outlive a killed test
  // says no.
  bool diesWithParent = true;
};

// A child in a process group of its own. Destroying the object kills the group and reaps the child. Not
// thread-safe; with diesWithParent, spawn from a thread that lives as long as the child should.
class ChildProcess {
 public:
  ChildProcess() = default;
  explicit ChildProcess(const SpawnOptions& options);  // LabError when it cannot be started
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&& other) noexcept;

  [[nodiscard]] pid_t pid() const { return pid_; }  // 0 when there is no child, or it has been reaped
  [[nodiscard]] bool running();
  void signal(int number) const;       // the child alone
  void signalGroup(int number) const;  // everything it started in its group
  void kill();                         // SIGKILL to the group, then reaped
  // Asks with SIGTERM, and kills what has not ended within `grace`.
  void terminate(Milliseconds grace);
  // The wait status once the child has ended, nothing at the deadline.
  std::optional<int> wait(Milliseconds deadline);

  void send(std::string_view line);  // adds the line's end; LabError when the child has gone
  // The next line of the child's stdout without its end; nothing at the deadline or at the end of the stream.
  std::optional<std::string> receive(Milliseconds deadline);
  void closeInput() { input_.reset(); }

 private:
  void reapIfEnded();
  pid_t pid_ = 0;
  pid_t group_ = 0;
  std::optional<int> status_;
  Descriptor pidfd_, input_, output_;
  std::string name_, received_;
};

// Runs a command to its end and returns its exit status (128 + signal when it was killed) and its whole
// stdout. LabError when it cannot be started or is not done by the deadline (it is killed then).
struct CommandResult {
  int status = 0;
  std::string output;
};
[[nodiscard]] CommandResult runCommand(SpawnOptions options, Milliseconds deadline);

// The last `lines` lines of a file, empty when it cannot be read.
[[nodiscard]] std::string fileTail(const std::filesystem::path& file, std::size_t lines);

}  // namespace monitor::lab
