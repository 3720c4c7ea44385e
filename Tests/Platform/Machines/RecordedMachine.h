// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "MonitorMac/Ports/HostStatistics.h"
#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {

// A machine written down in one text, unpacked into a folder moment by moment. Lines are
//
//   # a remark
//   moment 5000.0                      from here on at this uptime
//   file proc/loadavg                  followed by its content, each line behind "| "
//   link proc/900/root ../../sandbox   as it stands
//   folder sys/block/sda/device
//   remove sys/class/power_supply/BAT1
//   interface eth0 up 1000 2000        received and sent bytes
//   interface eth0 gone
//   process 812 name=bash parent=1 …   the files of a process; what is not named stays as it was
//   end 812
//
// with "\n", "\s" for a blank, "\\" and "\xNN" in the words of a process. Its words are name, state, parent,
// terminal, start, user, system (ticks), threads, rss, resident and shared (pages), swap (kB), read and
// written (bytes), ran (nanoseconds/count), exe, cwd, cgroup and root; without read and written there is no
// io, and so on.
class RecordedMachine {
 public:
  explicit RecordedMachine(std::istream& text);

  // Unpacks the next moment; false when there is none.
  bool next();
  [[nodiscard]] double uptime() const { return uptime_; }
  [[nodiscard]] const std::filesystem::path& root() const { return tree_.root(); }
  [[nodiscard]] HostFiles files() const { return tree_.files(); }
  [[nodiscard]] std::vector<InterfaceCounter> interfaces() const;

 private:
  using Words = std::vector<std::string>;

  void obey(const Words& words, std::size_t& line);
  void putProcess(std::int32_t pid, const Words& words);
  void putLink(const std::filesystem::path& path, const std::string& target) const;
  [[nodiscard]] std::string contentBehind(std::size_t& line) const;

  HostTree tree_;
  std::vector<std::string> lines_;
  std::size_t line_ = 0;
  double uptime_ = 0.0;
  std::map<std::string, InterfaceCounter> interfaces_;
  std::map<std::int32_t, std::map<std::string, std::string>> processes_;
};

}  // namespace monitor::platform
