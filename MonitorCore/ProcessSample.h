// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/ProcessKey.h"

namespace monitor {

// One process as the collector saw it in one sample. In memory only.
struct ProcessSample {
  ProcessKey key;
  std::int32_t parentPID = 0;
  std::uint32_t owner = 0;              // user id
  std::string name;                     // display name
  std::optional<std::string> bundleID;  // when the process belongs to an application bundle
  std::string executable;
  std::optional<double> cpu;             // percent of one core
  std::uint64_t memory = 0;              // bytes
  std::optional<double> diskRead;        // bytes per second
  std::optional<double> diskWrite;       // bytes per second
  std::optional<double> download;        // bytes per second
  std::optional<double> upload;          // bytes per second
  std::optional<double> energy;          // energy impact score
  std::optional<std::string> directory;  // working directory, when known
  std::vector<std::int64_t> ports;       // listening ports

  ProcessSample() = default;
  // Takes its arguments in another order than the fields are declared in.
  ProcessSample(ProcessKey key, std::int32_t parentPID, std::string name, std::optional<std::string> bundleID,
                std::optional<double> cpu, std::uint64_t memory, std::uint32_t owner, std::string executable,
                std::optional<double> diskRead, std::optional<double> diskWrite,
                std::optional<double> download, std::optional<double> upload, std::optional<double> energy,
                std::optional<std::string> directory, std::vector<std::int64_t> ports);

  [[nodiscard]] const ProcessKey& id() const { return key; }

  friend bool operator==(const ProcessSample&, const ProcessSample&) = default;
};

}  // namespace monitor
