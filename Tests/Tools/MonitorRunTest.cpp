// SPDX-License-Identifier: MIT
// The real program on the real machine, without an audio server and without an agent.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "MonitorCore/ProcessRecording.h"
#include "MonitorCore/Recording.h"
#include "MonitorCore/SnapshotRecording.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"
#include "Tests/Tools/PseudoTerminal.h"
#include "Tools/AudioLab/ChildProcess.h"

namespace monitor::vesk {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr lab::Milliseconds kPatience(60'000);

lab::Environment plainEnvironment(const std::string& term = "xterm-256color") {
  lab::Environment environment = lab::neutralEnvironment();
  environment.erase("NO_COLOR");
  environment.erase("COLUMNS");
  environment["TERM"] = term;
  environment["XDG_RUNTIME_DIR"] = "/nonexistent";
  environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent";
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";
  return environment;
}

class MonitorRunTest : public testing::Test {
 protected:
  struct Run {
    int status = 0;
    std::string out;
    std::string err;
  };
  Run run(std::vector<std::string> command) {
    const fs::path log = folder_ / ("run-" + std::to_string(++runs_));
    lab::SpawnOptions spawn;
    spawn.command = std::move(command);
    spawn.environment = plainEnvironment();
    spawn.log = log;
    const lab::CommandResult result = lab::runCommand(spawn, kPatience);
    std::ifstream stream(log);
    return {result.status, result.output, {std::istreambuf_iterator<char>(stream), {}}};
  }
  Run vesk(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VESK_PROGRAM);
    return run(std::move(arguments));
  }
  [[nodiscard]] std::vector<MonitorSnapshot> recorded() const {
    std::ifstream in(file_);
    RecordingReader reader(in, file_.string());
    std::vector<MonitorSnapshot> snapshots;
    while (auto snapshot = reader.next(decodeSnapshot)) snapshots.push_back(*std::move(snapshot));
    return snapshots;
  }

  fakes::TemporaryFolder folder_;
  fs::path file_ = folder_ / "day.jsonl";
  int runs_ = 0;
};

// sample, sounding, record

TEST_F(MonitorRunTest, ASampleIsOneSnapshotThatParsesBack) {
  const Run result = vesk({"sample", "--json", "--projects"});
  EXPECT_EQ(result.status, 0) << result.err;
  const MonitorSnapshot snapshot = decodeSnapshot(result.out);
  EXPECT_GE(snapshot.interval, 0.9);
  EXPECT_TRUE(snapshot.readings.at(MetricID::Cpu).value.has_value());
  EXPECT_THAT(snapshot.apps, Not(IsEmpty()));
  EXPECT_THAT(decodeProcesses(result.out).processes, Not(IsEmpty()));
  const Run tables = vesk({"sample"});
  EXPECT_THAT(tables.out, StartsWith("READING"));
  EXPECT_THAT(tables.out, HasSubstr("\nAPP "));
  EXPECT_THAT(tables.out, EndsWith("\nThe optional helper is not installed.\n"));
}

TEST_F(MonitorRunTest, SoundingWithoutAnAudioServerIsUnavailable) {
  const Run result = vesk({"sounding"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "vesk: The list of programs that use audio is unavailable.\n"
            "vesk: There is no connection to the audio server.\n");
}

TEST_F(MonitorRunTest, WhatIsRecordedIsReplayedAndAppended) {
  const Run result = vesk({"record", file_.string(), "--every", "0.5", "--for", "2"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, StartsWith("Recorded "));
  const std::size_t count = recorded().size();
  EXPECT_GE(count, 1U);  // a machine under load may miss some
  EXPECT_LE(count, 4U);
  for (const MonitorSnapshot& snapshot : recorded()) EXPECT_GT(snapshot.interval, 0.0);
  const Run replay = vesk({"replay", file_.string(), "--apps"});
  EXPECT_EQ(replay.status, 0) << replay.err;
  EXPECT_THAT(replay.out, StartsWith("APP "));
  EXPECT_EQ(vesk({"replay", file_.string(), "--alerts"}).status, 0);
  EXPECT_EQ(vesk({"replay", file_.string(), "--projects"}).status, 0);
  const std::string database = (folder_ / "history.sqlite").string();
  EXPECT_THAT(vesk({"history", "append", file_.string(), "--db", database}).out,
              StartsWith("Appended " + std::to_string(count) + " snapshot"));
}

TEST_F(MonitorRunTest, AHistoryCanBeRecordedInto) {
  const std::string database = (folder_ / "history.sqlite").string();
  EXPECT_EQ(vesk({"record", "--db", database, "--every", "0.5", "--for", "1"}).status, 0);
  EXPECT_THAT(vesk({"history", "query", "memoryUsed", "--db", database, "--csv"}).out, HasSubstr(","));
}

class EndingARecording : public MonitorRunTest, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Signals, EndingARecording, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_P(EndingARecording, ASignalEndsItInOrder) {
  lab::SpawnOptions spawn;
  spawn.command = {VESK_PROGRAM, "record", "-", "--every", "0.1"};
  spawn.environment = plainEnvironment();
  spawn.log = folder_ / "log";
  spawn.talk = true;
  lab::ChildProcess recording(spawn);
  const auto line = recording.receive(kPatience);
  ASSERT_TRUE(line.has_value()) << lab::fileTail(spawn.log, 5);
  EXPECT_GT(decodeSnapshot(*line).interval, 0.0);
  recording.signal(GetParam());
  while (const auto more = recording.receive(kPatience)) (void)decodeSnapshot(*more);
  const auto status = recording.wait(kPatience);
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
  EXPECT_THAT(lab::fileTail(spawn.log, 1), HasSubstr("Recorded "));
}

TEST_F(MonitorRunTest, ADiskThatFillsUpLeavesAReadableRecording) {
  // The limit is in blocks of 512 or 1024 bytes, some lines' worth; a write across it is cut short first.
  ASSERT_EQ(vesk({"record", file_.string(), "--for", "0.1"}).status, 0);
  const std::uintmax_t line = fs::file_size(file_);
  const std::string blocks = std::to_string(line * 5 / 2 / 512 + 1);
  const Run result = run({"/bin/sh", "-c",
                          "trap '' XFSZ; ulimit -f " + blocks + "; exec " VESK_PROGRAM " record " +
                              file_.string() + " --every 0.1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("vesk: " + file_.string() + ": File too large\n"));
  EXPECT_GE(recorded().size(), 1U) << "read to its end, which throws at a torn line";
}

// top

class TopRunTest : public MonitorRunTest {
 protected:
  struct Top : PseudoTerminal {
    explicit Top(std::vector<std::string> arguments = {},
                 const lab::Environment& environment = plainEnvironment())
        : PseudoTerminal(24, 80, command(std::move(arguments)), environment), before(attributes()) {}

    static std::vector<std::string> command(std::vector<std::string> arguments) {
      std::vector<std::string> all{VESK_PROGRAM, "top"};
      all.insert(all.end(), arguments.begin(), arguments.end());
      return all;
    }
    // Whether the terminal is as it was before.
    [[nodiscard]] bool isRestored() {
      return waitUntil([](const ScreenModel& model) { return !model.otherScreen; }) && screen().cursor &&
             screen().wraps && sameAttributes(attributes(), before);
    }
    [[nodiscard]] bool endsInOrder() {
      const auto status = waitForEnd();
      return status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0;
    }
    termios before;
  };
  static constexpr const char* kKeys =
      "q quit  c CPU  m memory  d disk  p projects  space pause  arrows scroll  h help";
};

TEST_F(TopRunTest, ShowsTheMachineUntilQIsPressed) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  EXPECT_TRUE(top.screen().otherScreen);
  EXPECT_FALSE(top.screen().cursor);
  EXPECT_FALSE(top.screen().wraps);
  EXPECT_EQ(top.attributes().c_lflag & static_cast<tcflag_t>(ICANON | ECHO), 0U);
  EXPECT_THAT(top.screen().line(0), StartsWith("vesk top  "));
  EXPECT_THAT(top.screen().line(1), StartsWith("CPU     ["));
  EXPECT_EQ(top.screen().line(23), kKeys);
  EXPECT_TRUE(top.waitFor("Volumes are not known: There is no connection to the audio server."));
  EXPECT_TRUE(top.waitFor("The optional helper is not installed."));
  top.type("q");
  EXPECT_TRUE(top.endsInOrder());
  EXPECT_TRUE(top.isRestored());
  EXPECT_THAT(top.screen().unknown, IsEmpty());
}

class EndingTop : public TopRunTest, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Signals, EndingTop, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT));

TEST_P(EndingTop, ASignalRestoresTheTerminal) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  top.signal(GetParam());
  EXPECT_TRUE(top.endsInOrder());
  EXPECT_TRUE(top.isRestored());
}

TEST_F(TopRunTest, CtrlCEndsIt) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  top.type("\x03");
  EXPECT_TRUE(top.endsInOrder());
  EXPECT_TRUE(top.isRestored());
}

