// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/PidfdPresence.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace monitor::vesk::agent {

PidfdPresence::Descriptor::Descriptor(pid_t pid)
    : number_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

PidfdPresence::Descriptor::~Descriptor() {
  if (number_ >= 0) ::close(number_);
}

PidfdPresence::Descriptor::Descriptor(Descriptor&& other) noexcept
    : number_(std::exchange(other.number_, -1)) {}

bool PidfdPresence::Descriptor::running() const {
  if (number_ < 0) return false;
  pollfd descriptor{number_, POLLIN, 0};
  return ::poll(&descriptor, 1, 0) == 0;  // readable once the process has ended
}

void PidfdPresence::saw(const AudioApplication& app) {
  auto& before = processes_[app.id];
  std::map<std::string, Descriptor> now;
  for (const ProcessKey& key : app.processes) {
    const std::string id = key.id();
    if (auto kept = before.extract(id)) {
      now.insert(std::move(kept));
    } else {
      now.emplace(id, key.pid);
    }
  }
  before.swap(now);
}

bool PidfdPresence::lives(const AudioApplication& app) {
  const auto seen = processes_.find(app.id);
  return seen != processes_.end() &&
         std::any_of(seen->second.begin(), seen->second.end(),
                     [](const auto& process) { return process.second.running(); });
}

}  // namespace monitor::vesk::agent
