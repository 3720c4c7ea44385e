// SPDX-License-Identifier: MIT
// The real program on a private session bus, with a stand-in for the audio service.
#include <gmock/gmock.h>
#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Json/StrictJson.h"
#include "Tests/Platform/Ipc/TypeDbusManager.h"
#include "Tests/Tools/PrivateBus.h"

namespace monitor::vesk {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* kAgent = "app.vesk.native.agent";
constexpr const char* kService = "app.vesk.native.monitor-audio";

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kUnavailable = 3;
constexpr int kNoMatch = 4;

struct ServiceState {
  std::vector<AudioApplication> programs;
  std::string listFailure;
  std::string gainFailure;
  std::string standing;
  std::string cause;
  bool hangs = false;
};

class CommandsTest : public testing::Test {
 protected:
  CommandsTest() {
    // This test's own process, so that the programs live; what is not listed ended with it.
    const auto pid = static_cast<std::int32_t>(::getpid());
    state_.programs = {{"org.example.music", "Music", "org.example.music", {{pid, 1}}, 1.0, true},
                       {"process:200:3", "player", std::nullopt, {{200, 3}}, 1.0, false},
                       {"process:201:4", "player", std::nullopt, {{201, 4}}, 1.0, false}};
    writeState();
    bus_.activate(kService, std::string(VESK_PRETEND_SERVICE) + ' ' + stateFile() + ' ' + gainsFile());
    activateAgent("--idle 30");
  }

  void activateAgent(const std::string& options) {
    bus_.activate(kAgent, std::string(VESK_PROGRAM) + " agent " + options);
  }
  PrivateBus::Run vesk(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VESK_PROGRAM);
    return bus_.run(std::move(arguments));
  }

  [[nodiscard]] std::string stateFile() const { return (bus_.directory() / "service-state.json").string(); }
  [[nodiscard]] std::string gainsFile() const { return (bus_.directory() / "service-gains").string(); }
  void writeState() {
    json::Writer object = json::Writer::object();
    object.set("programs", encodeApplications(state_.programs));
    object.set("listFailure", state_.listFailure);
    object.set("gainFailure", state_.gainFailure);
    object.set("standing", state_.standing);
    object.set("cause", state_.cause);
    object.set("hangs", state_.hangs);
    std::ofstream(stateFile() + ".new") << object.text();
    std::filesystem::rename(stateFile() + ".new", stateFile());
  }
  // What the service holds for all its clients, a line each.
  [[nodiscard]] std::string gains() const {
    std::ifstream stream(gainsFile());
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  // Whether the agent's status tells of that.
  [[nodiscard]] bool says(const std::string& event) {
    return vesk({"status"}).out.find(event) != std::string::npos;
  }

  [[nodiscard]] std::optional<pid_t> ownerOf(const char* name) const {
    const platform::Bus bus = bus_.connect();
    sd_bus_creds* raw = nullptr;
    if (sd_bus_get_name_creds(bus.get(), name, SD_BUS_CREDS_PID, &raw) < 0) return std::nullopt;
    const BusCredentials credentials(raw);
    pid_t pid = 0;
    checked(sd_bus_creds_get_pid(credentials.get(), &pid), "pid");
    return pid;
  }
  void sendSignal(const char* name, int signal) {
    const auto pid = ownerOf(name);
    ASSERT_TRUE(pid.has_value()) << name << " does not run";
    ASSERT_EQ(::kill(*pid, signal), 0);
  }
  // Whether `condition` comes true soon; generous, since a loaded machine is slow and not broken.
  [[nodiscard]] static bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < deadline) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
  }

  PrivateBus bus_;
  ServiceState state_;
};

// Usage

TEST_F(CommandsTest, WrongUsageIsToldApartFromEverythingElse) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"gain"},
                                                    {"gain", "music"},
                                                    {"gain", "music", "0,4"},
                                                    {"gain", "music", "+3dB"},
                                                    {"gain", "music", "0.4", "0.5"},
                                                    {"apps", "--nonsense"},
                                                    {"stop", "a", "b"},
                                                    {"agent", "--idle", "-1"},
                                                    {"agent", "--idle", "nan"},
                                                    {"agent", "--idle", "soon"}}) {
    const PrivateBus::Run run = vesk(arguments);
    EXPECT_EQ(run.status, kUsage) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, StartsWith("vesk: "));
  }
  EXPECT_FALSE(ownerOf(kAgent).has_value()) << "nothing was started to find that out";
}

