// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

#include "Tools/vesk/Agent/ProgramPresence.h"

namespace monitor::vesk::agent {

// Holds a process descriptor of every process it saw: no pid that is given to another process can be mistaken
// for the first, and no start time has to be compared. One descriptor for each audio process of a held
// program.
class PidfdPresence final : public ProgramPresence {
 public:
  void saw(const AudioApplication& app) override;
  [[nodiscard]] bool lives(const AudioApplication& app) override;
  void forget(const std::string& id) override { processes_.erase(id); }

 private:
  class Descriptor {
   public:
    explicit Descriptor(pid_t pid);  // of a process that is gone already: empty
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&&) = delete;
    [[nodiscard]] bool running() const;

   private:
    int number_;
  };

  // By application id, then by the id of the process's key.
  std::map<std::string, std::map<std::string, Descriptor>> processes_;
};

}  // namespace monitor::vesk::agent
