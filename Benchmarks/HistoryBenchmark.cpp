// SPDX-License-Identifier: MIT
// The history store against the bare loop over SQLite, and against rrdtool as a peer:
//   append    a snapshot of 300 apps with seven metrics and 20 machine-wide readings, eight hours behind it
//   query     24 hours of one metric
//   maintain  the roll-up of a day, against the same statements at SQLite's default cache size
//
//   history_benchmark [--rounds N] [--day-apps N] [append|query|maintain]…
//
// Ratios are medians over rounds in which the contestants take turns.
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>

#include "Benchmarks/HistoryFloor.h"
#include "Benchmarks/PairedRun.h"
#include "Benchmarks/RrdtoolPeer.h"
#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorSnapshot.h"

namespace monitor::benchmark {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kStart = 1'731'758'400;  // a multiple of 900
constexpr int kApps = 300;
constexpr int kReadings = 20;
constexpr int kSnapshotsPerMinute = 30;

struct Options {
  int rounds = 15;
  int dayApps = 100;
  std::set<std::string> parts;
};

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (fs::temp_directory_path() / "vesk-history-benchmark-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder: " + name);
    path_ = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  [[nodiscard]] fs::path operator/(const char* name) const { return path_ / name; }

 private:
  fs::path path_;
};

void report(const char* name, const std::vector<Cost>& costs, double per) {
  fmt::print("  {:<10}{:9.3f} ms CPU {:9.3f} ms wall\n", name, median(costs, &Cost::cpuMs) / per,
             median(costs, &Cost::wallMs) / per);
}

void reportRatio(const char* name, const std::vector<Cost>& over, const std::vector<Cost>& under,
                 double target) {
  const double ratio = medianRatio(over, under, &Cost::cpuMs);
  fmt::print("  {:<30}{:6.3f}   target <= {:.2f}   {}\n", name, ratio, target,
             ratio <= target ? "met" : "MISSED");
}

// Append.

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

void benchmarkAppend(const Options& options) {
  constexpr int kMinutesBehind = 480;
  const ScratchFolder folder;
  const fs::path productFile = folder / "product.sqlite";
  const fs::path floorFile = folder / "floor.sqlite";
  prefill(productFile, kStart, kMinutesBehind, kApps);
  fs::copy_file(productFile, floorFile);

  MonitorHistoryStore product(productFile);
  HistoryFloor floor(floorFile);
  std::unique_ptr<RrdtoolPeer> peer;
  const std::int64_t first = kStart + kMinutesBehind * 60;
  if (RrdtoolPeer::available()) peer = std::make_unique<RrdtoolPeer>(folder / "rrd", first, kApps, kReadings);

  auto snapshot = makeSnapshot();
  const auto rows = rowsOf(snapshot);
  std::vector<Cost> ofProduct;
  std::vector<Cost> ofFloor;
  std::vector<Cost> ofPeer;
  for (int round = 0; round < options.rounds; ++round) {
    const std::int64_t minute = first + round * 60;
    const auto appendProduct = [&] {
      for (int index = 1; index <= kSnapshotsPerMinute; ++index) {
        snapshot.timestamp = Date::since1970(static_cast<double>(minute + index * 2));
        snapshot.advancedTimestamp = snapshot.timestamp;
        snapshot.advancedInterval = 2.0;
        product.append(snapshot);
      }
    };
    const auto appendFloor = [&] {
      for (int index = 1; index <= kSnapshotsPerMinute; ++index) {
        floor.append(rows, static_cast<double>(minute + index * 2), 2.0);
      }
    };
    if (round % 2 == 0) {
      ofProduct.push_back(measured(appendProduct));
      ofFloor.push_back(measured(appendFloor));
    } else {
      ofFloor.push_back(measured(appendFloor));
      ofProduct.push_back(measured(appendProduct));
    }
    if (peer == nullptr) continue;
    const double before = peer->cpuMs();
    auto cost = measured([&] {
      for (int index = 1; index <= kSnapshotsPerMinute; ++index) peer->update(minute + index * 2, index);
    });
    cost.cpuMs = peer->cpuMs() - before;
    ofPeer.push_back(cost);
  }

  fmt::print("append: {} apps x 7 + {} readings, {} h behind it, {} rounds of a minute; per snapshot\n",
             kApps, kReadings, kMinutesBehind / 60, options.rounds);
  report("product", ofProduct, kSnapshotsPerMinute);
  report("bare loop", ofFloor, kSnapshotsPerMinute);
  if (peer != nullptr) report("rrdtool", ofPeer, kSnapshotsPerMinute);
  reportRatio("product / bare loop", ofProduct, ofFloor, 1.05);
  if (peer != nullptr) {
    reportRatio("product / rrdtool batch", ofProduct, ofPeer, 1.0);
  } else {
    fmt::print("  rrdtool is not installed: no comparison with it\n");
  }
}