TEST_F(CommandsTest, HelpNamesTheCommandsAndTheExitCodes) {
  const PrivateBus::Run run = vesk({"--help"});
  EXPECT_EQ(run.status, kOk);
  EXPECT_EQ(run.err, "");
  for (const char* text : {"apps", "gain", "stop", "status", "agent", "Exit status:"}) {
    EXPECT_THAT(run.out, HasSubstr(text));
  }
  EXPECT_THAT(vesk({"gain", "--help"}).out, HasSubstr("VALUE"));
}

TEST_F(CommandsTest, PrintsItsVersion) {
  EXPECT_EQ(vesk({"--version"}).out, "vesk " VESK_VERSION "\n");
}

TEST_F(CommandsTest, AFullDeviceIsAFailure) {
  const PrivateBus::Run run = bus_.run({"/bin/sh", "-c", std::string(VESK_PROGRAM) + " apps > /dev/full"});
  EXPECT_EQ(run.status, kFailed);
  EXPECT_EQ(run.err, "vesk: Standard output cannot be written.\n");
}

// What cannot be reached

TEST_F(CommandsTest, WithoutABusTheServiceIsUnavailable) {
  bus_.kill();
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"apps"}, {"gain", "music", "0.4"}, {"stop"}, {"status"}, {"agent"}}) {
    const PrivateBus::Run run = vesk(arguments);
    EXPECT_EQ(run.status, kUnavailable) << arguments.front() << ": " << run.err;
    EXPECT_THAT(run.err, StartsWith("vesk: The session bus cannot be reached: ")) << arguments.front();
  }
}

TEST_F(CommandsTest, WithoutAnAgentOnlyWhatNeedsOneFails) {
  std::filesystem::remove(bus_.directory() / "services" / (std::string(kAgent) + ".service"));
  bus_.activate(kService, "/bin/false");  // makes the bus read its folders again
  const PrivateBus::Run apps = vesk({"apps"});
  EXPECT_EQ(apps.status, kUnavailable);
  EXPECT_THAT(apps.err, StartsWith("vesk: The agent app.vesk.native.agent cannot be reached: "));
  EXPECT_EQ(vesk({"gain", "music", "0.4"}).status, kUnavailable);
  EXPECT_EQ(vesk({"stop"}).status, kOk);
  EXPECT_EQ(vesk({"status"}).status, kOk);
}

TEST_F(CommandsTest, AnAudioServiceThatCannotStartIsSaidByTheList) {
  bus_.activate(kService, "/bin/false");
  const PrivateBus::Run run = vesk({"apps"});
  EXPECT_EQ(run.status, kFailed);
  EXPECT_THAT(run.err, StartsWith("vesk: "));
}

// Lists

TEST_F(CommandsTest, ListsWhatPlaysAsATable) {
  const PrivateBus::Run run = vesk({"apps"});
  EXPECT_EQ(run.status, kOk) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_THAT(run.out, StartsWith("NAME    VOLUME  STATE    PID"));
  EXPECT_THAT(run.out, HasSubstr("\nMusic    100 %  playing  "));
  EXPECT_THAT(run.out, HasSubstr("\nplayer   100 %  silent   200"));
  EXPECT_THAT(run.out, Not(HasSubstr("\x1b")));
}

TEST_F(CommandsTest, ListsWhatPlaysAsJson) {
  const PrivateBus::Run run = vesk({"apps", "--json"});
  EXPECT_EQ(run.status, kOk) << run.err;
  EXPECT_EQ(decodeApplications(run.out), state_.programs);
}

TEST_F(CommandsTest, SaysThatNothingPlays) {
  state_.programs.clear();
  writeState();
  EXPECT_EQ(vesk({"apps"}).out, "No program plays audio.\n");
  EXPECT_EQ(vesk({"apps", "--json"}).out, "[]\n");
}

TEST_F(CommandsTest, AStandingMessageComesBesideTheList) {
  state_.standing = "Output changed. This output format is not supported.";
  writeState();
  const PrivateBus::Run run = vesk({"apps", "--json"});
  EXPECT_EQ(run.status, kOk);
  EXPECT_EQ(decodeApplications(run.out), state_.programs);
  EXPECT_EQ(run.err, "vesk: Output changed. This output format is not supported.\n");
}

