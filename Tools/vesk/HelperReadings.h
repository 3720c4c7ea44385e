// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "MonitorCore/AdvancedSample.h"
#include "MonitorMac/Ports/DaemonRegistry.h"
#include "Tools/vesk/PlatformHelper.h"

namespace monitor::vesk {

// The optional helper's readings for commands, which are not to wait for a helper that is not there, hangs or
// is busy with somebody else's run: request() returns at once, and only settle() waits.
//
// The members are called on one thread, not on the ports' queue.
class HelperReadings {
 public:
  // How long the register of daemons may take. The request itself has the client's own 8 s.
  static constexpr double kStatusSeconds = 3.0;
  // A helper that is not enabled, or did not answer, is not asked again for this long.
  static constexpr double kRetrySeconds = 30.0;
  // After this long a request has settled, whatever happened.
  static constexpr double kLongestRequestSeconds = 11.5;

  explicit HelperReadings(HelperPorts ports = makeHelperPorts());
  // Gives the connection up; a request that is open is not waited for.
  ~HelperReadings();
  HelperReadings(const HelperReadings&) = delete;
  HelperReadings& operator=(const HelperReadings&) = delete;

  // Asks for a sample, unless one is being asked for or the last attempt failed too lately.
  void request();
  // Waits for what was asked for, at most `seconds`. Whether nothing is being asked for any more.
  bool settle(double seconds);
  // The newest sample that has arrived. Its processes carry the helper's keys: underKnownKeys() translates.
  [[nodiscard]] std::optional<AdvancedSample> latest() const;
  // Whether the helper may be asked, as of the last request; nothing before it was found out.
  [[nodiscard]] std::optional<DaemonStatus> daemonStatus() const;
  // Why the last request brought no sample; empty when it did, or when there was none.
  [[nodiscard]] std::string problem() const;
  // One line for the user: what the newest sample says of itself, or why there is none.
  [[nodiscard]] std::string status() const;

 private:
  class Asker;
  std::shared_ptr<Asker> asker_;
};

}  // namespace monitor::vesk
