// SPDX-License-Identifier: MIT
// MonitorMac is the system-facing library on every platform; the name is historical.
#pragma once

#include <filesystem>

#include "MonitorCore/Ports/SystemInformation.h"

// Static facts about the running system that other code must agree on.
namespace monitor::MonitorPlatform {

// The history database: "Monitor/history.sqlite" in a folder of the application-support folder that is named
// after the main bundle, "app.vesk.native" for a plain program. Creates nothing.
[[nodiscard]] std::filesystem::path historyURL(const SystemInformation& system);

// Whether per-application volume may be offered: macOS 14.2.0 or later, and every system that is not macOS.
[[nodiscard]] bool supportsAudio(const SystemInformation& system);

}  // namespace monitor::MonitorPlatform
