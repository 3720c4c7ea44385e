// SPDX-License-Identifier: MIT
// Maintenance of a day of 300 apps with seven metrics and 20 machine-wide readings (three million rows) against the
// same statements at SQLite's default cache size. A run takes half a minute and 700 MB of the temporary folder.
#include <fcntl.h>
#include <fmt/core.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "Benchmarks/Harness/Suite.h"
#include "Benchmarks/HistoryFloor.h"
#include "Benchmarks/ScratchFolder.h"
#include "MonitorCore/MonitorHistoryStore.h"

namespace monitor::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kStart = 1'731'758'400;  // a multiple of 900
constexpr int kDayMinutes = 1'440;
constexpr int kApps = 300;
constexpr std::int64_t kDayAfter = kStart + kDayMinutes * 60;

struct ChildCost {
  double wholeSeconds = 0.0;   // processor time, as the next
  double rollUpSeconds = 0.0;  // from the transaction's beginning to the first checkpoint
  double residentMB = 0.0;     // the largest it was
};

struct Phases {
  double begin = 0.0;
  double end = 0.0;
};

double now() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

Phases& phases() {
  static Phases seen;
  return seen;
}

int notePhase(unsigned, void*, void*, void* text) {
  const std::string_view statement = static_cast<const char*>(text);
  if (statement.starts_with("BEGIN IMMEDIATE")) phases().begin = now();
  if (statement.starts_with("PRAGMA wal_checkpoint") && phases().end == 0.0) phases().end = now();
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
      const double begin = now();
      work();
      const ChildCost cost{now() - begin, phases().end - phases().begin, 0.0};
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

class Day {
 public:
  // In a child as well: a process inherits the resident size of the one that starts it.
  Day() {
    measuredInChild([this] { prefill(original_, kStart, kDayMinutes, kApps); });
  }

  ChildCost product() {
    return onCopy([this] {
      MonitorHistoryStore(copy_).maintain(Date::since1970(static_cast<double>(kDayAfter) + 86'400.0), 30,
                                          std::numeric_limits<std::int64_t>::max());
    });
  }

  ChildCost floor() {
    return onCopy([this] { HistoryFloor(copy_).maintain(kDayAfter, kDayAfter - 29 * 86'400); });
  }

  // The largest that any run of the product was.
  double residentMB = 0.0;

 private:
  ChildCost onCopy(const std::function<void()>& work) {
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(copy_.string() + suffix);
    fs::copy_file(original_, copy_, fs::copy_options::overwrite_existing);
    return measuredInChild(work);
  }

  ScratchFolder folder_;
  fs::path original_ = folder_ / "day.sqlite";
  fs::path copy_ = folder_ / "copy.sqlite";
};

void addDayComparisons(Suite& suite) {
  configureStorageEngine();
  const auto day = std::make_shared<Day>();
  Comparison rollUp;
  rollUp.name = "roll-up of a day";
  rollUp.product = {"store", {}, [day] {
                      const ChildCost cost = day->product();
                      day->residentMB = std::max(day->residentMB, cost.residentMB);
                      return cost.rollUpSeconds;
                    }};
  rollUp.floors = {{1.0, {"default cache size", {}, [day] { return day->floor().rollUpSeconds; }}}};
  rollUp.bound = 0.65;
  rollUp.pairs = kFewestPairs;
  suite.add(rollUp);
  Limit resident{"resident during maintenance", "MB", [day] {
                   if (day->residentMB == 0.0) day->residentMB = day->product().residentMB;
                   return day->residentMB;
                 }, 100.0};
  suite.add(resident);
}

const Registration kRegistration("history-day", addDayComparisons);

}  // namespace
}  // namespace monitor::bench
