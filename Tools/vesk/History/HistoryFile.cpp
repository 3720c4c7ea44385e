// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/HistoryFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "MonitorCore/MonitorHistoryStoreDatabase.h"
#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kSchemaVersion = 1;
constexpr std::size_t kPointsPerQuery = 5'000;

std::int64_t schemaVersion(const fs::path& file) {
  history::Connection look(file, history::Access::ReadOnly);
  // Executed first because that reports SQLite's own message where the file is no database.
  look.execute("PRAGMA busy_timeout=3000; PRAGMA user_version");
  history::Statement version = look.prepare("PRAGMA user_version");
  return version.step() == history::Step::Row ? version.integer(0) : 0;
}

}  // namespace

std::unique_ptr<MonitorHistoryStore> openHistory(const fs::path& file, IfMissing ifMissing) {
  std::error_code error;
  const auto size = fs::file_size(file, error);
  if (error && ifMissing == IfMissing::Refuse) {
    throw CommandError(ExitCode::Failed,
                       fmt::format("{}: there is no history here yet ({}).", file.string(), error.message()));
  }
  return naming(file, [&] {
    const std::int64_t version = error || size == 0 ? 0 : schemaVersion(file);
    if (version > kSchemaVersion) {
      throw CommandError(
          ExitCode::Failed,
          fmt::format("{}: this history has schema version {}, made by a newer program; this one knows "
                      "version {}. It is left untouched.",
                      file.string(), version, kSchemaVersion));
    }
    return std::make_unique<MonitorHistoryStore>(file);
  });
}

std::uintmax_t historyBytes(const fs::path& file) {
  std::uintmax_t sum = 0;
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::error_code error;
    const auto bytes = fs::file_size(file.string() + suffix, error);
    if (!error) sum += bytes;
  }
  return sum;
}

std::vector<HistoryPoint> allPoints(MonitorHistoryStore& store, MetricID metric, std::string_view app,
                                    Date from, Date through) {
  std::vector<HistoryPoint> points;
  std::set<std::pair<double, std::int64_t>> known;  // of the moment at which a query was cut off
  for (;;) {
    const auto more = store.query(metric, app, from, through);
    for (const HistoryPoint& point : more) {
      if (!known.contains({point.date.secondsSince2001, point.resolution})) points.push_back(point);
    }
    if (more.size() < kPointsPerQuery || more.back().date <= from) return points;
    // Its last moment may have a second resolution that did not fit any more.
    from = more.back().date;
    known.clear();
    for (auto point = points.rbegin(); point != points.rend() && point->date == from; ++point) {
      known.insert({point->date.secondsSince2001, point->resolution});
    }
  }
}

void failNaming(const fs::path& file, const char* what) {
  throw CommandError(ExitCode::Failed, fmt::format("{}: {}", file.string(), what));
}

}  // namespace monitor::vesk
