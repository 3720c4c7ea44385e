// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/HistoryCommands.h"

#include <cairo.h>
#include <gmock/gmock.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/Recording.h"
#include "MonitorCore/SnapshotRecording.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"
#include "Tools/vesk/History/HistoryFile.h"

namespace monitor::vesk {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

// 2024-11-16 12:00:00 UTC, a multiple of 900.
constexpr double kNow = 1'731'758'400.0;

class HistoryCommandsTest : public testing::Test {
 protected:
  HistoryCommandsTest() { wall_.base = Date::since1970(kNow); }

  // The last half hour, a snapshot a minute, the cpu at 0, 1, 2 … percent.
  void record(const fs::path& file) {
    std::ofstream out(file);
    for (int minute = 0; minute < 30; ++minute) {
      auto snapshot = fakes::snapshotAt(kNow - 1'800 + (minute + 1) * 60, 60);
      snapshot.readings.insert(fakes::reading(MetricID::Cpu, minute));
      snapshot.apps.push_back(fakes::appUsing("org.example.editor", 2.0 * minute));
      out << encodeSnapshot(snapshot) << "\n";
    }
  }
  void fill() {
    record(recording_);
    ASSERT_EQ(appendRecording({database_, recording_.string()}, host(), console_), ExitCode::Ok);
    out_.str("");
  }
  HistoryHost host() { return {clock_, wall_, zone_, in_, interactive_}; }
  HistoryQuery cpu() {
    HistoryQuery query;
    query.file = database_;
    query.metric = "cpu";
    return query;
  }
  // What `operation` complains about, and with which code.
  template <class Operation>
  std::pair<ExitCode, std::string> errorOf(const Operation& operation) {
    try {
      operation();
    } catch (const CommandError& error) {
      return {error.code(), error.what()};
    }
    return {ExitCode::Ok, "nothing thrown"};
  }

  fakes::TemporaryFolder folder_;
  fs::path database_ = folder_ / "history.sqlite";
  fs::path recording_ = folder_ / "recording.jsonl";
  fakes::VirtualTime time_;
  fakes::FakeClock clock_{time_};
  fakes::FakeWallClock wall_{time_};
  TimeZone zone_ = TimeZone::named("Europe/Berlin");
  std::istringstream in_;
  bool interactive_ = false;
  std::ostringstream out_;
  std::ostringstream err_;
  Console console_{out_, err_, {}, {}};
};

// Append.

TEST_F(HistoryCommandsTest, AppendStoresARecordingAndSaysHowMuch) {
  record(recording_);
  EXPECT_EQ(appendRecording({database_, recording_.string()}, host(), console_), ExitCode::Ok);
  EXPECT_EQ(out_.str(), "Appended 30 snapshots to " + database_.string() + ".\n");
  EXPECT_THAT(fakes::storedRows(database_), SizeIs(30 * 5));
}

TEST_F(HistoryCommandsTest, AppendReadsTheRecordingThatIsKeptAsAnExample) {
  appendRecording({database_, VESK_FIXTURES "/snapshots.jsonl"}, host(), console_);
  EXPECT_THAT(out_.str(), StartsWith("Appended 26 snapshots"));
  MonitorHistoryStore store(database_);
  const auto query = [&](MetricID metric, const char* app) {
    return allPoints(store, metric, app, Date::since1970(kNow), Date::since1970(kNow + 1'800)).size();
  };
  EXPECT_EQ(query(MetricID::Cpu, "org.example.editor"), 26U);
  EXPECT_EQ(query(MetricID::Cpu, "process:812:5000"), 25U);  // one figure is not a number
}

TEST_F(HistoryCommandsTest, AppendReadsTheStandardInput) {
  in_.str("\n" + encodeSnapshot(fakes::snapshotAt(kNow, 60)) + "\r\n  \n" +
          encodeSnapshot(fakes::snapshotAt(kNow + 60, 60)));
  appendRecording({database_, "-"}, host(), console_);
  EXPECT_THAT(out_.str(), StartsWith("Appended 2 snapshots"));
}

TEST_F(HistoryCommandsTest, AppendNamesFileAndLineOfWhatItCannotReadAndKeepsWhatCameBefore) {
  record(recording_);
  std::ofstream(recording_, std::ios::app) << "\n{\"timestamp\": 5}\n";
  const auto [code, text] = errorOf([&] {
    appendRecording({database_, recording_.string()}, host(), console_);
  });
  EXPECT_EQ(code, ExitCode::Failed);
  EXPECT_THAT(text, StartsWith(recording_.string() + ":32: "));
  EXPECT_THAT(text, HasSubstr("\"interval\""));
  EXPECT_THAT(text, EndsWith("The 30 snapshots before it are in the history."));
  EXPECT_THAT(fakes::storedRows(database_), SizeIs(30 * 5));
}

TEST_F(HistoryCommandsTest, AppendRefusesTimesThatMaintenanceCouldNotWorkWith) {
  in_.str(R"({"timestamp": 1e18, "interval": 60})");
  const auto [code, text] = errorOf([&] { appendRecording({database_, "-"}, host(), console_); });
  EXPECT_EQ(code, ExitCode::Failed);
  EXPECT_THAT(text, StartsWith("standard input:1: at timestamp: expected"));
}

TEST_F(HistoryCommandsTest, AppendRefusesRecordingsThatAreNotThere) {
  for (const auto& file : {folder_ / "nothing.jsonl", folder_.path()}) {
    const auto [code, text] = errorOf([&] { appendRecording({database_, file.string()}, host(), console_); });
    EXPECT_EQ(code, ExitCode::Failed);
    EXPECT_EQ(text, file.string() + ": the recording cannot be read.");
  }
  EXPECT_FALSE(fs::exists(database_));
}

TEST_F(HistoryCommandsTest, AppendShowsItsProgressOnATerminal) {
  record(recording_);
  const Console console{out_, err_, {}, {true, false, 80}};
  appendRecording({database_, recording_.string()}, host(), console);
  EXPECT_THAT(err_.str(), HasSubstr("appending  ["));
  EXPECT_THAT(err_.str(), EndsWith("\r\x1b[K"));
}

TEST_F(HistoryCommandsTest, LineWithoutAnEndIsRefusedBeforeItFillsTheMemory) {
  record(recording_);
  std::ofstream(recording_, std::ios::app) << std::string(RecordingReader::kLongestLine + 1, ' ');
  const auto [code, text] = errorOf([&] { appendRecording({database_, recording_.string()}, host(), console_); });
  EXPECT_EQ(code, ExitCode::Failed);
  EXPECT_THAT(text, HasSubstr(": the line is longer than 16 MiB\n"));
  EXPECT_THAT(text, EndsWith(" before it are in the history."));
}

// Query.

TEST_F(HistoryCommandsTest, QueryPrintsATableOfTheRange) {
  fill();
  auto query = cpu();
  query.from = "-3m";
  EXPECT_EQ(queryHistory(query, host(), console_), ExitCode::Ok);
  EXPECT_EQ(out_.str(),
            "TIME                   MEAN    PEAK  COVERED  BUCKET\n"
            "2024-11-16 12:57:00  27.0 %  27.0 %    100 %    60 s\n"
            "2024-11-16 12:58:00  28.0 %  28.0 %    100 %    60 s\n"
            "2024-11-16 12:59:00  29.0 %  29.0 %    100 %    60 s\n");
}

TEST_F(HistoryCommandsTest, QueryPrintsCsvInFull) {
  fill();
  auto query = cpu();
  query.csv = true;
  query.app = "org.example.editor";
  query.from = "12:58";
  query.through = "12:58";
  queryHistory(query, host(), console_);
  EXPECT_EQ(out_.str(),
            "time,seconds,mean,peak,coverage,resolution\n"
            "2024-11-16T12:58:00+01:00,1731758280,56,56,60,60\n");
}

TEST_F(HistoryCommandsTest, QueryPrintsJson) {
  fill();
  auto query = cpu();
  query.json = true;
  query.from = "-60s";
  queryHistory(query, host(), console_);
  EXPECT_EQ(out_.str(),
            "[{\"id\":\"1731758340.0:60\",\"date\":753451140.0,\"time\":\"2024-11-16T12:59:00+01:00\","
            "\"value\":29.0,"
            "\"peak\":29.0,\"coverage\":60.0,\"resolution\":60}]\n");
  out_.str("");
  query.app = "nobody";
  queryHistory(query, host(), console_);
  EXPECT_EQ(out_.str(), "[]\n");
}

TEST_F(HistoryCommandsTest, QueryOfAnEmptyRangeSaysSo) {
  fill();
  auto query = cpu();
  query.from = "2024-11-01";
  query.through = "2024-11-02";
  EXPECT_EQ(queryHistory(query, host(), console_), ExitCode::Ok);
  EXPECT_EQ(out_.str(), "No history of cpu from 2024-11-01 00:00:00 to 2024-11-02 23:59:59.\n");
}

TEST_F(HistoryCommandsTest, QueryRefusesUnknownMetricsAndTimes) {
  fill();
  auto query = cpu();
  query.metric = "cpus";
  auto [code, text] = errorOf([&] { queryHistory(query, host(), console_); });
  EXPECT_EQ(code, ExitCode::NoMatch);
  EXPECT_THAT(text, HasSubstr("cpu, cpuUser, "));
  query = cpu();
  query.through = "soon";
  std::tie(code, text) = errorOf([&] { queryHistory(query, host(), console_); });
  EXPECT_EQ(code, ExitCode::Usage);
  EXPECT_THAT(text, StartsWith("--through: \"soon\" is no time"));
  query = cpu();
  query.from = "now";
  query.through = "yesterday";
  std::tie(code, text) = errorOf([&] { queryHistory(query, host(), console_); });
  EXPECT_EQ(code, ExitCode::Usage);
}

TEST_F(HistoryCommandsTest, QueryCreatesNoHistory) {
  const auto [code, text] = errorOf([&] { queryHistory(cpu(), host(), console_); });
  EXPECT_EQ(code, ExitCode::Failed);
  EXPECT_THAT(text, StartsWith(database_.string() + ": there is no history here yet"));
  EXPECT_FALSE(fs::exists(database_));
}

TEST_F(HistoryCommandsTest, RangesBeyondOneQueryAreReadInFull) {
  { const MonitorHistoryStore created(database_); }
  // The 5000th point is the first of two at its moment.
  fakes::run(database_,
             "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<12000) INSERT INTO "
             "samples SELECT "
             "900+i*60,60,'','cpu',60,60,1 FROM n; INSERT INTO samples SELECT "
             "t,900,app,metric,total,weight,peak FROM "
             "samples WHERE t%900=0");
  MonitorHistoryStore store(database_);
  const auto points = allPoints(store, MetricID::Cpu, "", Date::since1970(0), Date::since1970(1e9));
  EXPECT_THAT(points, SizeIs(12'001 + 801));
  for (std::size_t index = 1; index < points.size(); ++index) {
    ASSERT_LE(points[index - 1].date, points[index].date);
    ASSERT_NE(points[index - 1].id(), points[index].id());
  }
}

// Plot.

class Picture {
 public:
  explicit Picture(const fs::path& file) : surface_(cairo_image_surface_create_from_png(file.c_str())) {}
  [[nodiscard]] bool valid() const { return cairo_surface_status(surface_.get()) == CAIRO_STATUS_SUCCESS; }
  [[nodiscard]] int width() const { return cairo_image_surface_get_width(surface_.get()); }
  [[nodiscard]] int height() const { return cairo_image_surface_get_height(surface_.get()); }
  // Pixels of the mean's colour in the columns between two shares of the plot's area.
  [[nodiscard]] int bluePixels(double from, double to) const {
    const unsigned char* data = cairo_image_surface_get_data(surface_.get());
    const int stride = cairo_image_surface_get_stride(surface_.get());
    const int left = 168;
    const int right = width() - 48;
    int count = 0;
    for (int y = 140; y < height() - 100; ++y) {
      const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
      for (int x = left + static_cast<int>(from * (right - left));
           x < left + static_cast<int>(to * (right - left)); ++x) {
        const std::uint32_t pixel = row[x];
        if (((pixel >> 16U) & 0xffU) < 60 && (pixel & 0xffU) > 150) ++count;
      }
    }
    return count;
  }

 private:
  std::unique_ptr<cairo_surface_t, decltype([](cairo_surface_t* s) { cairo_surface_destroy(s); })> surface_;
};

TEST_F(HistoryCommandsTest, PlotShowsBothResolutionsAndLeavesGapsEmpty) {
  { const MonitorHistoryStore created(database_); }
  // Eight hours: two of quarter hours, two of nothing, four of minutes.
  fakes::run(
      database_,
      "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<7) INSERT INTO samples SELECT "
      "1731729600+i*900,900,'','cpu',900*(20+i),900,60 FROM n; "
      "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<239) INSERT INTO samples SELECT "
      "1731744000+i*60,60,'','cpu',60*(10+i%30),60,70 FROM n");
  auto query = cpu();
  query.from = "-8h";
  query.plot = (folder_ / "plot.png").string();
  EXPECT_EQ(queryHistory(query, host(), console_), ExitCode::Ok);
  EXPECT_EQ(out_.str(), "Plotted 248 points to " + query.plot + ".\n");
  const Picture picture(query.plot);
  ASSERT_TRUE(picture.valid());
  EXPECT_EQ(picture.width(), 1'920);
  EXPECT_EQ(picture.height(), 840);
  EXPECT_GT(picture.bluePixels(0.0, 0.25), 500);
  EXPECT_EQ(picture.bluePixels(0.26, 0.49), 0);
  EXPECT_GT(picture.bluePixels(0.5, 1.0), 1'000);
}

TEST_F(HistoryCommandsTest, PlotOfNothingIsAPictureToo) {
  fill();
  auto query = cpu();
  query.metric = "gpu";
  query.plot = (folder_ / "plot.png").string();
  queryHistory(query, host(), console_);
  EXPECT_EQ(Picture(query.plot).bluePixels(0, 1), 0);
}

TEST_F(HistoryCommandsTest, PlotThatCannotBeWrittenNamesItsFile) {
  fill();
  auto query = cpu();
  query.plot = (folder_ / "no-folder" / "plot.png").string();
  const auto [code, text] = errorOf([&] { queryHistory(query, host(), console_); });
  EXPECT_EQ(code, ExitCode::Failed);
  EXPECT_THAT(text, StartsWith(query.plot + ": the plot cannot be written"));
}

// Coverage, maintenance, clearing.

TEST_F(HistoryCommandsTest, CoverageShowsExtentAndSize) {
  fill();
  showCoverage({database_, false}, host(), console_);
  EXPECT_THAT(out_.str(),
              HasSubstr("Oldest bucket  2024-11-16 12:30:00\nNewest bucket  2024-11-16 12:59:00\nSize"));
  out_.str("");
  showCoverage({database_, true}, host(), console_);
  const json::Document document(out_.str());
  EXPECT_EQ(document.root().at("start").number(), kNow - 1'800 - Date::kReferenceDateSince1970);
  EXPECT_EQ(document.root().at("endTime").string(), "2024-11-16T12:59:00+01:00");
  EXPECT_GT(document.root().at("bytes").integer<std::int64_t>(), 0);
}

TEST_F(HistoryCommandsTest, CoverageOfAnEmptyHistorySaysSo) {
  { const MonitorHistoryStore created(database_); }
  showCoverage({database_, false}, host(), console_);
  EXPECT_THAT(out_.str(), StartsWith("Nothing recorded; "));
  out_.str("");
  showCoverage({database_, true}, host(), console_);
  EXPECT_THAT(out_.str(), StartsWith("{\"bytes\":"));
}

TEST_F(HistoryCommandsTest, MaintainRollsUpAndReportsTheSizes) {
  fill();
  wall_.base = Date::since1970(kNow + 86'400);
  HistoryMaintain options;
  options.file = database_;
  EXPECT_EQ(maintainHistory(options, host(), console_), ExitCode::Ok);
  EXPECT_THAT(out_.str(), StartsWith("Maintained " + database_.string() + ": "));
  EXPECT_THAT(fakes::storedRows(database_), SizeIs(2 * 5));
}

TEST_F(HistoryCommandsTest, LongWorkOnATerminalRunsAndItsErrorsArrive) {
  fill();
  const Console console{out_, err_, {}, {true, false, 80}};
  HistoryMaintain options;
  options.file = database_;
  options.maxBytes = 0;
  EXPECT_EQ(maintainHistory(options, host(), console), ExitCode::Ok);
  EXPECT_THAT(fakes::storedRows(database_), SizeIs(0));
  fakes::run(database_,
             "CREATE TRIGGER refuse BEFORE DELETE ON samples BEGIN SELECT RAISE(ABORT,'no'); END; INSERT "
             "INTO samples VALUES(0,60,'','cpu',1,1,1)");
  const auto [code, text] = errorOf([&] { maintainHistory(options, host(), console); });
  EXPECT_EQ(text, database_.string() + ": Monitor history: no");
}

TEST_F(HistoryCommandsTest, ClearNeedsYesWhereNobodyCanBeAsked) {
  fill();
  const auto [code, text] = errorOf([&] { clearHistory({database_, false}, host(), console_); });
  EXPECT_EQ(code, ExitCode::Usage);
  EXPECT_THAT(fakes::storedRows(database_), Not(SizeIs(0)));
  EXPECT_EQ(clearHistory({database_, true}, host(), console_), ExitCode::Ok);
  EXPECT_THAT(fakes::storedRows(database_), SizeIs(0));
}

TEST_F(HistoryCommandsTest, ClearAsksAndTakesEverythingButYesForNo) {
  interactive_ = true;
  for (const char* answer : {"\n", "n\n", "no\n", "", "maybe\n"}) {
    fill();
    in_.clear();
    in_.str(answer);
    clearHistory({database_, false}, host(), console_);
    EXPECT_EQ(out_.str(), "Nothing was deleted.\n");
    EXPECT_THAT(fakes::storedRows(database_), Not(SizeIs(0)));
  }
  EXPECT_THAT(err_.str(), StartsWith("Delete the whole history in " + database_.string() + "? [y/N] "));
  in_.clear();
  in_.str("y\n");
  clearHistory({database_, false}, host(), console_);
  EXPECT_THAT(fakes::storedRows(database_), SizeIs(0));
}

// Files that are not for this program.

TEST_F(HistoryCommandsTest, NewerSchemaIsRefusedByEveryCommandAndLeftUntouched) {
  fill();
  fakes::run(database_, "PRAGMA user_version=2; PRAGMA wal_checkpoint(TRUNCATE)");
  HistoryMaintain maintain;
  maintain.file = database_;
  for (const auto& operation : std::vector<std::function<void()>>{
           [&] {
             appendRecording({database_, recording_.string()}, host(), console_);
           },
           [&] { queryHistory(cpu(), host(), console_); },
           [&] {
             showCoverage({database_, false}, host(), console_);
           },
           [&] { maintainHistory(maintain, host(), console_); },
           [&] {
             clearHistory({database_, true}, host(), console_);
           }}) {
    const auto [code, text] = errorOf(operation);
    EXPECT_EQ(code, ExitCode::Failed);
    EXPECT_THAT(text, StartsWith(database_.string() + ": this history has schema version 2"));
  }
  EXPECT_EQ(fakes::textOf(database_, "PRAGMA user_version"), "2");
  EXPECT_THAT(fakes::storedRows(database_), SizeIs(30 * 5));
}

TEST_F(HistoryCommandsTest, FileThatIsNoDatabaseIsRefusedByName) {
  std::ofstream(database_) << std::string(5'000, 'x');
  const auto [code, text] = errorOf([&] { queryHistory(cpu(), host(), console_); });
  EXPECT_EQ(text, database_.string() + ": Monitor history: file is not a database");
}

TEST_F(HistoryCommandsTest, EmptyFileBecomesAHistory) {
  std::ofstream(database_).flush();
  EXPECT_EQ(queryHistory(cpu(), host(), console_), ExitCode::Ok);
}

}  // namespace
}  // namespace monitor::vesk
