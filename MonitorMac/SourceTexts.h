// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace monitor {

// What the collector's readings say of their origin. One table per platform: the figures mean the same, their
// sources do not.
struct SourceTexts {
  std::string_view cpuFailed;
  std::string_view cpuFailedDetail;
  std::string_view cpu;
  std::string_view cpuDetail;
  std::string_view memoryTotal;
  std::string_view memoryUsed;
  std::string_view memoryUsedDetail;
  std::string_view memoryWired;
  std::string_view memoryCompressed;
  std::string_view memoryPressure;
  std::string_view diskTotal;
  std::string_view diskFree;
  std::string_view network;
  std::string_view downloadDetail;
  std::string_view storage;
  std::string_view diskReadDetail;
  std::string_view battery;
  std::string_view batteryMinutes;
  std::string_view batteryHealth;
  std::string_view batteryHealthDetail;
  std::string_view accessoryName;  // of an accessory that does not tell its own
};

inline constexpr SourceTexts kMacSourceTexts{
    .cpuFailed = "Mach",
    .cpuFailedDetail = "macOS did not return CPU counters",
    .cpu = "Mach host CPU counters",
    .cpuDetail = "Across all logical cores",
    .memoryTotal = "Physical memory",
    .memoryUsed = "Mach VM counters",
    .memoryUsedDetail = "Internal, wired and compressed pages, excluding purgeable pages",
    .memoryWired = "Mach wired pages",
    .memoryCompressed = "Mach compressor pages",
    .memoryPressure = "macOS memory pressure",
    .diskTotal = "Home volume capacity",
    .diskFree = "Home volume available space",
    .network = "Physical interfaces",
    .downloadDetail = "External interface traffic; excludes loopback and duplicate VPN interfaces",
    .storage = "Block storage drivers",
    .diskReadDetail = "Activity across physical drives",
    .battery = "IOPowerSources",
    .batteryMinutes = "macOS estimate",
    .batteryHealth = "Battery capacity properties",
    .batteryHealthDetail = "Maximum raw capacity relative to design capacity",
    .accessoryName = "Connected accessory",
};

inline constexpr SourceTexts kLinuxSourceTexts{
    .cpuFailed = "Linux",
    .cpuFailedDetail = "The kernel did not return CPU counters",
    .cpu = "Kernel CPU counters",
    .cpuDetail = "Across all logical cores",
    .memoryTotal = "Physical memory",
    .memoryUsed = "Kernel memory counters",
    .memoryUsedDetail = "Total memory less what is available without swapping",
    .memoryWired = "Unevictable pages",
    .memoryCompressed = "Compressed swap",
    .memoryPressure = "Pressure stall information",
    .diskTotal = "Home volume capacity",
    .diskFree = "Home volume available space",
    .network = "Physical interfaces",
    .downloadDetail =
        "External interface traffic; excludes loopback, bridges, tunnels and other virtual interfaces",
    .storage = "Block devices",
    .diskReadDetail = "Activity across physical drives",
    .battery = "Power supply class",
    .batteryMinutes = "Power supply estimate",
    .batteryHealth = "Battery capacity properties",
    .batteryHealthDetail = "Last full capacity relative to design capacity",
    .accessoryName = "Connected accessory",
};

}  // namespace monitor
