// SPDX-License-Identifier: MIT
// Disks that are full, folders that cannot be written, and other processes on the same file.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorStorageError.h"
#include "Tests/Integration/HistoryChild.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"

namespace monitor {
namespace {

namespace fs = std::filesystem;
using fakes::HistoryChild;
using fakes::kNotPossibleHere;
using fakes::storedRows;

constexpr double kNow = 1'731'801'600.0;
constexpr std::size_t kRowsOfSnapshot = 4 * 20;

MonitorSnapshot snapshotNumber(int index) {
  auto snapshot = fakes::snapshotAt(kNow + index * 60.0 + 30, 10);
  for (int app = 0; app < 20; ++app) {
    snapshot.apps.push_back(fakes::appUsing("org.example.app-" + std::to_string(app), 10));
  }
  return snapshot;
}

template <class Function>
std::string storageErrorOf(const Function& function) {
  try {
    function();
  } catch (const MonitorStorageError& error) {
    return error.message();
  }
  return "nothing thrown";
}

// Full disk.

bool writeText(const char* file, const std::string& text) {
  std::ofstream out(file);
  out << text;
  return static_cast<bool>(out.flush());
}

// Gives this process mounts of its own and a small disk at `folder`.
bool mountSmallDisk(const fs::path& folder) {
  if (geteuid() == 0) {
    if (unshare(CLONE_NEWNS) != 0) return false;
  } else {
    const auto user = std::to_string(geteuid());
    const auto group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    if (!writeText("/proc/self/uid_map", "0 " + user + " 1") || !writeText("/proc/self/setgroups", "deny") ||
        !writeText("/proc/self/gid_map", "0 " + group + " 1")) {
      return false;
    }
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  return mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=2m") == 0;
}

void fillTheDisk(const fs::path& file) {
  const fs::path ballast = file.parent_path() / "ballast";
  writeText(ballast.c_str(), std::string(800'000, 'x'));
  MonitorHistoryStore store(file);
  int stored = 0;
  const std::string message = storageErrorOf([&] {
    for (;; ++stored) store.append(snapshotNumber(stored));
  });
  EXPECT_EQ(message, stored > 0 ? "database or disk is full" : "an append that fits");
  const auto whole = static_cast<std::size_t>(stored) * kRowsOfSnapshot;
  EXPECT_EQ(fakes::integrity(file), "ok");
  EXPECT_EQ(storedRows(file).size(), whole);
  EXPECT_EQ(
      store.query(MetricID::Cpu, "org.example.app-7", Date::since1970(0), Date::since1970(kNow * 2)).size(),
      static_cast<std::size_t>(stored));

  // Still full: refused again, and nothing changes.
  EXPECT_NE(storageErrorOf([&] { store.append(snapshotNumber(stored)); }), "nothing thrown");
  EXPECT_EQ(storedRows(file).size(), whole);

  fs::remove(ballast);
  store.append(snapshotNumber(stored));
  EXPECT_EQ(storedRows(file).size(), whole + kRowsOfSnapshot);
  store.maintain(Date::since1970(kNow), 30, 0);
  EXPECT_EQ(storedRows(file).size(), 0U);
  EXPECT_EQ(fakes::integrity(file), "ok");
}

TEST(HistoryFileSystemTest, FullDiskRefusesTheSnapshotAndLosesNothing) {
  const fakes::TemporaryFolder folder;
  HistoryChild child([&](const HistoryChild::Report&) {
    if (!mountSmallDisk(folder.path())) return kNotPossibleHere;
    fillTheDisk(folder / "history.sqlite");
    return testing::Test::HasFailure() ? 1 : 0;
  });
  const auto status = child.wait();
  if (status == kNotPossibleHere)
    GTEST_SKIP() << "this user may not mount a small disk in a namespace of its own";
  EXPECT_EQ(status, 0);
}

// Folders and modes.

// Runs `body` as a user who is bound by permissions; root is not.
std::optional<int> asOrdinaryUser(const std::function<void()>& body) {
  HistoryChild child([&](const HistoryChild::Report&) {
    constexpr uid_t kNobody = 65'534;
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
      return kNotPossibleHere;
    }
    body();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  return child.wait();
}

class ReadOnlyFolderTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::permissions(folder.path(), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                       fs::perms::group_exec | fs::perms::others_read |
                                       fs::perms::others_exec);
  }
  void TearDown() override { fs::permissions(folder.path(), fs::perms::owner_all); }
  fakes::TemporaryFolder folder;
  fs::path file = folder / "history.sqlite";
};

TEST_F(ReadOnlyFolderTest, NewDatabaseCannotBeOpened) {
  const auto status = asOrdinaryUser(
      [&] { EXPECT_EQ(storageErrorOf([&] { MonitorHistoryStore{file}; }), "Could not open local storage"); });
  if (status == kNotPossibleHere) GTEST_SKIP() << "cannot become an ordinary user here";
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(ReadOnlyFolderTest, MissingFolderIsTheFileSystemsError) {
  const auto status = asOrdinaryUser(
      [&] { EXPECT_THROW(MonitorHistoryStore{folder / "deeper" / "history.sqlite"}, fs::filesystem_error); });
  if (status == kNotPossibleHere) GTEST_SKIP() << "cannot become an ordinary user here";
  EXPECT_EQ(status, 0);
}

TEST_F(ReadOnlyFolderTest, DatabaseOfSomebodyElseIsRefusedAndUntouched) {
  fs::permissions(folder.path(), fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
  { MonitorHistoryStore(file).append(snapshotNumber(0)); }
  fs::permissions(file, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  const auto size = fs::file_size(file);
  SetUp();
  const auto status = asOrdinaryUser([&] {
    EXPECT_THAT(storageErrorOf([&] { MonitorHistoryStore{file}; }),
                testing::AnyOf("attempt to write a readonly database", "unable to open database file"));
  });
  if (status == kNotPossibleHere) GTEST_SKIP() << "cannot become an ordinary user here";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(fs::file_size(file), size);
  EXPECT_EQ((fs::status(file).permissions() & fs::perms::others_read), fs::perms::others_read);
}

TEST(HistoryFileSystemTest, ModesDoNotDependOnTheCreationMask) {
  for (const mode_t mask : {0000U, 0022U, 0077U}) {
    const fakes::TemporaryFolder folder;
    const mode_t before = umask(mask);
    const fs::path file = folder / "a" / "b" / "history.sqlite";
    { MonitorHistoryStore(file).append(snapshotNumber(0)); }
    const MonitorHistoryStore again(file);
    umask(before);
    EXPECT_EQ(fs::status(folder / "a").permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(folder / "a" / "b").permissions(), fs::perms::owner_all);
    // SQLite gives the companions the database's mode.
    for (const char* suffix : {"", "-wal", "-shm"}) {
      EXPECT_EQ(fs::status(file.string() + suffix).permissions(),
                fs::perms::owner_read | fs::perms::owner_write)
          << suffix << " with mask " << mask;
    }
  }
}

// Another process on the same file.

// A process that holds SQLite's write lock, and lets go of it after a while or when it is killed.
class Writer : public HistoryChild {
 public:
  Writer(const fs::path& file, useconds_t microseconds)
      : HistoryChild([=](const Report& report) {
          sqlite3* db = nullptr;
          if (sqlite3_open(file.c_str(), &db) != SQLITE_OK) return 1;
          const char* take = "BEGIN IMMEDIATE; INSERT INTO samples VALUES(60,60,'other','cpu',1,1,1)";
          if (sqlite3_exec(db, take, nullptr, nullptr, nullptr) != SQLITE_OK) return 1;
          report(0);
          usleep(microseconds);
          return sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK ? 0 : 1;
        }) {}
};

TEST(HistorySecondProcessTest, WriterWaitsForTheOtherOne) {
  const fakes::TemporaryFolder folder;
  const fs::path file = folder / "history.sqlite";
  MonitorHistoryStore store(file);
  Writer other(file, 150'000);
  ASSERT_TRUE(other.next().has_value());
  store.append(snapshotNumber(0));
  EXPECT_EQ(other.wait(), 0);
  EXPECT_EQ(storedRows(file).size(), kRowsOfSnapshot + 1);
}

TEST(HistorySecondProcessTest, ReaderDoesNotWait) {
  const fakes::TemporaryFolder folder;
  MonitorHistoryStore store(folder / "history.sqlite");
  store.append(snapshotNumber(0));
  Writer other(folder / "history.sqlite", 60'000'000);
  ASSERT_TRUE(other.next().has_value());
  EXPECT_EQ(
      store.query(MetricID::Cpu, "org.example.app-1", Date::since1970(0), Date::since1970(kNow * 2)).size(),
      1U);
  EXPECT_EQ(store.query(MetricID::Cpu, "other", Date::since1970(0), Date::since1970(kNow * 2)).size(), 0U);
}

TEST(HistorySecondProcessTest, WriterGivesUpAfterThreeSecondsAndStoresLater) {
  if (std::getenv("VESK_LONG") == nullptr) GTEST_SKIP() << "waits for the three seconds: long run only";
  const fakes::TemporaryFolder folder;
  MonitorHistoryStore store(folder / "history.sqlite");
  auto other = std::make_unique<Writer>(folder / "history.sqlite", 60'000'000);
  ASSERT_TRUE(other->next().has_value());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(storageErrorOf([&] { store.append(snapshotNumber(0)); }), "database is locked");
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited.count(), 2.9);
  EXPECT_LE(waited.count(), 8.0);
  other.reset();
  store.append(snapshotNumber(0));
  EXPECT_EQ(storedRows(folder / "history.sqlite").size(), kRowsOfSnapshot);
}

}  // namespace
}  // namespace monitor
