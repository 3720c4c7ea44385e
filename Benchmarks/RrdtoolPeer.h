// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace monitor::bench {

// The same series in a round-robin database: rrdtool in its batch mode, one file per app with its seven
// series and one for the machine-wide ones, a day at 60 seconds and 30 days at 900 seconds, means and peaks.
class RrdtoolPeer {
 public:
  [[nodiscard]] static bool available();

  RrdtoolPeer(std::filesystem::path folder, std::int64_t start, int apps, int machineWide);
  ~RrdtoolPeer();
  RrdtoolPeer(const RrdtoolPeer&) = delete;
  RrdtoolPeer& operator=(const RrdtoolPeer&) = delete;

  // One update a file, all at `time`. Returns when rrdtool has answered every one.
  void update(std::int64_t time, double value);
  // CPU time of the process since its start.
  [[nodiscard]] double cpuMs() const;

 private:
  void send(const std::string& commands, int replies);

  std::filesystem::path folder_;
  std::vector<std::string> files_;
  std::vector<int> series_;
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
};

}  // namespace monitor::bench
