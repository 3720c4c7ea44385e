// SPDX-License-Identifier: MIT
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// The least work that does what the history store does: loops over the SQLite interface with the same
// statements and the same settings, over rows that lie ready.
namespace monitor::bench {

struct CloseHandle {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct FinaliseStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Handle = std::unique_ptr<sqlite3, CloseHandle>;
using Statement = std::unique_ptr<sqlite3_stmt, FinaliseStatement>;

struct FloorRow {
  const char* app;
  int appBytes;
  const char* metric;
  int metricBytes;
  double value;
};

struct FloorPoint {
  double time, value, peak, coverage;
  std::int64_t resolution;
};

class HistoryFloor {
 public:
  explicit HistoryFloor(const std::filesystem::path& file);

  // All rows end at `end` and cover `seconds` of one minute.
  void append(const std::vector<FloorRow>& rows, double end, double seconds);
  [[nodiscard]] std::vector<FloorPoint> query(const std::string& metric, const std::string& app, double from,
                                              double through);
  // Rolls up what is before `rollUpCut` at SQLite's default cache size, and gives the space back.
  void maintain(std::int64_t rollUpCut, std::int64_t retentionCut);

 private:
  void execute(const std::string& script);
  Statement prepare(const char* text);
  std::int64_t usedBytes();

  Handle db_;
};

// A new database file with `minutes` minutes of `apps` apps with seven metrics and 20 machine-wide ones, the
// first of them at `start`.
void prefill(const std::filesystem::path& file, std::int64_t start, int minutes, int apps);

[[nodiscard]] std::string appName(int index);

}  // namespace monitor::bench
