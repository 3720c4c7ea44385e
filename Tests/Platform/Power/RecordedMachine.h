// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "MonitorCore/Ports/Time.h"
#include "Platform/Linux/Power/PowerMeter.h"
#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {

// A machine of Tests/Fixtures/power/machines (its README has the form), unpacked into a folder. Its time
// passes only by waiting; `interval` seconds after the beginning its counters have their later values.
class RecordedMachine {
 public:
  explicit RecordedMachine(const std::string& text, double interval = 1.0);

  // The text of a file of that folder, "intel-laptop". Throws when there is none.
  [[nodiscard]] static std::string textOf(const std::string& name);

  // The machine outlives what it returns.
  [[nodiscard]] PowerSources sources();
  [[nodiscard]] HostTree& tree() { return tree_; }

 private:
  struct Step {
    enum class Kind { File, Folder, Link, Gone } kind;
    std::string path;
    std::string content;
  };
  using Steps = std::vector<Step>;

  class MachineClock final : public Clock {
   public:
    [[nodiscard]] double now() const override { return time; }
    double time = 5'000.0;
  };
  // The connections as files of the tree say them.
  class ListedSockets final : public TcpSockets {
   public:
    explicit ListedSockets(const HostTree& tree) : tree_(tree) {}
    std::optional<std::vector<TcpSocket>> current() override { return read("tcp"); }
    std::vector<TcpSocket> ended() override { return read("tcp-ended").value_or(std::vector<TcpSocket>()); }

   private:
    [[nodiscard]] std::optional<std::vector<TcpSocket>> read(const char* name) const;
    const HostTree& tree_;
  };

  void apply(const Steps& steps);
  void wait(double seconds);

  HostTree tree_;
  MachineClock clock_;
  ListedSockets sockets_{tree_};
  double end_;
  Steps during_;
  Steps after_;
};

}  // namespace monitor::platform
