// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <string>

#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/Ports/Time.h"
#include "Tools/vesk/Console.h"
#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/TimeZone.h"

// What `vesk history …` does once its arguments are read. All throw CommandError.
namespace monitor::vesk {

// Where the commands get what is not on the command line. Everything outlives the call.
struct HistoryHost {
  const Clock& clock;
  const WallClock& wallClock;
  const TimeZone& zone;
  std::istream& input;
  bool inputIsTerminal = false;
};

struct HistoryAppend {
  std::filesystem::path file;
  std::string recording;  // "-" for the standard input
};
ExitCode appendRecording(const HistoryAppend& options, const HistoryHost& host, const Console& console);

struct HistoryQuery {
  std::filesystem::path file;
  std::string metric;
  std::string app;
  std::string from = "-24h";
  std::string through = "now";
  bool json = false;
  bool csv = false;
  std::string plot;  // PNG file; empty for none
};
ExitCode queryHistory(const HistoryQuery& options, const HistoryHost& host, const Console& console);

struct HistoryCoverageOptions {
  std::filesystem::path file;
  bool json = false;
};
ExitCode showCoverage(const HistoryCoverageOptions& options, const HistoryHost& host, const Console& console);

struct HistoryMaintain {
  std::filesystem::path file;
  std::int64_t retentionDays = 30;
  std::int64_t maxBytes = MonitorHistoryStore::kSizeLimit;
};
ExitCode maintainHistory(const HistoryMaintain& options, const HistoryHost& host, const Console& console);

struct HistoryClear {
  std::filesystem::path file;
  bool yes = false;
};
ExitCode clearHistory(const HistoryClear& options, const HistoryHost& host, const Console& console);

}  // namespace monitor::vesk
