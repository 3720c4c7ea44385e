// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/Process/ProcFolder.h"

namespace monitor::platform {

// Who a process is.
struct ProcessStatus {
  std::uint32_t owner = 0;           // real user id
  std::vector<std::int32_t> nsPids;  // its pid in each pid namespace, from ours inwards; never empty
};

// What else tells a process from another one.
struct ProcessDetails {
  double startedAt = 0.0;  // seconds since boot, suspend included
  std::string cgroup;      // path in the unified hierarchy
  std::string executable;  // file name of its executable, empty when it may not be read
};

// The processes of the machine, as far as finding the process behind an audio client needs them. Any thread.
class ProcessSource {
 public:
  virtual ~ProcessSource() = default;
  [[nodiscard]] virtual std::vector<std::int32_t> pids() const = 0;
  // Nothing for a process that does not exist.
  [[nodiscard]] virtual std::optional<ProcessStatus> status(std::int32_t pid) const = 0;
  [[nodiscard]] virtual std::optional<ProcessDetails> details(std::int32_t pid) const = 0;
  // The user this program runs for.
  [[nodiscard]] virtual std::uint32_t ownUser() const = 0;
};

// Reads /proc; tests give another root.
class ProcProcessSource final : public ProcessSource {
 public:
  explicit ProcProcessSource(std::string root = "/proc");
  [[nodiscard]] std::vector<std::int32_t> pids() const override;
  [[nodiscard]] std::optional<ProcessStatus> status(std::int32_t pid) const override;
  [[nodiscard]] std::optional<ProcessDetails> details(std::int32_t pid) const override;
  [[nodiscard]] std::uint32_t ownUser() const override;

 private:
  [[nodiscard]] std::string path(std::int32_t pid, const char* name) const;

  std::string root_;
  ProcFolder folder_;
};

// Seconds since boot, suspend included: the scale of ProcessDetails::startedAt.
[[nodiscard]] double secondsSinceBoot();

}  // namespace monitor::platform
