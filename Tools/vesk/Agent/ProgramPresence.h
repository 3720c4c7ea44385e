// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/ProcessTable.h"

namespace monitor::vesk {

// Tells a program that ended from one that merely let go of the audio server. One thread.
class ProgramPresence {
 public:
  virtual ~ProgramPresence() = default;
  // `app` is listed now, with these processes.
  virtual void saw(const AudioApplication& app) = 0;
  // Whether anything of the program last seen under `app.id` still runs.
  [[nodiscard]] virtual bool lives(const AudioApplication& app) = 0;
  virtual void forget(const std::string& id) = 0;
};

// Looks at the process table. Start times are taken here, when a program is seen, and not from the service's
// keys: two processes that read the boot time before and after a step of the wall clock disagree about every
// start. Table and bundles outlive it.
class ProcessTablePresence final : public ProgramPresence {
 public:
  // `owner` is the user whose processes count for a program that is known by its bundle identifier.
  ProcessTablePresence(ProcessTable& table, ApplicationBundles& bundles, std::uint32_t owner)
      : table_(table), bundles_(bundles), owner_(owner) {}

  void saw(const AudioApplication& app) override;
  [[nodiscard]] bool lives(const AudioApplication& app) override;
  void forget(const std::string& id) override { seen_.erase(id); }

 private:
  [[nodiscard]] std::vector<ProcessKey> presentKeys(const AudioApplication& app);
  [[nodiscard]] bool bundleRuns(const std::string& identifier);

  ProcessTable& table_;
  ApplicationBundles& bundles_;
  std::uint32_t owner_;
  std::map<std::string, std::vector<ProcessKey>>
      seen_;  // by application id, with this process's own start times
};

}  // namespace monitor::vesk
