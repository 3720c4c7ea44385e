// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/Data.h"

namespace monitor {

// One run of one tool.
struct ToolRun {
  std::string executable = {};  // absolute path
  std::vector<std::string> arguments = {};
  std::vector<std::pair<std::string, std::string>> environment =
      {};                       // the whole environment, nothing is inherited
  bool errorsToOutput = false;  // standard error joins standard output; otherwise it is thrown away
  double timeout = 0.0;         // seconds until the tool is told to terminate
  std::size_t outputLimit = 0;  // bytes; one more ends the run
};

struct ToolResult {
  enum class Outcome : std::uint8_t {
    StartFailed,     // `code` is the platform's error number
    OutputTooLarge,  // the limit was passed; the tool was terminated
    StillRunning,    // the output ended, or had to be given up, and the tool had not ended a second later
    Exited,          // `code` is the exit status
    Signalled,       // `code` is the signal
  };
  Outcome outcome = Outcome::StartFailed;
  std::int32_t code = 0;
  Data output;  // standard output as far as it was read

  [[nodiscard]] bool succeeded() const { return outcome == Outcome::Exited && code == 0; }
};

// Runs tools. Blocks the caller for at most the time-out and two seconds, whatever the tool does: it is told
// to terminate at its time-out, its whole process group is killed a second later, and it is reaped before
// run() returns. Thread-safe.
class ToolRunner {
 public:
  virtual ~ToolRunner() = default;
  [[nodiscard]] virtual ToolResult run(const ToolRun& run) = 0;
};

}  // namespace monitor
