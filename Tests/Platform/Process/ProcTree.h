// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {

// What a made-up process shows below /proc.
struct ProcEntry {
  std::string command = "program";
  char state = 'S';
  std::int32_t parent = 1;
  std::int32_t terminal = 0;
  std::uint64_t userTicks = 0;
  std::uint64_t systemTicks = 0;
  std::int64_t threads = 1;
  std::uint64_t startTicks = 100;
};

// A made-up /proc below a scratch folder, with its own "/" beside it.
class ProcTree {
 public:
  ProcTree() {
    tree_.folder("proc");
    boot(1'000);
  }

  ProcTree& boot(std::uint64_t seconds) {
    return file("proc/stat",
                "cpu  1 2 3 4\nintr 5 6\nctxt 7\nbtime " + std::to_string(seconds) + "\nprocesses 8\n");
  }

  ProcTree& process(std::int32_t pid, const ProcEntry& entry = {}) {
    const std::string stat = std::to_string(pid) + " (" + entry.command + ") " + entry.state + ' ' +
                             std::to_string(entry.parent) + " 10 10 " + std::to_string(entry.terminal) +
                             " -1 4194560 1 2 3 4 " + std::to_string(entry.userTicks) + ' ' +
                             std::to_string(entry.systemTicks) + " 0 0 20 0 " +
                             std::to_string(entry.threads) + " 0 " + std::to_string(entry.startTicks) +
                             " 1000000 200 18446744073709551615 1 1 0 0 0\n";
    return file(name(pid, "stat"), stat).file(name(pid, "comm"), entry.command + '\n');
  }

  ProcTree& controlGroup(std::int32_t pid, const std::string& path) {
    return file(name(pid, "cgroup"), "0::" + path + '\n');
  }

  ProcTree& file(const std::filesystem::path& path, const std::string& content) {
    tree_.file(path, content);
    return *this;
  }
  ProcTree& link(const std::filesystem::path& path, const std::string& target) {
    std::filesystem::create_directories((tree_.root() / path).parent_path());
    std::filesystem::remove(tree_.root() / path);
    std::filesystem::create_symlink(target, tree_.root() / path);
    return *this;
  }
  void end(std::int32_t pid) { tree_.remove("proc/" + std::to_string(pid)); }

  [[nodiscard]] static std::string name(std::int32_t pid, const std::string& file) {
    return "proc/" + std::to_string(pid) + '/' + file;
  }
  [[nodiscard]] std::string path(const std::string& below) const { return (tree_.root() / below).string(); }
  [[nodiscard]] std::string proc() const { return path("proc"); }

 private:
  HostTree tree_;
};

}  // namespace monitor::platform
