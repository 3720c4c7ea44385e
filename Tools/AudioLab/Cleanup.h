// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace monitor::lab {

// Kills every process that carries the stack's mark in its environment (those that the bus started are
// nobody's children here) and removes the directory. The calling process is spared. Safe to call twice.
void removeStack(const std::filesystem::path& directory);

}  // namespace monitor::lab
