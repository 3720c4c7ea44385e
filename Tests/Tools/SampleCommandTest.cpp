// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/SampleCommand.h"

#include <gmock/gmock.h>

#include <sstream>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/ProcessRecording.h"
#include "MonitorCore/SnapshotRecording.h"
#include "Tests/Tools/MadeUpMachine.h"
#include "Tools/vesk/Monitor/SoundingCommand.h"

namespace monitor::vesk {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class SampleCommandTest : public testing::Test {
 protected:
  std::string sample(const SampleOptions& options) {
    out_.str("");
    EXPECT_EQ(printSample(options, machine_.monitor(), console_), ExitCode::Ok);
    return out_.str();
  }

  MadeUpMachine machine_;
  std::ostringstream out_;
  std::ostringstream err_;
  Console console_{out_, err_, {}, {}};
};

TEST_F(SampleCommandTest, RatesAreThoseOfTheSecondBetweenTwoReads) {
  const std::string text = sample({});
  EXPECT_THAT(machine_.pause.waits, ElementsAre(1001.0));
  EXPECT_THAT(text, HasSubstr("\nCPU                  50.0 %  Across all logical cores\n"));
  EXPECT_THAT(text, HasSubstr("\neditor   10.0  4.00 KiB      0 B  100 MiB          1  process:812:"));
}

TEST_F(SampleCommandTest, JsonIsALineThatTheReadersOfRecordingsTake) {
  machine_.processes.processes.at(812).ports = {3000};
  machine_.processes.processes.at(812).directory = "/home/me/shop";
  const std::string plain = sample({false, true});
  const MonitorSnapshot snapshot = decodeSnapshot(plain);
  EXPECT_EQ(snapshot.interval, 1.0);
  EXPECT_EQ(snapshot.readings.at(MetricID::Cpu).value, 50.0);
  ASSERT_THAT(snapshot.apps, SizeIs(1));
  EXPECT_EQ(snapshot.apps[0].cpu, 10.0);
  const RecordedProcesses processes = decodeProcesses(plain);
  EXPECT_EQ(processes.timestamp, snapshot.timestamp);
  ASSERT_THAT(processes.processes, SizeIs(1));
  EXPECT_EQ(processes.processes[0].key, (ProcessKey{812, MadeUpMachine::kStart}));
  EXPECT_THAT(processes.processes[0].ports, testing::IsEmpty()) << "not asked for";
  EXPECT_THAT(plain, Not(HasSubstr("\"projects\"")));
}

TEST_F(SampleCommandTest, ProjectsComeWithTheirServersAndPorts) {
  machine_.processes.processes.at(812).ports = {3000, 3001};
  machine_.processes.processes.at(812).directory = "/home/me/shop";
  EXPECT_THAT(sample({true, false}), HasSubstr("\n/home/me/shop  editor  812  3000 3001          1\n"));
  const json::Document document(sample({true, true}));
  const json::Reader project = document.root().at("projects")[0];
  EXPECT_EQ(project.at("folder").string(), "/home/me/shop");
  EXPECT_EQ(project.at("roots")[0].at("pid").integer<int>(), 812);
}

TEST_F(SampleCommandTest, NoProjectsAreSaidToBeNone) {
  EXPECT_THAT(sample({true, false}), HasSubstr("No projects.\n"));
  EXPECT_THAT(sample({false, false}), Not(HasSubstr("projects")));
}

TEST_F(SampleCommandTest, AReadingWithoutAValueSaysWhy) {
  machine_.host.ticks.reset();
  machine_.pause.meanwhile = nullptr;
  EXPECT_THAT(sample({}),
              HasSubstr("\nCPU                not reported  The kernel did not return CPU counters"));
}

TEST_F(SampleCommandTest, ProcessesThatMayNotBeReadAreCounted) {
  machine_.pause.meanwhile = nullptr;
  machine_.add(900, "/usr/bin/vault").usage.reset();
  EXPECT_THAT(sample({}), HasSubstr("1 of your processes could not be looked into.\n"));
}

TEST_F(SampleCommandTest, NamesAreMadeHarmless) {
  machine_.add(900, "/tmp/\x1b[2Jevil\nline");
  const std::string text = sample({});
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));
  EXPECT_THAT(text, HasSubstr("\xEF\xBF\xBD[2Jevil\xEF\xBF\xBDline"));
}