TEST_F(CommandsTest, AFailedListHasTheServicesTextAndTheCauseOnASecondLine) {
  state_.listFailure = "Audio access or routing failed (macOS -32).";
  state_.cause = "The audio server does not run.";
  writeState();
  const PrivateBus::Run run = vesk({"apps"});
  EXPECT_EQ(run.status, kFailed);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "vesk: Audio access or routing failed (macOS -32).\n"
            "vesk: The audio server does not run.\n");
}

TEST_F(CommandsTest, WatchingPrintsTheListAgainWhenItChanges) {
  lab::ChildProcess watch = bus_.spawn({VESK_PROGRAM, "apps", "--watch", "--json"}, true);
  const auto first = watch.receive(lab::Milliseconds(15'000));
  ASSERT_TRUE(first.has_value()) << bus_.spawnLog();
  EXPECT_EQ(decodeApplications(*first), state_.programs);
  state_.programs.pop_back();
  writeState();
  const auto second = watch.receive(lab::Milliseconds(15'000));
  ASSERT_TRUE(second.has_value()) << bus_.spawnLog();
  EXPECT_EQ(decodeApplications(*second), state_.programs);
}

// Volumes

TEST_F(CommandsTest, AGainStaysAfterTheCommandHasEnded) {
  const PrivateBus::Run run = vesk({"gain", "music", "40%"});
  EXPECT_EQ(run.status, kOk) << run.err;
  EXPECT_EQ(run.out, "Music: 40 % (-8.0 dB)\n");
  EXPECT_EQ(gains(), "org.example.music 0.4\n");
  EXPECT_EQ(decodeApplications(vesk({"apps", "--json"}).out).at(0).gain, 0.4);
  EXPECT_THAT(vesk({"apps"}).out, HasSubstr("Music     40 %  playing"));
}

TEST_F(CommandsTest, GainsComeInDecibelsToo) {
  EXPECT_EQ(vesk({"gain", "org.example.music", "-20dB"}).out, "Music: 10 % (-20.0 dB)\n");
  EXPECT_EQ(gains(), "org.example.music 0.1\n");
  EXPECT_EQ(vesk({"gain", "200", "-0.0dB"}).out, "player: 100 % (normal playback)\n");
}

TEST_F(CommandsTest, FullVolumeEndsWhatWasHeld) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  EXPECT_EQ(vesk({"gain", "music", "100%"}).out, "Music: 100 % (normal playback)\n");
  EXPECT_EQ(gains(), "");
}

TEST_F(CommandsTest, AnAmbiguousNameListsTheCandidatesAndChangesNothing) {
  const PrivateBus::Run run = vesk({"gain", "player", "0.4"});
  EXPECT_EQ(run.status, kNoMatch);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "vesk: \"player\" is more than one program that plays audio. Give an id or a pid:\n"
            "vesk:   player  (process:200:3, pid 200)\n"
            "vesk:   player  (process:201:4, pid 201)\n");
  EXPECT_EQ(gains(), "");
}

TEST_F(CommandsTest, AnUnknownNameListsEverythingThatPlays) {
  const PrivateBus::Run run = vesk({"gain", "nothing", "0.4"});
  EXPECT_EQ(run.status, kNoMatch);
  EXPECT_THAT(run.err,
              StartsWith("vesk: \"nothing\" is no program that plays audio. There is:\nvesk:   Music"));
}

TEST_F(CommandsTest, ARefusedGainHasTheServicesTextAndTheCauseOnASecondLine) {
  state_.gainFailure =
      "This output format is not supported for app volume. Use a stereo output. Normal playback is "
      "unchanged.";
  state_.cause = "The output has six channels.";
  writeState();
  const PrivateBus::Run run = vesk({"gain", "music", "0.4"});
  EXPECT_EQ(run.status, kFailed);
  EXPECT_EQ(run.err, "vesk: " + state_.gainFailure + "\nvesk: " + state_.cause + "\n");
}

TEST_F(CommandsTest, StopsOneProgramOrAll) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  ASSERT_EQ(vesk({"gain", "200", "50%"}).status, kOk);
  EXPECT_EQ(vesk({"stop", "music"}).out, "Music: normal playback\n");
  EXPECT_EQ(gains(), "process:200:3 0.5\n");
  EXPECT_EQ(vesk({"stop"}).out, "All programs: normal playback\n");
  EXPECT_TRUE(eventually([this] { return gains().empty(); }));
}

TEST_F(CommandsTest, StoppingWhatIsNotHeldIsNoMatchAndStartsNothing) {
  const PrivateBus::Run run = vesk({"stop", "music"});
  EXPECT_EQ(run.status, kNoMatch);
  EXPECT_EQ(run.err, "vesk: There is no program with a changed volume.\n");
  EXPECT_EQ(vesk({"stop"}).status, kOk);
  EXPECT_FALSE(ownerOf(kAgent).has_value());
}

// Status

TEST_F(CommandsTest, TheStatusStartsNothing) {
  const PrivateBus::Run run = vesk({"status"});
  EXPECT_EQ(run.status, kOk) << run.err;
  EXPECT_THAT(run.out, HasSubstr("Agent:          not running; no volume is held\n"));
  EXPECT_THAT(run.out, HasSubstr("Audio service:  not running; it is started when it is needed\n"));
  EXPECT_THAT(run.out, HasSubstr("Audio server:   not reachable at "));
  EXPECT_FALSE(ownerOf(kAgent).has_value());
  EXPECT_FALSE(ownerOf(kService).has_value());
}

TEST_F(CommandsTest, TheStatusShowsWhatIsHeldAndTheLastError) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  EXPECT_THAT(vesk({"status"}).out, HasSubstr("Music    40 %  active  org.example.music"));
  state_.gainFailure = "Use a stereo output.";
  state_.cause = "The output has six channels.";
  writeState();
  ASSERT_EQ(vesk({"gain", "200", "50%"}).status, kFailed);
  const std::string text = vesk({"status"}).out;
  EXPECT_THAT(
      text,
      HasSubstr("Last error:     Use a stereo output.\n                The output has six channels.\n"));
  EXPECT_THAT(text, HasSubstr("Audio service:  running (pid "));
}

