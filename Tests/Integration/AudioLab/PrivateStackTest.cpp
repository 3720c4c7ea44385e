// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/PrivateStack.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "Tools/AudioLab/Graph.h"
#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/Listening.h"
#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/Recorder.h"

namespace monitor::lab {
namespace {

// True when the channel comes to play its program unscaled and without a fault for `frames`. Not at once: on
// a busy machine programs that have just come to the graph cost it cycles.
bool playsUntouched(const Recorder& recorder, std::size_t channel, std::size_t frames) {
  return waitForGain(recorder, channel, 1.0, 0, Milliseconds(10'000), frames).has_value();
}

// A zombie waits for a parent that nobody promised, and is as good as gone.
bool lives(pid_t pid) {
  std::ifstream stream("/proc/" + std::to_string(pid) + "/stat");
  std::string number, name, state;
  stream >> number >> name >> state;
  return !state.empty() && state != "Z";
}

// The living processes that carry the stack's mark.
std::vector<std::string> processesOf(const std::string& directory) {
  std::vector<std::string> result;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::ifstream stream(entry.path() / "environ", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (text.find("VESK_LAB_STACK=" + directory) != std::string::npos) result.push_back(entry.path());
  }
  return result;
}

TEST(PrivateStack, PlaysBothKindsOfPlayerToTheRecordedSink) {
  const PrivateStack stack;
  Recorder recorder(stack.remote());
  const Player left(stack, {.name = "Left", .arguments = {"--channel", "0"}});
  const Player right(stack, {.kind = PlayerKind::Pulse, .name = "Right", .arguments = {"--channel", "1"}});
  EXPECT_TRUE(playsUntouched(recorder, 0, 2048));
  EXPECT_TRUE(playsUntouched(recorder, 1, 2048));
  const Recording recording = recorder.recording();
  EXPECT_EQ(recording.channels.size(), 2U);
  EXPECT_EQ(recording.cycles.back().frames, 256U);
}

TEST(PrivateStack, LeavesNothingBehind) {
  std::filesystem::path directory;
  pid_t player = 0;
  {
    const PrivateStack stack({.bus = true});
    directory = stack.directory();
    // Started by a shell that has gone: nobody's child, known by its mark only.
    const auto result = stack.run({"sh", "-c", "setsid sleep 100 >/dev/null 2>&1 & echo $!"});
    player = std::stoi(result.output);
    ASSERT_TRUE(lives(player));
  }
  EXPECT_FALSE(std::filesystem::exists(directory));
  EXPECT_FALSE(lives(player));
}

TEST(PrivateStack, LeavesNothingBehindWhenItsOwnerIsKilled) {
  const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "stack_holder";
  ChildProcess owner({.command = {program.string()}, .environment = neutralEnvironment(), .talk = true});
  const auto line = owner.receive(Milliseconds(20'000));
  ASSERT_TRUE(line.has_value());
  const std::string& directory = *line;
  EXPECT_FALSE(processesOf(directory).empty());
  owner.signal(SIGKILL);  // the owner alone: its daemons have groups of their own
  for (int i = 0; i < 1000 && std::filesystem::exists(directory); ++i) ::usleep(10'000);
  EXPECT_FALSE(std::filesystem::exists(directory));
  EXPECT_TRUE(processesOf(directory).empty());
}

TEST(PrivateStack, ReportsADaemonThatDoesNotStartWithItsLog) {
  try {
    const PrivateStack stack({.extra = {{"PIPEWIRE_MODULE_DIR", "/nowhere"}}});
    FAIL() << "a server without modules was taken for a running one";
  } catch (const LabError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("pipewire ended while starting"));
    EXPECT_THAT(error.what(), testing::HasSubstr("could not load mandatory module"));
  }
}

TEST(PrivateStack, StartsEveryDaemonAgain) {
  PrivateStack stack({.bus = true});
  for (const auto daemon : {Daemon::Bus, Daemon::PipeWire}) {
    const pid_t before = stack.pid(daemon);
    stack.restart(daemon);
    EXPECT_NE(stack.pid(daemon), before);
  }
  stack.restart(Daemon::SessionManager);
  stack.restart(Daemon::Pulse);
  Recorder recorder(stack.remote());
  const Player player(stack, {.kind = PlayerKind::Pulse});
  EXPECT_TRUE(playsUntouched(recorder, 0, 1024));
}

TEST(PrivateStack, SwitchesTheDefaultOutput) {
  const PrivateStack stack;
  Graph graph(stack.remote());
  Recorder recorder(stack.remote(), {.sink = "lab-sink-b"});
  const Player player(stack, {});
  EXPECT_EQ(recorder.recording().channels[0].back(), 0.0F);
  graph.setDefaultSink("lab-sink-b");
  const bool moved = graph.waitUntil([](const GraphView& now) {
    const auto* from = now.nodeNamed("Lab Player");
    const auto* to = now.nodeNamed("lab-sink-b");
    return from != nullptr && to != nullptr && now.linkCount(from->id, to->id) == 2;
  });
  ASSERT_TRUE(moved);
  EXPECT_TRUE(playsUntouched(recorder, 0, 512));
}

TEST(PrivateStack, OffersSinksOfOtherShapes) {
  const PrivateStack stack({.sinks = {{.name = "slower", .rate = 44'100, .priority = 1010},
                                      {.name = "mono", .positions = {"MONO"}},
                                      {.name = "six", .positions = {"FL", "FR", "FC", "LFE", "RL", "RR"}}}});
  const Graph graph(stack.remote());
  const auto view = graph.view();
  for (const auto& [name, channels] : {std::pair{"slower", 2U}, {"mono", 1U}, {"six", 6U}}) {
    const auto* node = view.nodeNamed(name);
    ASSERT_NE(node, nullptr) << name;
    EXPECT_EQ(view.portsOf(node->id).size(), 2 * channels) << name;  // playback and monitor
  }
}

}  // namespace
}  // namespace monitor::lab
