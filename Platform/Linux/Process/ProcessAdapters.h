// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/ProcessTable.h"

namespace monitor::platform {

// The processes of this machine. All tables of a program share one boot time, so that they agree on every
// process's start. Thread-safe.
[[nodiscard]] std::shared_ptr<ProcessTable> makeProcessTable();

// This user's processes, for a sampler that asks for all of them again and again: what did not run is not
// read again. Keeps up to one descriptor open for every process, for which it raises this program's soft
// limit of open files up to the hard one. One caller at a time.
[[nodiscard]] std::shared_ptr<ProcessTable> makeSampledProcessTable();

// The applications of this desktop, for the user and the language of this process. Reads the environment.
// Thread-safe.
[[nodiscard]] std::shared_ptr<ApplicationBundles> makeApplicationBundles();

}  // namespace monitor::platform
