// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

#include "Tools/AudioLab/Environment.h"
#include "Tools/AudioLab/StackOptions.h"

namespace monitor::lab {

// The folders and configuration files of one stack below `directory`: PipeWire with the sinks and nothing
// else, a session manager that looks for no hardware and no portals, and the bus. Written for PipeWire 0.3.65
// with WirePlumber 0.4 and for PipeWire 1.4 with WirePlumber 0.5; each ignores the other's files.
void writeStackFiles(const std::filesystem::path& directory, const StackOptions& options);

// One `adapter` object of a null sink in PipeWire's configuration language.
[[nodiscard]] std::string sinkProperties(const SinkOptions& sink);

// What every process of the stack gets.
[[nodiscard]] Environment stackEnvironment(const std::filesystem::path& directory,
                                           const StackOptions& options);

// The variable that marks every process of a stack; its value is the stack's directory.
inline constexpr const char* kStackVariable = "VESK_LAB_STACK";

}  // namespace monitor::lab
