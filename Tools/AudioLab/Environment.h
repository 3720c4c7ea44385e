// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace monitor::lab {

using Environment = std::map<std::string, std::string>;

// This process's variables without those that lead to the caller's own desktop: its buses, displays, audio
// servers and XDG folders.
[[nodiscard]] Environment neutralEnvironment();

// Sets the variables in this process and puts the former values back at the end, so that libraries inside the
// process (the PipeWire client, sd-bus) meet the private stack. Create it before other threads read the
// environment; desktop variables that `environment` does not set are removed meanwhile.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(const Environment& environment);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  void change(const std::string& name, const std::string* value);
  std::vector<std::pair<std::string, std::optional<std::string>>> former_;
};

}  // namespace monitor::lab