TEST_F(TopRunTest, ACrashRestoresTheTerminalToo) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  top.signal(SIGABRT);
  const auto status = top.waitForEnd();
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGABRT) << *status;
  EXPECT_TRUE(top.isRestored());
}

TEST_F(TopRunTest, ALineThatIsCutEndsIt) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  top.hangUp();
  EXPECT_TRUE(top.waitForEnd().has_value());
}

TEST_F(TopRunTest, CtrlZGivesTheTerminalBackUntilItGoesOn) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  top.type("\x1a");
  const auto status = top.waitForStop();
  ASSERT_TRUE(status && WIFSTOPPED(*status));
  EXPECT_TRUE(top.isRestored());
  top.screen().resize(24, 80);  // what others wrote there meanwhile
  top.signal(SIGCONT);
  EXPECT_TRUE(top.waitFor(kKeys)) << "everything is drawn anew";
  EXPECT_TRUE(top.screen().otherScreen);
  top.type("q");
  EXPECT_TRUE(top.endsInOrder());
  EXPECT_TRUE(top.isRestored());
}

TEST_F(TopRunTest, FollowsTheSizeOfTheWindow) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  top.resize(10, 40);
  ASSERT_TRUE(top.waitUntil(
      [](const ScreenModel& screen) { return screen.line(9) == "q quit  c CPU  m memory  d disk  h help"; }));
  EXPECT_TRUE(top.waitFor("*CPU %    MEMORY   VOLUME"));
  top.resize(30, 140);
  ASSERT_TRUE(top.waitUntil([](const ScreenModel& screen) { return screen.line(29) == kKeys; }));
  EXPECT_TRUE(top.waitFor("PROCS  ID"));
  top.resize(1, 1);
  top.resize(24, 80);
  EXPECT_TRUE(top.waitUntil([](const ScreenModel& screen) { return screen.line(23) == kKeys; }));
}

