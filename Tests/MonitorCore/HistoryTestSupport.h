// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/MonitorSnapshot.h"

namespace monitor::fakes {

// A new empty folder that goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& name) const {
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

// One row of the table as it stands in the file.
struct StoredRow {
  std::int64_t t = 0;
  std::int64_t res = 60;
  std::string app;
  std::string metric;
  double total = 0.0;
  double weight = 0.0;
  double peak = 0.0;

  friend bool operator==(const StoredRow&, const StoredRow&) = default;
};
std::ostream& operator<<(std::ostream& out, const StoredRow& row);

// These look at a database file past the store, through a connection of their own to SQLite's plain file
// layer. They throw std::runtime_error where SQLite reports an error.
[[nodiscard]] std::vector<StoredRow> storedRows(const std::filesystem::path& file);  // by primary key
[[nodiscard]] std::string integrity(const std::filesystem::path& file);              // "ok" when whole
[[nodiscard]] std::string textOf(const std::filesystem::path& file, const std::string& sql);
void run(const std::filesystem::path& file, const std::string& script);

// A snapshot at `seconds` since 1970 with nothing in it.
[[nodiscard]] MonitorSnapshot snapshotAt(double seconds, double interval);
// A usable machine-wide reading, of the collector's own sources or of the helper.
[[nodiscard]] std::pair<const MetricID, MetricReading> reading(MetricID metric, double value,
                                                               const std::string& source = "kernel",
                                                               double secondsSince1970 = 0.0);
// An app with all seven figures: cpu, then memory and the rest counting up from it.
[[nodiscard]] AppUsage appUsing(const std::string& id, double cpu);

}  // namespace monitor::fakes
