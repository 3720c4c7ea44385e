// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/RecordCommand.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "MonitorCore/ProcessRecording.h"
#include "MonitorCore/Recording.h"
#include "MonitorCore/SnapshotRecording.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"
#include "Tests/Tools/MadeUpMachine.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/SecondsOption.h"

namespace monitor::vesk {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class RecordCommandTest : public testing::Test {
 protected:
  RecordOptions toFile(double every, std::optional<double> duration) {
    return {file_.string(), "", every, duration, false};
  }
  void run(const RecordOptions& options) {
    EXPECT_EQ(record(options, machine_.monitor(), console_), ExitCode::Ok);
  }
  // What a run complains about.
  std::pair<ExitCode, std::string> errorOf(const RecordOptions& options) {
    try {
      record(options, machine_.monitor(), console_);
    } catch (const CommandError& error) {
      return {error.code(), error.what()};
    }
    return {ExitCode::Ok, "nothing thrown"};
  }
  [[nodiscard]] std::vector<MonitorSnapshot> recorded() const {
    std::ifstream in(file_);
    RecordingReader reader(in, file_.string());
    std::vector<MonitorSnapshot> snapshots;
    while (auto snapshot = reader.next(decodeSnapshot)) snapshots.push_back(*std::move(snapshot));
    return snapshots;
  }
  [[nodiscard]] std::vector<double> intervals() const {
    std::vector<double> all;
    for (const auto& snapshot : recorded()) all.push_back(snapshot.interval);
    return all;
  }