TEST_F(TopRunTest, KeysChangeTheView) {
  Top top;
  ASSERT_TRUE(top.waitFor("*CPU %"));
  top.type("m");
  EXPECT_TRUE(top.waitFor("*MEMORY"));
  top.type("d");
  EXPECT_TRUE(top.waitFor("*READ/S"));
  top.type(" ");
  EXPECT_TRUE(top.waitFor("vesk top  paused"));
  top.type(" ");
  EXPECT_TRUE(top.waitFor("space pause"));
  top.type("h");
  EXPECT_TRUE(top.waitFor("quit, as does Ctrl-C"));
  top.type("h");
  EXPECT_TRUE(top.waitFor("*READ/S"));
  top.type("p");
  EXPECT_TRUE(top.waitUntil([](const ScreenModel& screen) {
    return screen.shows("p apps") && (screen.shows("PROJECT") || screen.shows("No project listens"));
  }));
}

TEST_F(TopRunTest, FramesDoNotWipeTheScreenBetweenThem) {
  Top top({"--every", "0.1"});
  ASSERT_TRUE(top.waitFor("*CPU %"));
  const std::string first = top.screen().line(0);
  ASSERT_TRUE(top.waitUntil([&](const ScreenModel& screen) { return screen.line(0) != first; }));
  EXPECT_EQ(top.screen().wipes, 1U);
}

TEST_F(TopRunTest, StartsAsTheCommandLineSays) {
  Top top({"--sort", "memory", "--every", "7"});
  EXPECT_TRUE(top.waitFor("*MEMORY"));
  EXPECT_TRUE(top.waitFor("every 7 s"));
  Top projects({"--projects"});
  EXPECT_TRUE(projects.waitFor("p apps"));
}

TEST_F(TopRunTest, NoColorIsHeeded) {
  lab::Environment environment = plainEnvironment();
  Top coloured({}, environment);
  ASSERT_TRUE(coloured.waitFor("*CPU %"));
  EXPECT_TRUE(coloured.screen().colours.contains("1"));
  environment["NO_COLOR"] = "1";
  Top plain({}, environment);
  ASSERT_TRUE(plain.waitFor("*CPU %"));
  EXPECT_THAT(plain.screen().colours, ElementsAre("0")) << "the reset of whatever was there before";
}

TEST_F(TopRunTest, WithoutATerminalThatCanShowItThereIsNoView) {
  const Run piped = vesk({"top"});
  EXPECT_EQ(piped.status, 2);
  EXPECT_EQ(piped.out, "");
  EXPECT_EQ(piped.err, "vesk: A live view needs a terminal. `vesk sample` prints one look at the machine.\n");
  Top dumb({}, plainEnvironment("dumb"));
  const auto status = dumb.waitForEnd();
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(WEXITSTATUS(*status), 2);
  EXPECT_TRUE(dumb.waitFor("A live view needs a terminal."));
}

TEST_F(TopRunTest, WrongArgumentsAreWrongUsage) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"top", "--sort", "name"}, {"top", "--every", "0"}, {"top", "x"}}) {
    const Run result = vesk(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, StartsWith("vesk: "));
  }
}

}  // namespace
}  // namespace monitor::vesk