// Query.

void benchmarkQuery(const Options& options) {
  constexpr int kDayMinutes = 1'440;
  constexpr int kQueries = 20;
  const ScratchFolder folder;
  const fs::path file = folder / "day.sqlite";
  prefill(file, kStart, kDayMinutes, options.dayApps);
  MonitorHistoryStore product(file);
  HistoryFloor floor(file);
  const double from = static_cast<double>(kStart);
  const double through = from + kDayMinutes * 60.0;

  std::vector<Cost> ofProduct;
  std::vector<Cost> ofFloor;
  std::size_t points = 0;
  for (int round = 0; round < options.rounds + 1; ++round) {
    const auto queryProduct = [&] {
      for (int index = 0; index < kQueries; ++index) {
        points = product.query(MetricID::Cpu, appName(index), Date::since1970(from), Date::since1970(through))
                     .size();
      }
    };
    const auto queryFloor = [&] {
      for (int index = 0; index < kQueries; ++index)
        points = floor.query("cpu", appName(index), from, through).size();
    };
    Cost productCost;
    Cost floorCost;
    if (round % 2 == 0) {
      productCost = measured(queryProduct);
      floorCost = measured(queryFloor);
    } else {
      floorCost = measured(queryFloor);
      productCost = measured(queryProduct);
    }
    if (round == 0) continue;  // fills the page cache of the system
    ofProduct.push_back(productCost);
    ofFloor.push_back(floorCost);
  }
  if (points != kDayMinutes) throw std::runtime_error("the query did not return the day");
  fmt::print("query: 24 h of one metric, {} points, {} apps in the file, {} rounds; per query\n", points,
             options.dayApps, options.rounds);
  report("product", ofProduct, kQueries);
  report("bare loop", ofFloor, kQueries);
  reportRatio("product / bare loop", ofProduct, ofFloor, 1.10);
}

// Maintenance.

struct ChildCost {
  Cost whole;
  Cost rollUp;              // from the transaction's beginning to the first checkpoint
  double residentMB = 0.0;  // the largest it was
};

struct Phases {
  Cost begin;
  Cost end;
};

Cost now() {
  return {milliseconds(CLOCK_PROCESS_CPUTIME_ID), milliseconds(CLOCK_MONOTONIC)};
}

Phases& phases() {
  static Phases seen;
  return seen;
}

int notePhase(unsigned, void*, void*, void* text) {
  const std::string_view statement = static_cast<const char*>(text);
  if (statement.starts_with("BEGIN IMMEDIATE")) phases().begin = now();
  if (statement.starts_with("PRAGMA wal_checkpoint") && phases().end.wallMs == 0) phases().end = now();
  return 0;
}

int traceConnection(sqlite3* db, char**, const sqlite3_api_routines*) {
  return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, notePhase, nullptr);
}

// Runs `work` in a process of its own, whose memory can be told from the benchmark's.
ChildCost measuredInChild(const std::function<void()>& work) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child == 0) {
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(traceConnection));
    try {
      const Cost whole = measured(work);
      const Cost rollUp{phases().end.cpuMs - phases().begin.cpuMs,
                        phases().end.wallMs - phases().begin.wallMs};
      const ChildCost cost{whole, rollUp, 0.0};
      if (write(ends[1], &cost, sizeof cost) == sizeof cost) _exit(0);
    } catch (const std::exception& error) {
      fmt::print(stderr, "child: {}\n", error.what());
    }
    _exit(1);
  }
  close(ends[1]);
  ChildCost cost;
  const bool read = ::read(ends[0], &cost, sizeof cost) == sizeof cost;
  close(ends[0]);
  rusage usage{};
  if (child < 0 || wait4(child, nullptr, 0, &usage) < 0 || !read)
    throw std::runtime_error("the child failed");
  cost.residentMB = static_cast<double>(usage.ru_maxrss) / 1024;
  return cost;
}

