// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessSample.h"

#include <utility>

namespace monitor {

ProcessSample::ProcessSample(ProcessKey key, std::int32_t parentPID, std::string name,
                             std::optional<std::string> bundleID, std::optional<double> cpu,
                             std::uint64_t memory, std::uint32_t owner, std::string executable,
                             std::optional<double> diskRead, std::optional<double> diskWrite,
                             std::optional<double> download, std::optional<double> upload,
                             std::optional<double> energy, std::optional<std::string> directory,
                             std::vector<std::int64_t> ports)
    : key(key),
      parentPID(parentPID),
      owner(owner),
      name(std::move(name)),
      bundleID(std::move(bundleID)),
      executable(std::move(executable)),
      cpu(cpu),
      memory(memory),
      diskRead(diskRead),
      diskWrite(diskWrite),
      download(download),
      upload(upload),
      energy(energy),
      directory(std::move(directory)),
      ports(std::move(ports)) {}

}  // namespace monitor
