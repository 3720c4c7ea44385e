// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/StackOptions.h"

namespace monitor::lab {

enum class Daemon { Bus, PipeWire, SessionManager, Pulse };

// A whole audio system of its own, without hardware: PipeWire, its session manager, the PulseAudio front and,
// if wanted, a session bus, in a temporary directory. It works as root in a bare container and as a normal
// user, beside a running desktop, which it neither uses nor disturbs. Its destructor ends everything that
// runs on it and removes the directory; a keeper process does so when the owner is killed. Not thread-safe;
// create it on a thread that outlives it, since the daemons are killed with their thread.
class PrivateStack {
 public:
  // Returns when programs can play: the default output is the first sink. LabError with the end of a log
  // otherwise.
  explicit PrivateStack(StackOptions options = {});
  ~PrivateStack();
  PrivateStack(const PrivateStack&) = delete;
  PrivateStack& operator=(const PrivateStack&) = delete;

  [[nodiscard]] const StackOptions& options() const { return options_; }
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }
  // For every process on the stack; ScopedEnvironment puts the calling process itself there.
  [[nodiscard]] const Environment& environment() const { return environment_; }
  [[nodiscard]] std::string remote() const { return (directory_ / "run/pipewire-0").string(); }
  [[nodiscard]] std::string busAddress() const { return "unix:path=" + (directory_ / "run/bus").string(); }
  [[nodiscard]] std::filesystem::path log(const std::string& name) const {
    return directory_ / "log" / (name + ".log");
  }

  [[nodiscard]] pid_t pid(Daemon daemon) const { return process(daemon).pid(); }
  // Sends the signal; with one that ends the daemon, returns when it has ended.
  void kill(Daemon daemon, int signal = 9);
  // Starts a daemon that was killed, and waits until it serves.
  void start(Daemon daemon);
  void restart(Daemon daemon);

  // A program on the stack, its output in log(`name`).
  [[nodiscard]] ChildProcess spawn(const std::string& name, std::vector<std::string> command,
                                   bool talk = false) const;
  // A program on the stack, run to its end.
  [[nodiscard]] CommandResult run(std::vector<std::string> command,
                                  Milliseconds deadline = Milliseconds(10000)) const;

 private:
  [[nodiscard]] ChildProcess& process(Daemon daemon) { return processes_[static_cast<std::size_t>(daemon)]; }
  [[nodiscard]] const ChildProcess& process(Daemon daemon) const {
    return processes_[static_cast<std::size_t>(daemon)];
  }
  void startKeeper();
  void startAll();
  void waitForSocket(Daemon daemon, const std::filesystem::path& socket);
  void waitForDefaultSink();
  [[noreturn]] void fail(Daemon daemon, const std::string& what) const;

  StackOptions options_;
  std::filesystem::path directory_;
  Environment environment_;
  ChildProcess keeper_;
  std::array<ChildProcess, 4> processes_;
  bool started_ = false;
};

// The path of a program that is built with the laboratory ("vesk-lab-player", "vesk", …): beside the calling
// program or in the build's bin folder. LabError when it is not there.
[[nodiscard]] std::string builtProgram(const std::string& name);

}  // namespace monitor::lab
