// SPDX-License-Identifier: MIT
// Every file call of every operation is made to fail once, and from then on for good. Whatever happens, the
// database must be whole afterwards and hold one of the states that the operation promises, and the store
// must go on working.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorStorageError.h"
#include "Tests/MonitorCore/HistoryFaultVfs.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"

namespace monitor {
namespace {

namespace fs = std::filesystem;
using fakes::FaultVfs;
using fakes::FileCall;
using fakes::StoredRow;
using fakes::storedRows;

using Rows = std::vector<StoredRow>;
using Operation = std::function<void(MonitorHistoryStore&)>;

constexpr double kNow = 1'731'801'600.0;
constexpr std::int64_t kDayBefore = 1'731'715'200;

MonitorSnapshot snapshotOf(double end, double value) {
  auto snapshot = fakes::snapshotAt(end, 90);
  snapshot.readings.insert(fakes::reading(MetricID::Cpu, value));
  for (const char* id : {"a", "b", "c"}) snapshot.apps.push_back(fakes::appUsing(id, value));
  return snapshot;
}

class HistoryFaultTest : public testing::Test {
 protected:
  // Runs `operation` on a fresh copy of `original` for every kind of call, n and both modes, until n is
  // larger than the number of such calls. `allowed`: the states it may leave, in their order, from untouched
  // to complete.
  void failEverywhere(const fs::path& original, const std::vector<Rows>& allowed,
                      const Operation& operation) {
    int faults = 0;
    for (const FileCall call : {FileCall::Open, FileCall::Write, FileCall::Sync, FileCall::Truncate}) {
      for (const bool forGood : {false, true}) {
        for (int n = 1;; ++n) {
          SCOPED_TRACE(testing::Message() << "call " << static_cast<int>(call) << ", n " << n
                                          << (forGood ? ", for good" : ", once"));
          fs::copy_file(original, file, fs::copy_options::overwrite_existing);
          if (!failOnce(call, n, forGood, allowed, operation)) break;
          ++faults;
          if (HasFailure()) return;
        }
      }
    }
    RecordProperty("faults", faults);
    EXPECT_GT(faults, 10);
  }

