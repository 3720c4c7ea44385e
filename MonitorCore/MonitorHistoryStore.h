// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "MonitorCore/Date.h"
#include "MonitorCore/HistoryPoint.h"
#include "MonitorCore/Metrics.h"

namespace monitor {

namespace history {
class Connection;
}
struct MonitorSnapshot;

// Configures the process's SQLite for how the store uses it: connections without a lock of their own (the
// store has one) and no memory statistics, which saves about a fifth of an append. It is the program's
// decision and not the library's: call it once, at start-up, before anything in the process touches SQLite.
// The store works the same without it. Says whether SQLite accepted it; it does not once it is in use.
bool configureStorageEngine();

struct HistoryCoverage {
  std::optional<Date> start;  // start of the oldest bucket; nothing when the history is empty
  std::optional<Date> end;    // start of the newest bucket
  std::int64_t bytes = 0;     // the database file with its "-wal" and "-shm" companions
};

// The history of machine-wide and per-app metrics in one SQLite file: time-weighted means and peaks in
// buckets of 60 seconds, which maintenance rolls up into buckets of 900 seconds. docs/storage.md has the
// table and the promises.
//
// One store owns one connection. Any thread may call any operation; they run one at a time, in the order in
// which the callers got hold of the store, and block. Other processes may use the file too: a writer waits up
// to three seconds for another one. Nothing is retried.
//
// Errors: MonitorStorageError where the database fails, std::filesystem::filesystem_error where creating the
// folder or setting the file's permissions does.
class MonitorHistoryStore {
 public:
  // Above this many bytes in use, append() runs maintenance: 248 MiB.
  static constexpr std::int64_t kSizeLimit = 260'046'848;

  // Opens or creates the database file at `url`. Folders that do not exist are created for the owner alone
  // (0700), the file is made readable and writable by the owner alone (0600).
  explicit MonitorHistoryStore(const std::filesystem::path& url);
  ~MonitorHistoryStore();
  MonitorHistoryStore(const MonitorHistoryStore&) = delete;
  MonitorHistoryStore& operator=(const MonitorHistoryStore&) = delete;

  // Stores one snapshot in one transaction: when it returns, all of it is stored. Nothing is written for an
  // interval outside (0, 90] seconds or a time that is not finite. Readings of the privileged helper are
  // stored once per `advancedTimestamp`. When the size limit's maintenance fails, the snapshot is stored and
  // the error is thrown.
  void append(const MonitorSnapshot& snapshot);

  // The points of one metric whose buckets start within [from, through], oldest first, both resolutions
  // together, at most 5000. An empty `appID` selects the machine-wide history.
  [[nodiscard]] std::vector<HistoryPoint> query(MetricID metric, std::string_view appID, Date from,
                                                Date through);

  // Reads the whole index: some hundred milliseconds on a large history. For when a person asks.
  [[nodiscard]] HistoryCoverage coverage();

  // Rolls buckets older than a day up into quarter hours, deletes what is older than `retentionDays` (held to
  // 1…30), then deletes the oldest moments until at most `maxBytes` are in use, and gives the freed space
  // back to the file system. A `now` whose cuts do not fit a signed 64-bit number of seconds stops the
  // program.
  void maintain(Date now, std::int64_t retentionDays, std::int64_t maxBytes);

  // Deletes the whole history.
  void clear();

 private:
  [[nodiscard]] std::optional<std::int64_t> usedBytes();
  void maintainLocked(Date now, std::int64_t retentionDays, std::int64_t maxBytes);
  void rollUp(std::int64_t rollUpCut, std::int64_t retentionCut);
  void capSize(std::int64_t maxBytes);

  std::mutex mutex_;  // held for the whole of every operation
  const std::filesystem::path url_;
  std::unique_ptr<history::Connection> db_;
  // The `advancedTimestamp` of the last snapshot whose helper readings were stored. Not kept across restarts.
  std::optional<Date> lastAdvanced_;
};

}  // namespace monitor
