// SPDX-License-Identifier: MIT
#pragma once

#include <dirent.h>

#include <memory>

namespace monitor::platform {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// An open folder, read with readdir(); none when it could not be opened.
using Folder = std::unique_ptr<DIR, CloseFolder>;

}  // namespace monitor::platform