  // Says whether the n-th call was reached.
  bool failOnce(FileCall call, int n, bool forGood, const std::vector<Rows>& allowed,
                const Operation& operation) {
    auto store = std::make_unique<MonitorHistoryStore>(file);
    vfs.failNth(call, n, forGood);
    bool succeeded = true;
    try {
      operation(*store);
    } catch (const MonitorStorageError&) {
      succeeded = false;
    }
    const bool reached = vfs.failed();
    if (forGood) store.reset();  // the last connection's closing meets the fault too
    vfs.disarm();

    EXPECT_EQ(fakes::integrity(file), "ok");
    const Rows rows = storedRows(file);
    EXPECT_THAT(allowed, testing::Contains(rows));
    if (succeeded) {
      EXPECT_EQ(rows, allowed.back());
    }

    // The store that met the fault, or a new one, stores the next snapshot in full.
    if (store == nullptr) store = std::make_unique<MonitorHistoryStore>(file);
    EXPECT_NO_THROW(store->append(snapshotOf(kNow + 3'600, 7)));
    const auto points =
        store->query(MetricID::Cpu, "b", Date::since1970(kNow + 3'400), Date::since1970(kNow + 3'600));
    EXPECT_EQ(points.size(), 2U);
    store.reset();
    EXPECT_EQ(fakes::integrity(file), "ok");
    return reached;
  }

  // The state that `operation` leaves when nothing fails.
  Rows after(const fs::path& original, const Operation& operation) {
    fs::copy_file(original, file, fs::copy_options::overwrite_existing);
    MonitorHistoryStore store(file);
    operation(store);
    return storedRows(file);
  }

  FaultVfs vfs;
  fakes::TemporaryFolder folder;
  fs::path file = folder / "history.sqlite";
  fs::path original = folder / "original.sqlite";
};

TEST_F(HistoryFaultTest, AppendIsStoredWhollyOrNotAtAll) {
  { MonitorHistoryStore(original).append(snapshotOf(kNow, 3)); }
  const Operation append = [](MonitorHistoryStore& store) { store.append(snapshotOf(kNow + 60, 5)); };
  failEverywhere(original, {storedRows(original), after(original, append)}, append);
}

TEST_F(HistoryFaultTest, AppendThatMovesTheLogIntoTheFileIsStoredWhollyOrNotAtAll) {
  { const MonitorHistoryStore created(original); }
  // Four rows with this text in three trees are more than the 1000 pages at which SQLite moves the log into
  // the file.
  const Operation append = [](MonitorHistoryStore& store) {
    auto snapshot = fakes::snapshotAt(kNow + 30, 10);
    snapshot.apps.push_back(fakes::appUsing(std::string(400'000, 'a'), 1));
    store.append(snapshot);
  };
  const Rows before = storedRows(original);
  const Rows complete = after(original, append);
  // The writes are thousands of pages of one kind, of which some have to do.
  const int step = std::getenv("VESK_LONG") == nullptr ? 397 : 11;
  for (const bool forGood : {false, true}) {
    for (const FileCall call : {FileCall::Sync, FileCall::Truncate, FileCall::Open}) {
      for (int n = 1;; ++n) {
        fs::copy_file(original, file, fs::copy_options::overwrite_existing);
        if (!failOnce(call, n, forGood, {before, complete}, append)) break;
      }
    }
    for (int n = 1;; n += step) {
      fs::copy_file(original, file, fs::copy_options::overwrite_existing);
      if (!failOnce(FileCall::Write, n, forGood, {before, complete}, append)) break;
    }
  }
}

TEST_F(HistoryFaultTest, MaintenanceStopsBetweenItsTransactionsOnly) {
  { const MonitorHistoryStore created(original); }
  // A quarter of an hour to roll up, one row to delete by age, and three rounds' worth of moments to cap.
  fakes::run(original,
             "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<150) "
             "INSERT INTO samples SELECT " +
                 std::to_string(kDayBefore) +
                 "+i*60,60,printf('app %090d',i),'cpu',60,60,1 FROM n; "
                 "INSERT INTO samples SELECT t-900,60,app,metric,total,weight,peak FROM samples LIMIT 15; "
                 "INSERT INTO samples VALUES(0,900,'','cpu',1,1,1)");
  const auto maintainTo = [](std::int64_t bytes) {
    return [bytes](MonitorHistoryStore& store) { store.maintain(Date::since1970(kNow), 30, bytes); };
  };
  std::vector<Rows> allowed{storedRows(original), after(original, maintainTo(1'000'000'000))};
  ASSERT_EQ(allowed[0].size(), allowed[1].size() + 1);
  while (!allowed.back().empty()) {
    fakes::run(file, "DELETE FROM samples WHERE t IN (SELECT DISTINCT t FROM samples ORDER BY t LIMIT 60)");
    allowed.push_back(storedRows(file));
  }
  ASSERT_EQ(allowed.size(), 5U);
  failEverywhere(original, allowed, maintainTo(0));
}

TEST_F(HistoryFaultTest, ClearDeletesEverythingOrNothing) {
  { MonitorHistoryStore(original).append(snapshotOf(kNow, 3)); }
  const Operation clear = [](MonitorHistoryStore& store) { store.clear(); };
  failEverywhere(original, {storedRows(original), {}}, clear);
}

TEST_F(HistoryFaultTest, OpeningFailsCleanlyAndSucceedsAfterwards) {
  { MonitorHistoryStore(original).append(snapshotOf(kNow, 3)); }
  const Rows rows = storedRows(original);
  for (const bool existing : {false, true}) {
    for (const FileCall call : {FileCall::Open, FileCall::Write, FileCall::Sync, FileCall::Truncate}) {
      for (const bool forGood : {false, true}) {
        for (int n = 1;; ++n) {
          SCOPED_TRACE(testing::Message()
                       << (existing ? "existing" : "new") << ", call " << static_cast<int>(call) << ", n "
                       << n << (forGood ? ", for good" : ", once"));
          for (const char* suffix : {"", "-wal", "-shm", "-journal"}) fs::remove(file.string() + suffix);
          if (existing) fs::copy_file(original, file);
          vfs.failNth(call, n, forGood);
          try {
            const MonitorHistoryStore store(file);
          } catch (const MonitorStorageError&) {
          }
          const bool reached = vfs.failed();
          vfs.disarm();
          {
            MonitorHistoryStore again(file);
            if (existing) {
              EXPECT_EQ(storedRows(file), rows);
            }
            again.append(snapshotOf(kNow + 3'600, 1));
          }
          EXPECT_EQ(fakes::integrity(file), "ok");
          EXPECT_EQ(storedRows(file).size(), (existing ? rows.size() : 0) + 26);
          if (HasFailure()) return;
          if (!reached) break;
        }
      }
    }
  }
}

}  // namespace
}  // namespace monitor
