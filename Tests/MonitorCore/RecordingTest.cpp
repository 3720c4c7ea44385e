// SPDX-License-Identifier: MIT
#include "MonitorCore/Recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>

#include "MonitorCore/ProcessRecording.h"
#include "MonitorCore/SnapshotRecording.h"
#include "Tests/MonitorCore/Support/Describe.h"
#include "Tests/MonitorCore/Support/RandomProcesses.h"

namespace monitor {
namespace {

using ::testing::HasSubstr;

constexpr const char* kProcess =
    R"({"key":{"pid":7,"start":9},"parentPID":1,"owner":501,"name":"n","executable":"/n","memory":3,"ports":[80]})";

std::string line(const std::string& process) {
  return R"({"timestamp":5,"processes":[)" + process + "]}";
}

// The message of the error with which reading `text` as a recording of processes ends.
std::string errorOf(const std::string& text) {
  std::istringstream in(text);
  RecordingReader reader(in, "week.jsonl");
  try {
    while (reader.next(decodeProcesses)) {
    }
  } catch (const RecordingError& error) {
    return error.what();
  }
  return "no error";
}

std::string changed(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(ProcessRecordingTest, KeysAreWrittenInOrder) {
  const ProcessSample full({812, 5000}, 1, "Editor", "com.example.editor", 12.5, 4096, 501, "/usr/bin/editor",
                           1.0, 2.0, 3.0, 4.0, 5.0, "/src/app", {8080, 443});
  ProcessSample bare;
  bare.key = {-1, 0};
  EXPECT_EQ(
      encodeProcesses({Date{1.5}, {full, bare}}),
      R"({"timestamp":1.5,"processes":[{"key":{"pid":812,"start":5000},"parentPID":1,"owner":501,)"
      R"("name":"Editor","bundleID":"com.example.editor","executable":"/usr/bin/editor","cpu":12.5,)"
      R"("memory":4096,"diskRead":1.0,"diskWrite":2.0,"download":3.0,"upload":4.0,"energy":5.0,)"
      R"("directory":"/src/app","ports":[8080,443]},{"key":{"pid":-1,"start":0},"parentPID":0,"owner":0,)"
      R"("name":"","executable":"","memory":0,"ports":[]}]})");
}

TEST(ProcessRecordingTest, RandomSamplesSurviveTheRoundTrip) {
  testing::Chance chance(11);
  for (int round = 0; round < testing::rounds(200); ++round) {
    const auto processes = testing::anyProcesses(chance, 20);
    const RecordedProcesses read = decodeProcesses(encodeProcesses({Date{0.1 * round}, processes}));
    EXPECT_EQ(read.timestamp.secondsSince2001, 0.1 * round);
    ASSERT_EQ(read.processes.size(), processes.size());
    for (std::size_t index = 0; index < processes.size(); ++index) {
      ASSERT_EQ(testing::describe(read.processes[index]), testing::describe(processes[index]));
    }
  }
}

TEST(ProcessRecordingTest, NonFiniteNumbersAreTexts) {
  ProcessSample process;
  process.cpu = std::numeric_limits<double>::quiet_NaN();
  process.diskRead = std::numeric_limits<double>::infinity();
  process.upload = -std::numeric_limits<double>::infinity();
  const std::string text = encodeProcesses({Date{std::numeric_limits<double>::infinity()}, {process}});
  EXPECT_THAT(text, HasSubstr(R"("cpu":"nan")"));
  EXPECT_THAT(text, HasSubstr(R"("diskRead":"inf")"));
  EXPECT_THAT(text, HasSubstr(R"("upload":"-inf")"));
  const RecordedProcesses read = decodeProcesses(text);
  EXPECT_TRUE(std::isnan(*read.processes[0].cpu));
  EXPECT_EQ(read.processes[0].diskRead, std::numeric_limits<double>::infinity());
  EXPECT_EQ(read.timestamp.secondsSince2001, std::numeric_limits<double>::infinity());
}

TEST(ProcessRecordingTest, NullIsAbsentAndUnknownKeysAreIgnored) {
  const auto read = decodeProcesses(R"({"timestamp":5,"interval":2,"processes":[)" +
                                    changed(kProcess, "{", R"({"cpu":null,"threads":4,)") + "]}");
  EXPECT_EQ(read.processes[0].cpu, std::nullopt);
  EXPECT_EQ(read.processes[0].ports, (std::vector<std::int64_t>{80}));
}

TEST(ProcessRecordingTest, EveryRequiredKeyIsRequired) {
  for (const char* key : {"pid", "start", "parentPID", "owner", "name", "executable", "memory", "ports",
                          "timestamp", "processes", "key"}) {
    const std::string quoted = '"' + std::string(key) + '"';
    EXPECT_THAT(errorOf(changed(line(kProcess), quoted, "\"other\"")), HasSubstr(quoted)) << key;
  }
  EXPECT_EQ(errorOf(line(kProcess)), "no error");
}

TEST(RecordingReaderTest, ErrorsNameFileLineAndKey) {
  EXPECT_EQ(errorOf(line(kProcess) + "\n\n" + line(changed(kProcess, "501", "-1")) + "\n"),
            "week.jsonl:3: at processes[0].owner: expected a whole number from 0 to 4294967295");
  EXPECT_EQ(errorOf(line(changed(kProcess, "80", "80.5"))),
            "week.jsonl:1: at processes[0].ports[0]: expected a whole number from -9223372036854775808 to "
            "9223372036854775807");
  EXPECT_EQ(
      errorOf(line(changed(kProcess, "{", R"({"cpu":"hot",)"))),
      "week.jsonl:1: at processes[0].cpu: expected a number, \"nan\", \"inf\" or \"-inf\", found \"hot\"");
  EXPECT_EQ(errorOf(line(kProcess) + "\n{}"), "week.jsonl:2: the required key \"timestamp\" is missing");
}

TEST(RecordingReaderTest, LineThatWasCutOffIsAnError) {
  const std::string whole = line(kProcess);
  EXPECT_THAT(errorOf(whole + "\n" + whole.substr(0, whole.size() - 1)),
              HasSubstr("week.jsonl:2: not valid JSON: "));
}

TEST(RecordingReaderTest, OtherVersionsAreRefused) {
  const std::string versioned = changed(line(kProcess), "{", R"({"version":1,)");
  EXPECT_EQ(errorOf(versioned), "no error");
  EXPECT_EQ(errorOf(changed(versioned, ":1,", ":2,")),
            "week.jsonl:1: at version: this program reads version 1 of the format only");
  EXPECT_THAT(errorOf(changed(versioned, ":1,", ":\"1\",")),
              HasSubstr("at version: expected a whole number"));
  EXPECT_THROW(static_cast<void>(decodeSnapshot(R"({"version":2,"timestamp":0,"interval":1})")),
               json::DecodeError);
}

TEST(RecordingReaderTest, EmptyLinesAndLineEndsOfAllKindsAreFine) {
  std::istringstream in("\n \t\r\n" + line(kProcess) + "\r\n\n" + line(kProcess));
  RecordingReader reader(in, "a");
  EXPECT_TRUE(reader.next(decodeProcesses).has_value());
  EXPECT_EQ(reader.lineNumber(), 3U);
  EXPECT_TRUE(reader.next(decodeProcesses).has_value());
  EXPECT_EQ(reader.lineNumber(), 5U);
  EXPECT_FALSE(reader.next(decodeProcesses).has_value());
  EXPECT_FALSE(reader.next(decodeProcesses).has_value());
}

TEST(RecordingReaderTest, EmptyFileHoldsNothing) {
  EXPECT_EQ(errorOf(""), "no error");
  EXPECT_EQ(errorOf("\n\n"), "no error");
}

TEST(RecordingReaderTest, LineMayBeSixteenMebibytesLong) {
  const auto length = [](std::string_view text) { return text.size(); };
  std::string text(RecordingReader::kLongestLine, 'a');
  std::istringstream longest(text);
  EXPECT_EQ(RecordingReader(longest, "a").next(length), RecordingReader::kLongestLine);
  EXPECT_EQ(errorOf(text + "a"), "week.jsonl:1: the line is longer than 16 MiB");
}

TEST(RecordingReaderTest, LinesOfEveryLengthAroundTheReadersPieceAreWhole) {
  for (const std::size_t length : {65534U, 65535U, 65536U, 131069U, 131070U, 131071U}) {
    for (const char* end : {"", "\n", "\nx\n"}) {
      std::istringstream in(std::string(length, 'a') + end);
      RecordingReader reader(in, "a");
      const auto keep = [](std::string_view text) { return std::string(text); };
      EXPECT_EQ(reader.next(keep), std::string(length, 'a')) << length;
      EXPECT_EQ(reader.next(keep).value_or("nothing"), std::string(end).size() > 1 ? "x" : "nothing")
          << length;
    }
  }
}

TEST(RecordingReaderTest, UnreadableFileIsAnError) {
  std::ifstream folder(VESK_FIXTURES);  // opens, but cannot be read
  RecordingReader reader(folder, "folder");
  try {
    static_cast<void>(reader.next(decodeProcesses));
    FAIL() << "a folder was read";
  } catch (const RecordingError& error) {
    EXPECT_STREQ(error.what(), "folder:1: the file cannot be read");
  }
}

TEST(RecordingReaderTest, OneFileServesSeveralReaders) {
  const std::string both = changed(line(kProcess), "{", R"({"interval":2,"apps":[],)");
  EXPECT_EQ(decodeProcesses(both).processes.size(), 1U);
  EXPECT_EQ(decodeSnapshot(both).interval, 2.0);
}

}  // namespace
}  // namespace monitor
