// SPDX-License-Identifier: MIT
// The history store against the bare loop over SQLite, and against rrdtool as a peer: a snapshot of 300 apps with seven
// metrics and 20 machine-wide readings, with eight hours behind it, and 24 hours of one metric.
#include <fmt/core.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks/Harness/Suite.h"
#include "Benchmarks/HistoryFloor.h"
#include "Benchmarks/RrdtoolPeer.h"
#include "Benchmarks/ScratchFolder.h"
#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorSnapshot.h"

namespace monitor::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kStart = 1'731'758'400;  // a multiple of 900
constexpr int kApps = 300;
constexpr int kReadings = 20;
constexpr int kMinutesBehind = 480;
constexpr int kSnapshotsPerMinute = 30;

// Processor time of this process, which the disk of the machine has no part in.
template <class Work>
double cpuSeconds(Work&& work) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  };
  const double begin = now();
  work();
  return now() - begin;
}

MonitorSnapshot makeSnapshot() {
  MonitorSnapshot snapshot{Date{}, 0.0, 2.0, {}, {}, {}, 0};
  for (int index = 0; index < kReadings; ++index) {
    snapshot.readings.insert({kAllMetrics[static_cast<std::size_t>(index)],
                              MetricReading(index * 1.5, MetricUnit::Percent, "kernel",
                                            MetricState::Available, Date{}, std::nullopt)});
  }
  for (int index = 0; index < kApps; ++index) {
    AppUsage app;
    app.id = appName(index);
    app.cpu = app.diskRead = app.diskWrite = app.download = app.upload = app.energy = index * 0.25;
    app.memory = static_cast<std::uint64_t>(index) << 20U;
    snapshot.apps.push_back(app);
  }
  return snapshot;
}

std::vector<FloorRow> rowsOf(const MonitorSnapshot& snapshot) {
  std::vector<FloorRow> rows;
  const auto add = [&](std::string_view app, MetricID metric, double value) {
    const auto name = rawValue(metric);
    rows.push_back(
        {app.data(), static_cast<int>(app.size()), name.data(), static_cast<int>(name.size()), value});
  };
  for (const auto& [metric, reading] : snapshot.readings) add("", metric, *reading.value);
  for (const auto& app : snapshot.apps) {
    for (const MetricID metric :
         {MetricID::Cpu, MetricID::MemoryUsed, MetricID::DiskRead, MetricID::DiskWrite, MetricID::Download,
          MetricID::Upload, MetricID::EnergyImpact}) {
      add(app.id, metric, *app.value(metric));
    }
  }
  return rows;
}

// Three stores with the same past, each with a minute of its own that it has reached.
class Append {
 public:
  explicit Append(bool withPeer) : snapshot_(makeSnapshot()), rows_(rowsOf(snapshot_)) {
    prefill(folder_ / "product.sqlite", kStart, kMinutesBehind, kApps);
    fs::copy_file(folder_ / "product.sqlite", folder_ / "floor.sqlite");
    product_ = std::make_unique<MonitorHistoryStore>(folder_ / "product.sqlite");
    floor_ = std::make_unique<HistoryFloor>(folder_ / "floor.sqlite");
    if (withPeer) peer_ = std::make_unique<RrdtoolPeer>(folder_ / "rrd", kFirst, kApps, kReadings);
  }

  // Each appends the snapshots of a minute and returns the seconds of one.
  double product() {
    const std::int64_t minute = next(productMinute_);
    return cpuSeconds([&] {
             for (int index = 1; index <= kSnapshotsPerMinute; ++index) {
               snapshot_.timestamp = Date::since1970(static_cast<double>(minute + index * 2));
               snapshot_.advancedTimestamp = snapshot_.timestamp;
               snapshot_.advancedInterval = 2.0;
               product_->append(snapshot_);
             }
           }) /
           kSnapshotsPerMinute;
  }

