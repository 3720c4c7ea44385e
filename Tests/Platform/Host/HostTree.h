// SPDX-License-Identifier: MIT
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Platform/Linux/Host/HostFiles.h"

namespace monitor::platform {

// A made-up machine: a folder that stands for "/", removed with its holder.
class HostTree {
 public:
  HostTree() {
    std::string name = (std::filesystem::temp_directory_path() / "vesk-host-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    root_ = name;
  }
  HostTree(const HostTree&) = delete;
  HostTree& operator=(const HostTree&) = delete;
  ~HostTree() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  HostTree& file(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << content;
    return *this;
  }
  HostTree& folder(const std::filesystem::path& path) {
    std::filesystem::create_directories(root_ / path);
    return *this;
  }
  void remove(const std::filesystem::path& path) { std::filesystem::remove_all(root_ / path); }
  [[nodiscard]] HostFiles files() const { return HostFiles(root_); }
  [[nodiscard]] const std::filesystem::path& root() const { return root_; }

 private:
  std::filesystem::path root_;
};

}  // namespace monitor::platform
