// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Tests/Platform/Ipc/PrivateBus.h"
#include "Tests/Platform/Ipc/ServiceThread.h"
#include "Tools/AudioLab/ChildProcess.h"

namespace monitor::tests {

inline constexpr const char* kServiceName = "app.vesk.native.monitor-audio";
inline constexpr const char* kServicePath = "/app/vesk/native/monitor_audio";
inline constexpr const char* kServiceInterface = "app.vesk.native.MonitorAudio";

// The texts of the service that these tests meet.
inline constexpr const char* kInvalidSelection = "Invalid audio app selection.";
[[nodiscard]] std::string changedProcessText();

// The selection of the n-th program (from 1) that the made-up audio system plays.
[[nodiscard]] std::string selection(int program);

// The service over the made-up audio system, as a process on a private bus. Serves once constructed.
class ServiceOnBus {
 public:
  explicit ServiceOnBus(std::vector<std::string> arguments = {}, const PrivateBus::Options& options = {});

  PrivateBus bus;
  lab::ChildProcess process;

  // What is left of the clients, once it has become `expected` or does not within the time allowed:
  // "views=0 taps=0 devices=0 listeners=0 queues=0".
  [[nodiscard]] std::string status(const std::string& expected);
  [[nodiscard]] std::size_t threads() const;
  // The service's exit status; nothing while it runs on.
  [[nodiscard]] std::optional<int> exitStatus();
  [[nodiscard]] std::string log() const;

  // The output of `busctl call` on the service's main interface in JSON, or the error it prints.
  [[nodiscard]] std::string call(const std::string& method, std::vector<std::string> arguments = {}) const;
};

inline constexpr const char* kNothingLeft = "views=0 taps=0 devices=0 listeners=0 queues=0";

// The program of the made-up service, for activation.
[[nodiscard]] std::string fakeServiceProgram();

// An array of bytes as busctl takes it: the length and each byte.
[[nodiscard]] std::vector<std::string> bytesForBusctl(const std::string& data);

}  // namespace monitor::tests