  double floor() {
    const std::int64_t minute = next(floorMinute_);
    return cpuSeconds([&] {
             for (int index = 1; index <= kSnapshotsPerMinute; ++index) {
               floor_->append(rows_, static_cast<double>(minute + index * 2), 2.0);
             }
           }) /
           kSnapshotsPerMinute;
  }

  double peer() {
    const std::int64_t minute = next(peerMinute_);
    const double before = peer_->cpuMs();
    for (int index = 1; index <= kSnapshotsPerMinute; ++index) peer_->update(minute + index * 2, index);
    return (peer_->cpuMs() - before) / 1e3 / kSnapshotsPerMinute;
  }

 private:
  static constexpr std::int64_t kFirst = kStart + kMinutesBehind * 60;
  static std::int64_t next(std::int64_t& minute) { return kFirst + 60 * minute++; }

  ScratchFolder folder_;
  MonitorSnapshot snapshot_;
  std::vector<FloorRow> rows_;
  std::unique_ptr<MonitorHistoryStore> product_;
  std::unique_ptr<HistoryFloor> floor_;
  std::unique_ptr<RrdtoolPeer> peer_;
  std::int64_t productMinute_ = 0;
  std::int64_t floorMinute_ = 0;
  std::int64_t peerMinute_ = 0;
};

class DayQuery {
 public:
  DayQuery() {
    prefill(folder_ / "day.sqlite", kStart, kDayMinutes, kAppsInFile);
    product_ = std::make_unique<MonitorHistoryStore>(folder_ / "day.sqlite");
    floor_ = std::make_unique<HistoryFloor>(folder_ / "day.sqlite");
  }

  double product() {
    const Date from = Date::since1970(kFrom);
    const Date through = Date::since1970(kThrough);
    return everyApp([&](int app) { return product_->query(MetricID::Cpu, appName(app), from, through).size(); });
  }

  double floor() {
    return everyApp([&](int app) { return floor_->query("cpu", appName(app), kFrom, kThrough).size(); });
  }

 private:
  static constexpr int kDayMinutes = 1'440;
  static constexpr int kAppsInFile = 100;
  static constexpr int kQueries = 20;
  static constexpr double kFrom = static_cast<double>(kStart);
  static constexpr double kThrough = kFrom + kDayMinutes * 60.0;

  template <class Query>
  static double everyApp(const Query& query) {
    return cpuSeconds([&] {
             for (int app = 0; app < kQueries; ++app) {
               if (query(app) != kDayMinutes) throw std::runtime_error("the query did not return the day");
             }
           }) /
           kQueries;
  }

  ScratchFolder folder_;
  std::unique_ptr<MonitorHistoryStore> product_;
  std::unique_ptr<HistoryFloor> floor_;
};

void addAppend(Suite& suite) {
  const bool withPeer = RrdtoolPeer::available();
  if (!withPeer) fmt::print(stderr, "history: rrdtool is not installed, no comparison with it\n");
  const auto append = std::make_shared<Append>(withPeer);
  Comparison bare;
  bare.name = "append, 2120 rows";
  bare.product = {"store", {}, [append] { return append->product(); }};
  bare.floors = {{1.0, {"bare loop", {}, [append] { return append->floor(); }}}};
  bare.bound = 1.05;
  suite.add(bare);
  if (!withPeer) return;
  Comparison peer = bare;
  peer.name = "append, against rrdtool";
  peer.floors = {{1.0, {"rrdtool's batch update", {}, [append] { return append->peer(); }}}};
  peer.bound = 1.0;
  suite.add(peer);
}

void addHistoryComparisons(Suite& suite) {
  configureStorageEngine();
  addAppend(suite);
  const auto day = std::make_shared<DayQuery>();
  Comparison query;
  query.name = "query, 24 hours";
  query.product = {"store", {}, [day] { return day->product(); }};
  query.floors = {{1.0, {"bare loop", {}, [day] { return day->floor(); }}}};
  query.bound = 1.10;
  suite.add(query);
}

const Registration kRegistration("history", addHistoryComparisons);

}  // namespace
}  // namespace monitor::bench
