// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/RecordCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <utility>

#include "MonitorCore/SnapshotRecording.h"
#include "Tools/vesk/History/HistoryFile.h"
#include "Tools/vesk/Monitor/RecordingFile.h"
#include "Tools/vesk/Progress.h"

namespace monitor::vesk {
namespace {

using Sink = std::function<void(const MonitorSnapshot&)>;

Sink openSink(const RecordOptions& options, const Console& console) {
  if (options.file.empty() && options.database.empty()) {
    throw CommandError(ExitCode::Usage, "Where to? Expected FILE, or --db and a history.");
  }
  if (!options.database.empty()) {
    const std::shared_ptr<MonitorHistoryStore> store = openHistory(options.database, IfMissing::Create);
    return [store, file = options.database](const MonitorSnapshot& snapshot) {
      naming(file, [&] { store->append(snapshot); });
    };
  }
  if (options.file == "-") {
    return [&console](const MonitorSnapshot& snapshot) {
      console.out << recordingObject(snapshot).text() << '\n' << std::flush;
      if (!console.out) throw CommandError(ExitCode::Failed, "Standard output cannot be written.");
    };
  }
  const auto file = std::make_shared<RecordingFile>(options.file);
  return [file](const MonitorSnapshot& snapshot) { file->append(recordingObject(snapshot).text()); };
}

// When to take snapshots: on a grid from the start, so that slow passes do not add up, and at the end.
class Schedule {
 public:
  Schedule(double start, const RecordOptions& options)
      : start_(start),
        every_(options.every),
        end_(options.duration ? start + *options.duration : std::numeric_limits<double>::infinity()) {}

  // The first time after `now`, nothing once the last one was given.
  [[nodiscard]] std::optional<double> next(double now) {
    if (over_) return std::nullopt;
    double time = start_ + (std::floor((now - start_) / every_) + 1.0) * every_;
    // A rest that is next to nothing would be an interval without meaning.
    if (time + every_ * 0.01 >= end_) {
      time = end_;
      over_ = true;
    }
    return time;
  }

 private:
  double start_;
  double every_;
  double end_;
  bool over_ = false;
};

std::uint64_t recordAll(const RecordOptions& options, const MonitorHost& host, const Sink& sink,
                        const Console& console) {
  std::uint64_t count = 0;
  try {
    Progress progress(console, host.clock, "recording, snapshots so far", 0);
    Schedule schedule(host.clock.now(), options);
    (void)samplePass(host, false);
    while (const auto time = schedule.next(host.clock.now())) {
      if (!host.pause.until(*time)) break;
      sink(samplePass(host, options.projects));
      progress.update(++count);
    }
  } catch (const CommandError& failure) {
    if (count == 0) throw;
    throw CommandError(failure.code(),
                       fmt::format("{}\nThe {} snapshot{} before it {} recorded.", failure.what(), count,
                                   count == 1 ? "" : "s", count == 1 ? "is" : "are"));
  }
  return count;
}

}  // namespace

ExitCode record(const RecordOptions& options, const MonitorHost& host, const Console& console) {
  const Sink sink = openSink(options, console);
  const std::uint64_t count = recordAll(options, host, sink, console);
  const bool toOutput = options.database.empty() && options.file == "-";
  const std::string where = toOutput ? "the standard output" : options.database + options.file;
  (toOutput ? console.err : console.out)
      << fmt::format("Recorded {} snapshot{} to {}.\n", count, count == 1 ? "" : "s", where);
  return ExitCode::Ok;
}

}  // namespace monitor::vesk