void benchmarkMaintain(const Options& options) {
  constexpr int kDayMinutes = 1'440;
  const ScratchFolder folder;
  const fs::path original = folder / "day.sqlite";
  const fs::path file = folder / "copy.sqlite";
  // In a child as well: a process inherits the resident size of the one that starts it.
  measuredInChild([&] { prefill(original, kStart, kDayMinutes, options.dayApps); });
  const auto freshCopy = [&] {
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(file.string() + suffix);
    fs::copy_file(original, file, fs::copy_options::overwrite_existing);
  };
  const std::int64_t cut = kStart + kDayMinutes * 60;
  const auto productRun = [&] {
    freshCopy();
    return measuredInChild([&] {
      MonitorHistoryStore(file).maintain(Date::since1970(static_cast<double>(cut) + 86'400.0), 30,
                                         std::numeric_limits<std::int64_t>::max());
    });
  };
  const auto floorRun = [&] {
    freshCopy();
    return measuredInChild([&] { HistoryFloor(file).maintain(cut, cut - 29 * 86'400); });
  };

  std::vector<Cost> ofProduct;
  std::vector<Cost> ofFloor;
  std::vector<Cost> wholeProduct;
  std::vector<Cost> wholeFloor;
  double resident = 0.0;
  for (int round = 0; round < options.rounds; ++round) {
    ChildCost product;
    ChildCost floor;
    if (round % 2 == 0) {
      product = productRun();
      floor = floorRun();
    } else {
      floor = floorRun();
      product = productRun();
    }
    ofProduct.push_back(product.rollUp);
    ofFloor.push_back(floor.rollUp);
    wholeProduct.push_back(product.whole);
    wholeFloor.push_back(floor.whole);
    resident = std::max(resident, product.residentMB);
  }
  fmt::print(
      "maintain: a day of {} apps x 7 + {} readings, {} MB, {} rounds; roll-up alone, then with the "
      "checkpoints "
      "and the vacuum\n",
      options.dayApps, kReadings, fs::file_size(original) / 1'000'000, options.rounds);
  report("product", ofProduct, 1);
  report("default", ofFloor, 1);
  reportRatio("product / default cache", ofProduct, ofFloor, 0.65);
  report("product", wholeProduct, 1);
  report("default", wholeFloor, 1);
  fmt::print("  {:<30}{:6.3f}\n", "product / default cache",
             medianRatio(wholeProduct, wholeFloor, &Cost::cpuMs));
  fmt::print("  {:<30}{:6.1f} MB target <= 100 MB  {}\n", "resident at most", resident,
             resident <= 100 ? "met" : "MISSED");
}

Options read(int argc, char** argv) {
  Options options;
  for (int index = 1; index < argc; ++index) {
    const std::string word = argv[index];
    const auto number = [&] {
      const int value = index + 1 < argc ? std::atoi(argv[++index]) : 0;
      if (value < 1) throw std::invalid_argument(word + " expects a number above 0");
      return value;
    };
    if (word == "--rounds") {
      options.rounds = number();
    } else if (word == "--day-apps") {
      options.dayApps = number();
    } else if (word == "append" || word == "query" || word == "maintain") {
      options.parts.insert(word);
    } else {
      throw std::invalid_argument("unknown argument \"" + word + "\"");
    }
  }
  if (options.parts.empty()) options.parts = {"append", "query", "maintain"};
  return options;
}

int run(int argc, char** argv) {
#ifndef NDEBUG
  fmt::print(stderr, "history_benchmark: this is a debug build, whose figures mean nothing\n");
  return 1;
#endif
  const Options options = read(argc, argv);
  configureStorageEngine();
  fmt::print("SQLite {}, compiler {}\n", sqlite3_libversion(), __VERSION__);
  if (options.parts.contains("append")) benchmarkAppend(options);
  if (options.parts.contains("query")) benchmarkQuery(options);
  if (options.parts.contains("maintain")) benchmarkMaintain(options);
  return 0;
}

}  // namespace
}  // namespace monitor::benchmark

int main(int argc, char** argv) {
  try {
    return monitor::benchmark::run(argc, argv);
  } catch (const std::invalid_argument& error) {
    fmt::print(stderr, "history_benchmark: {}\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    fmt::print(stderr, "history_benchmark: {}\n", error.what());
    return 1;
  }
}