TEST_F(SampleCommandTest, AFolderThatIsNoUtf8DoesNotSpoilTheLine) {
  machine_.processes.processes.at(812).ports = {3000};
  machine_.processes.processes.at(812).directory = "/home/me/\xff";
  machine_.accessories.list.push_back({"1", "Mouse \xfe", 81.0});
  EXPECT_EQ(decodeProcesses(sample({true, true})).processes[0].directory, "/home/me/\xEF\xBF\xBD");
}

TEST_F(SampleCommandTest, TheHelpersReadingsAreMergedAndItsStatusShown) {
  AdvancedSample advanced{machine_.wallClock.now(), 1.5, {}, {}, {}};
  advanced.readings.emplace(MetricID::PowerWatts,
                            MetricReading(7.25, MetricUnit::Watts, std::string(kPowermetricsSource),
                                          MetricState::Available, advanced.timestamp, std::nullopt));
  advanced.processes.push_back({{812, MadeUpMachine::kStart}, 2'048.0, std::nullopt, 3.5});
  machine_.readings.sample = advanced;
  const std::string text = sample({});
  EXPECT_EQ(machine_.readings.requests, 1);
  EXPECT_GT(machine_.readings.settled, 0.0) << "the first sample of a helper is worth waiting for";
  EXPECT_THAT(text, HasSubstr("\nPower                7.25 W\n"));
  EXPECT_THAT(text, HasSubstr("DOWN/S"));
  EXPECT_THAT(text, Not(HasSubstr("UP/S"))) << "no process has the figure";
  EXPECT_THAT(text, HasSubstr("2.00 KiB"));
  EXPECT_THAT(text, testing::EndsWith("\nThe helper sleeps.\n"));
  const MonitorSnapshot snapshot = decodeSnapshot(sample({false, true}));
  EXPECT_EQ(snapshot.advancedTimestamp, advanced.timestamp);
  EXPECT_EQ(snapshot.advancedInterval, 1.5);
  EXPECT_EQ(snapshot.apps[0].energy, 3.5);
}

TEST_F(SampleCommandTest, EndsWhenItIsToldTo) {
  machine_.pause.mostWaits = 0;
  EXPECT_THROW(printSample({}, machine_.monitor(), console_), CommandError);
  EXPECT_EQ(out_.str(), "");
}

// Sounding

TEST_F(SampleCommandTest, SoundingProgramsComeAsATableAndAsJson) {
  const std::vector<ActiveAudioApplication> list{
      {"org.example.music", "Mu\x1bsic", "/usr/share/music.desktop"},
      {"process:5:6", "player", std::nullopt}};
  printSounding(list, false, console_);
  EXPECT_EQ(out_.str(),
            "NAME    ID                 BUNDLE\n"
            "Mu\xEF\xBF\xBDsic  org.example.music  /usr/share/music.desktop\n"
            "player  process:5:6        -\n");
  out_.str("");
  printSounding(list, true, console_);
  const json::Document document(out_.str());
  EXPECT_EQ(document.root().size(), 2U);
  EXPECT_EQ(document.root()[0].at("bundleURL").string(), "/usr/share/music.desktop");
  EXPECT_FALSE(document.root()[1].find("bundleURL"));
}

TEST_F(SampleCommandTest, SilenceIsAnEmptyListAndNoError) {
  printSounding({}, false, console_);
  printSounding({}, true, console_);
  EXPECT_EQ(out_.str(), "No program produces sound.\n[]\n");
}

}  // namespace
}  // namespace monitor::vesk
