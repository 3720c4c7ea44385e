// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/HistoryCommands.h"

#include <fmt/format.h>

#include <cmath>
#include <fstream>
#include <optional>
#include <string_view>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/Recording.h"
#include "MonitorCore/SnapshotRecording.h"
#include "Tools/vesk/Activity.h"
#include "Tools/vesk/History/HistoryFile.h"
#include "Tools/vesk/History/HistoryPlot.h"
#include "Tools/vesk/History/HistoryPrint.h"
#include "Tools/vesk/History/MetricText.h"
#include "Tools/vesk/Progress.h"
#include "Tools/vesk/TimeText.h"

namespace monitor::vesk {
namespace {

namespace fs = std::filesystem;

// Beyond this many seconds from 1970 (30 million years) a time is a mistake. Maintenance, which an append may
// start, has no cut for much larger ones.
constexpr double kLargestTime = 1e15;

std::string sizeText(std::uintmax_t bytes) {
  return valueText(static_cast<double>(bytes), MetricUnit::Bytes);
}

MetricID metricNamed(const std::string& name) {
  if (const auto metric = metricID(name)) return *metric;
  std::string names;
  for (const MetricID metric : kAllMetrics)
    names += fmt::format("{}{}", names.empty() ? "" : ", ", rawValue(metric));
  throw CommandError(ExitCode::NoMatch, fmt::format("\"{}\" is no metric. The metrics are {}.", name, names));
}

Date timeOption(const char* option, const std::string& text, const HistoryHost& host, Edge edge) {
  try {
    return parseTime(text, host.wallClock.now(), host.zone, edge);
  } catch (const TimeTextError& error) {
    throw CommandError(ExitCode::Usage, fmt::format("{}: {}", option, error.what()));
  }
}

MonitorSnapshot decodeStorable(std::string_view line) {
  auto snapshot = decodeSnapshot(line);
  const double time = snapshot.timestamp.secondsSince1970();
  if (std::isfinite(time) && std::abs(time) > kLargestTime) {
    throw json::DecodeError("at timestamp: expected a time within 30 million years of 1970");
  }
  return snapshot;
}

std::optional<MonitorSnapshot> nextSnapshot(RecordingReader& reader) {
  try {
    return reader.next(decodeStorable);
  } catch (const RecordingError& error) {
    throw CommandError(ExitCode::Failed, error.what());
  }
}

std::string snapshots(std::uint64_t count) {
  return count == 1 ? "1 snapshot" : fmt::format("{} snapshots", count);
}

// Answers with a line of its own, so that a plain Enter means no.
bool confirmed(const HistoryHost& host, const Console& console, const fs::path& file) {
  console.err << "Delete the whole history in " << file.string() << "? [y/N] " << std::flush;
  std::string answer;
  std::getline(host.input, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

ExitCode appendRecording(const HistoryAppend& options, const HistoryHost& host, const Console& console) {
  const bool fromInput = options.recording == "-";
  std::ifstream file;
  std::error_code error;
  std::uintmax_t size = 0;
  if (!fromInput) {
    file.open(options.recording);
    if (!file || fs::is_directory(options.recording, error)) {
      throw CommandError(ExitCode::Failed,
                         fmt::format("{}: the recording cannot be read.", options.recording));
    }
    size = fs::file_size(options.recording, error);
    if (error) size = 0;  // a pipe or device: only a count is shown
  }
  const auto store = openHistory(options.file, IfMissing::Create);
  RecordingReader reader(fromInput ? host.input : file, fromInput ? "standard input" : options.recording);
  std::uint64_t count = 0;
  try {
    Progress progress(console, host.clock, "appending", size);
    while (const auto snapshot = nextSnapshot(reader)) {
      naming(options.file, [&] { store->append(*snapshot); });
      ++count;
      progress.update(size == 0 ? count : reader.position());
    }
  } catch (const CommandError& failure) {
    if (count == 0) throw;
    throw CommandError(failure.code(), fmt::format("{}\nThe {} before it are in the history.", failure.what(),
                                                   snapshots(count)));
  }
  console.out << fmt::format("Appended {} to {}.\n", snapshots(count), options.file.string());
  return ExitCode::Ok;
}

ExitCode queryHistory(const HistoryQuery& options, const HistoryHost& host, const Console& console) {
  const MetricID metric = metricNamed(options.metric);
  const Date from = timeOption("--from", options.from, host, Edge::Begin);
  const Date through = timeOption("--through", options.through, host, Edge::End);
  if (from > through) throw CommandError(ExitCode::Usage, "--from lies after --through.");
  const auto store = openHistory(options.file, IfMissing::Refuse);
  const auto points =
      naming(options.file, [&] { return allPoints(*store, metric, options.app, from, through); });

  if (!options.plot.empty()) {
    writePlot({metric, options.app, from, through, points}, host.zone, options.plot);
    console.out << fmt::format("Plotted {} points to {}.\n", points.size(), options.plot);
  } else if (options.json) {
    console.out << pointsJson(points, host.zone);
  } else if (options.csv) {
    console.out << pointsCsv(points, host.zone);
  } else if (points.empty()) {
    console.out << fmt::format("No history of {}{} from {} to {}.\n", options.metric,
                               options.app.empty() ? "" : " of " + options.app, timeText(from, host.zone),
                               timeText(through, host.zone));
  } else {
    console.out << pointsTable(points, metric, host.zone, console.outTerminal);
  }
  return ExitCode::Ok;
}

ExitCode showCoverage(const HistoryCoverageOptions& options, const HistoryHost& host,
                      const Console& console) {
  const auto store = openHistory(options.file, IfMissing::Refuse);
  HistoryCoverage coverage;
  runWithActivity(console, host.clock, "reading the index",
                  [&] { naming(options.file, [&] { coverage = store->coverage(); }); });
  console.out << (options.json ? coverageJson(coverage, host.zone) : coverageText(coverage, host.zone));
  return ExitCode::Ok;
}

ExitCode maintainHistory(const HistoryMaintain& options, const HistoryHost& host, const Console& console) {
  const auto store = openHistory(options.file, IfMissing::Refuse);
  const auto before = historyBytes(options.file);
  runWithActivity(console, host.clock, "maintaining", [&] {
    naming(options.file,
           [&] { store->maintain(host.wallClock.now(), options.retentionDays, options.maxBytes); });
  });
  console.out << fmt::format("Maintained {}: {} before, {} now.\n", options.file.string(), sizeText(before),
                             sizeText(historyBytes(options.file)));
  return ExitCode::Ok;
}

ExitCode clearHistory(const HistoryClear& options, const HistoryHost& host, const Console& console) {
  const auto store = openHistory(options.file, IfMissing::Refuse);
  if (!options.yes) {
    if (!host.inputIsTerminal) {
      throw CommandError(ExitCode::Usage,
                         "Deleting the whole history takes --yes where there is nobody to ask.");
    }
    if (!confirmed(host, console, options.file)) {
      console.out << "Nothing was deleted.\n";
      return ExitCode::Ok;
    }
  }
  runWithActivity(console, host.clock, "clearing", [&] { naming(options.file, [&] { store->clear(); }); });
  console.out << fmt::format("Cleared {}.\n", options.file.string());
  return ExitCode::Ok;
}

}  // namespace monitor::vesk