  fakes::TemporaryFolder folder_;
  fs::path file_ = folder_ / "week.jsonl";
  MadeUpMachine machine_;
  std::ostringstream out_;
  std::ostringstream err_;
  Console console_{out_, err_, {}, {}};
};

TEST_F(RecordCommandTest, WritesASnapshotEverySoOftenAndNoneWithoutRates) {
  run(toFile(2.0, 6.0));
  EXPECT_THAT(machine_.pause.waits, ElementsAre(1002.0, 1004.0, 1006.0));
  EXPECT_THAT(intervals(), ElementsAre(2.0, 2.0, 2.0));
  EXPECT_EQ(recorded().front().apps.front().cpu, 5.0);
  EXPECT_EQ(out_.str(), "Recorded 3 snapshots to " + file_.string() + ".\n");
}

TEST_F(RecordCommandTest, TheLastSnapshotCoversTheRest) {
  run(toFile(2.0, 5.0));
  EXPECT_THAT(intervals(), ElementsAre(2.0, 2.0, 1.0));
}

TEST_F(RecordCommandTest, ATimeShorterThanAnIntervalIsOneSnapshot) {
  run(toFile(2.0, 0.5));
  EXPECT_THAT(intervals(), ElementsAre(0.5));
  EXPECT_THAT(out_.str(), StartsWith("Recorded 1 snapshot to "));
}

TEST_F(RecordCommandTest, ARestOfNextToNothingIsNoSnapshot) {
  run(toFile(0.1, 0.3));  // three times 0.1 is more than 0.3
  EXPECT_THAT(recorded(), SizeIs(3));
}

TEST_F(RecordCommandTest, AnEndThatTheUserAsksForIsNoError) {
  machine_.pause.mostWaits = 2;
  run(toFile(2.0, std::nullopt));
  EXPECT_THAT(recorded(), SizeIs(2));
}

TEST_F(RecordCommandTest, AMachineThatStoodStillDoesNotCatchUp) {
  machine_.pause.meanwhile = [this] {
    if (machine_.pause.waits.size() == 1) machine_.time.advance(7.0);
  };
  run(toFile(2.0, 12.0));
  EXPECT_THAT(machine_.pause.waits, ElementsAre(1002.0, 1010.0, 1012.0));
}

TEST_F(RecordCommandTest, ALineIsReadByBothReaders) {
  machine_.processes.processes.at(812).ports = {3000};
  RecordOptions options = toFile(1.0, 1.0);
  options.projects = true;
  run(options);
  std::ifstream in(file_);
  RecordingReader reader(in, file_.string());
  const auto processes = reader.next(decodeProcesses);
  ASSERT_TRUE(processes.has_value());
  ASSERT_THAT(processes->processes, SizeIs(1));
  EXPECT_THAT(processes->processes[0].ports, ElementsAre(3000));
}

TEST_F(RecordCommandTest, ARecordingThatExistsIsContinued) {
  run(toFile(1.0, 2.0));
  run(toFile(1.0, 1.0));
  EXPECT_THAT(recorded(), SizeIs(3));
}

TEST_F(RecordCommandTest, ANewRecordingIsForItsOwnerAlone) {
  run(toFile(1.0, 1.0));
  struct stat found {};
  ASSERT_EQ(::stat(file_.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777U, 0600U);
}

TEST_F(RecordCommandTest, AFileThatEndsInsideALineIsLeftAlone) {
  std::ofstream(file_) << "no end";
  const auto [code, text] = errorOf(toFile(1.0, 1.0));
  EXPECT_EQ(code, ExitCode::Failed);
  EXPECT_THAT(text, StartsWith(file_.string() + ": its last line has no end"));
  EXPECT_EQ(fs::file_size(file_), 6U);
}

TEST_F(RecordCommandTest, AFileThatCannotBeWrittenIsNamed) {
  RecordOptions options = toFile(1.0, 1.0);
  options.file = folder_.path().string();
  EXPECT_EQ(errorOf(options).second, folder_.path().string() + ": Is a directory");
  options.file = (folder_ / "no/such").string();
  EXPECT_EQ(errorOf(options).second, options.file + ": No such file or directory");
  options.file.clear();
  options.database = "/proc/history.sqlite";
  EXPECT_THAT(errorOf(options).second, HasSubstr("/proc"));
}

TEST_F(RecordCommandTest, AFullDiskNamesTheFile) {
  RecordOptions options = toFile(1.0, 3.0);
  options.file = "/dev/full";
  const auto [code, text] = errorOf(options);
  EXPECT_EQ(code, ExitCode::Failed);
  EXPECT_EQ(text, "/dev/full: No space left on device");
}

TEST_F(RecordCommandTest, TheStandardOutputTakesARecordingToo) {
  RecordOptions options = toFile(1.0, 2.0);
  options.file = "-";
  run(options);
  std::istringstream in(out_.str());
  RecordingReader reader(in, "output");
  EXPECT_TRUE(reader.next(decodeSnapshot));
  EXPECT_TRUE(reader.next(decodeSnapshot));
  EXPECT_FALSE(reader.next(decodeSnapshot));
  EXPECT_EQ(err_.str(), "Recorded 2 snapshots to the standard output.\n");
}

TEST_F(RecordCommandTest, AHistoryTakesTheSnapshotsInsteadOfAFile) {
  RecordOptions options;
  options.database = (folder_ / "history.sqlite").string();
  options.every = 2.0;
  options.duration = 6.0;
  run(options);
  EXPECT_EQ(fakes::textOf(options.database, "SELECT sum(weight) FROM samples WHERE app='' AND metric='cpu'"),
            "6.0");
  EXPECT_EQ(out_.str(), "Recorded 3 snapshots to " + options.database + ".\n");
}

TEST_F(RecordCommandTest, TheHelpersReadingsAreRecorded) {
  AdvancedSample advanced{
      machine_.wallClock.now(), 1.5, {}, {{{812, MadeUpMachine::kStart}, 5.0, {}, {}}}, {}};
  machine_.readings.sample = advanced;
  run(toFile(1.0, 1.0));
  EXPECT_EQ(recorded().front().advancedTimestamp, advanced.timestamp);
  EXPECT_EQ(recorded().front().apps.front().download, 5.0);
  EXPECT_EQ(machine_.readings.requests, 2) << "one for each pass";
  EXPECT_EQ(machine_.readings.settled, 0.0) << "a recording waits for nobody";
}

// The command line

ExitCode parsed(const std::vector<std::string>& arguments, std::string& complaint) {
  CommandLine commandLine;
  std::ostringstream out;
  std::ostringstream err;
  const ExitCode code = commandLine.run(arguments, {out, err, {}, {}});
  complaint = err.str();
  return code;
}

TEST(RecordArguments, SecondsOutsideTheirBoundsAreWrongUsage) {
  const fakes::TemporaryFolder folder;
  const std::string file = (folder / "x").string();
  for (const char* option : {"--every", "--for"}) {
    for (const char* value : {"0", "0.0999", "-1", "nan", "inf", "1e99", "soon", "2s", ""}) {
      std::string complaint;
      EXPECT_EQ(parsed({"record", file, option, value}, complaint), ExitCode::Usage) << option << value;
      EXPECT_THAT(complaint, HasSubstr(option)) << value;
    }
  }
  std::string complaint;
  EXPECT_EQ(parsed({"record", file, "--every", "60.0001"}, complaint), ExitCode::Usage);
  EXPECT_THAT(complaint, StartsWith("vesk: --every: \"60.0001\" is not within 0.1 to 60 seconds\n"));
  EXPECT_EQ(parsed({"record", file, "--for", "31536000.5"}, complaint), ExitCode::Usage);
  EXPECT_FALSE(fs::exists(file));
}

TEST(RecordArguments, TheBoundsThemselvesAreWithin) {
  const CLI::Validator every = secondsWithin(kLeastInterval, kMostInterval);
  const CLI::Validator duration = secondsWithin(kLeastInterval, kMostDuration);
  for (std::string text : {"0.1", "1e-1", "2", "60", "60.0"}) EXPECT_EQ(every(text), "") << text;
  for (std::string text : {"0.1", "31536000"}) EXPECT_EQ(duration(text), "") << text;
}

TEST(RecordArguments, ExactlyOnePlaceToRecordToIsWanted) {
  std::string complaint;
  EXPECT_EQ(parsed({"record"}, complaint), ExitCode::Usage);
  EXPECT_EQ(complaint, "vesk: Where to? Expected FILE, or --db and a history.\n");
  EXPECT_EQ(parsed({"record", "a", "--db", "b"}, complaint), ExitCode::Usage);
  EXPECT_FALSE(fs::exists("a"));
}

}  // namespace
}  // namespace monitor::vesk