TEST_F(CommandsTest, TheStatusComesAsJson) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  const PrivateBus::Run run = vesk({"status", "--json"});
  const json::Document document(run.out);
  const json::Reader root = document.root();
  EXPECT_TRUE(root.at("agent").at("running").boolean());
  EXPECT_EQ(root.at("agent").at("pid").integer<std::int32_t>(), ownerOf(kAgent));
  EXPECT_EQ(root.at("agent").at("status").at("held")[0].at("gain").number(), 0.4);
  EXPECT_TRUE(root.at("service").at("running").boolean());
  EXPECT_FALSE(root.at("audioServer").at("reachable").boolean());
}

// Losses

TEST_F(CommandsTest, KillingTheAgentGivesNormalPlaybackBack) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  sendSignal(kAgent, SIGKILL);
  EXPECT_TRUE(eventually([this] { return gains().empty(); }));
  EXPECT_EQ(decodeApplications(vesk({"apps", "--json"}).out).at(0).gain, 1.0)
      << "the next agent holds nothing";
}

TEST_F(CommandsTest, EndingTheAgentGivesNormalPlaybackBack) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  sendSignal(kAgent, SIGTERM);
  EXPECT_TRUE(eventually([this] { return gains().empty(); }));
  EXPECT_TRUE(eventually([this] { return !ownerOf(kAgent).has_value(); }));
}

TEST_F(CommandsTest, AGainIsSetAgainAfterTheServiceWasKilled) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  const auto before = ownerOf(kService);
  sendSignal(kService, SIGKILL);
  EXPECT_TRUE(
      eventually([&] { return ownerOf(kService) != before && gains() == "org.example.music 0.4\n"; }));
  EXPECT_TRUE(eventually([this] {
    return vesk({"status"})
               .out.find("Music: the volume of 40 % was lost (the audio service ended) and is set again.") !=
           std::string::npos;
  }));
}

TEST_F(CommandsTest, AVolumeIsHeldUntilTheProgramEnds) {
  lab::ChildProcess player = bus_.spawn({"sleep", "600"}, false);
  state_.programs.push_back({"process:300:5", "sleeper", std::nullopt, {{player.pid(), 1}}, 1.0, true});
  writeState();
  ASSERT_EQ(vesk({"gain", "sleeper", "40%"}).status, kOk);
  state_.programs.pop_back();
  writeState();
  EXPECT_TRUE(eventually([this] { return says("sleeper has no audio now; its volume of 40 % is set again"); }));
  player.kill();
  EXPECT_TRUE(eventually([this] { return says("sleeper ended; its volume of 40 % is no longer held."); }));
}

TEST_F(CommandsTest, AVolumeOfABundleIsHeldUntilTheLastOfItsProcessesEnds) {
  const auto program = bus_.directory() / "Suite.app/Contents/MacOS/suite";
  std::filesystem::create_directories(program.parent_path());
  std::filesystem::copy("/bin/sleep", program);
  std::ofstream(program.parent_path().parent_path() / "Info.plist")
      << R"(<?xml version="1.0"?><plist version="1.0"><dict><key>CFBundleIdentifier</key>)"
      << "<string>org.example.suite</string></dict></plist>";
  lab::ChildProcess sound = bus_.spawn({program.string(), "600"}, false);
  lab::ChildProcess window = bus_.spawn({program.string(), "600"}, false);
  const std::string id = "org.example.suite";
  state_.programs.push_back({id, "Suite", id, {{sound.pid(), 1}}, 1.0, true});
  writeState();
  ASSERT_EQ(vesk({"gain", "suite", "40%"}).status, kOk);
  sound.kill();
  state_.programs.pop_back();
  writeState();
  EXPECT_TRUE(eventually([this] { return says("Suite has no audio now; its volume of 40 % is set again"); }));
  window.kill();
  EXPECT_TRUE(eventually([this] { return says("Suite ended; its volume of 40 % is no longer held."); }));
}

TEST_F(CommandsTest, AnAgentThatDoesNotAnswerIsSaid) {
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  sendSignal(kAgent, SIGSTOP);
  const PrivateBus::Run run = vesk({"status"});
  sendSignal(kAgent, SIGCONT);
  EXPECT_EQ(run.status, kFailed);
  EXPECT_EQ(run.err, "vesk: The agent did not answer.\n");
  EXPECT_THAT(run.out, HasSubstr("Agent:          running (pid "));
  EXPECT_THAT(run.out, HasSubstr("Audio service:  running (pid "));
}

// The agent's coming and going

TEST_F(CommandsTest, TheAgentLeavesWhenItHoldsNothing) {
  activateAgent("--idle 0.1");
  ASSERT_EQ(vesk({"apps"}).status, kOk);
  EXPECT_TRUE(eventually([this] { return !ownerOf(kAgent).has_value(); }));
}

TEST_F(CommandsTest, TheAgentStaysAsLongAsItHoldsAGain) {
  activateAgent("--idle 0.1");
  ASSERT_EQ(vesk({"gain", "music", "40%"}).status, kOk);
  const auto agent = ownerOf(kAgent);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(ownerOf(kAgent), agent);
  ASSERT_EQ(vesk({"gain", "music", "100%"}).status, kOk);
  EXPECT_TRUE(eventually([this] { return !ownerOf(kAgent).has_value(); }));
}

TEST_F(CommandsTest, NoCallIsLostWhileAgentsComeAndGo) {
  // An agent that leaves as soon as it can meets the commands in every phase of its leaving.
  activateAgent("--idle 0.02");
  for (int round = 0; round < 20; ++round) {
    const PrivateBus::Run run = vesk({"apps", "--json"});
    ASSERT_EQ(run.status, kOk) << run.err;
    ASSERT_THAT(decodeApplications(run.out), SizeIs(3));
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * round));
  }
}

TEST_F(CommandsTest, NoCallIsLostThoughAManagerEndsAgentsAsSoonAsTheirNameIsFree) {
  activateAgent("--idle 0.02");
  const tests::TypeDbusManager manager(bus_.environment().at("DBUS_SESSION_BUS_ADDRESS"), kAgent);
  for (int round = 0; round < 20; ++round) {
    const PrivateBus::Run run = vesk({"apps", "--json"});
    ASSERT_EQ(run.status, kOk) << run.err;
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * round));
  }
  EXPECT_TRUE(eventually([&] { return manager.told() > 0; }));
}

TEST_F(CommandsTest, ThereIsOneAgent) {
  ASSERT_EQ(vesk({"apps"}).status, kOk);
  const PrivateBus::Run second = vesk({"agent"});
  EXPECT_EQ(second.status, kFailed);
  EXPECT_EQ(second.err, "vesk: An agent runs already.\n");
}

TEST_F(CommandsTest, TheAgentEndsWithItsBus) {
  lab::ChildProcess agent = bus_.spawn({VESK_PROGRAM, "agent"}, false);
  ASSERT_TRUE(eventually([this] { return ownerOf(kAgent).has_value(); })) << bus_.spawnLog();
  bus_.kill();
  EXPECT_EQ(agent.wait(lab::Milliseconds(15'000)), 0);
}

}  // namespace
}  // namespace monitor::vesk
