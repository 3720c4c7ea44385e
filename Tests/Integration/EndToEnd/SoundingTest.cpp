// SPDX-License-Identifier: MIT
// What `vesk sounding` and `vesk top` say of a real program that plays.
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "MonitorCore/Json/StrictJson.h"
#include "Tests/Integration/EndToEnd/Playground.h"
#include "Tests/Tools/PseudoTerminal.h"

namespace monitor::lab {
namespace {

using testing::HasSubstr;

class Sounding : public Playground {
 protected:
  [[nodiscard]] std::vector<std::string> soundingNames() const {
    const CommandResult result = vesk({"sounding", "--json"});
    EXPECT_EQ(result.status, 0) << result.output;
    const json::Document document(result.output);
    std::vector<std::string> names;
    for (std::size_t index = 0; index < document.root().size(); ++index) {
      names.push_back(document.root()[index].at("name").string());
    }
    return names;
  }
  // Generous, since a loaded machine is slow and not broken.
  [[nodiscard]] static bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
  }
  [[nodiscard]] Environment terminalEnvironment() const {
    Environment environment = stack.environment();
    environment["TERM"] = "xterm";
    environment["NO_COLOR"] = "1";
    return environment;
  }
};

// High enough for every process of a busy machine.
struct Top : vesk::PseudoTerminal {
  explicit Top(const Environment& environment)
      : PseudoTerminal(900, 100, {builtProgram("vesk"), "top", "--every", "0.2"}, environment) {}

  // Waits until the row of the program shows this volume; an empty text stands for none.
  [[nodiscard]] bool showsVolume(const std::string& volume) {
    return waitUntil([&volume](const vesk::ScreenModel& screen) {
      for (const std::string& line : screen.lines()) {
        if (!line.starts_with("Lab Music ")) continue;
        const bool any = line.find('%') != std::string::npos;
        return volume.empty() ? !any : line.find("  " + volume + "  ") != std::string::npos;
      }
      return false;
    });
  }
};

TEST_F(Sounding, IsWhatPlaysNowAndNobodyIsStartedToFindOut) {
  EXPECT_TRUE(eventually([this] { return soundingNames() == std::vector<std::string>{"Lab Music"}; }));
  const CommandResult table = vesk({"sounding"});
  EXPECT_THAT(table.output, HasSubstr("\nLab Music  process:" + std::to_string(player.pid()) + ":"));
  player.pause();
  EXPECT_TRUE(eventually([this] { return soundingNames().empty(); }));
  EXPECT_EQ(vesk({"sounding"}).output, "No program produces sound.\n");
  EXPECT_EQ(agent(), 0);
  EXPECT_EQ(service(), 0);
}

TEST_F(Sounding, TopShowsTheVolumeOfWhatPlays) {
  Top top(terminalEnvironment());
  EXPECT_TRUE(top.showsVolume("100 %"));
  EXPECT_EQ(agent(), 0) << "looking starts nobody";
  EXPECT_EQ(service(), 0);
  setGain("40%");
  EXPECT_TRUE(top.showsVolume("40 %"));
  player.pause();
  EXPECT_TRUE(top.showsVolume("(40 %)"));
  player.resume();
  EXPECT_TRUE(top.showsVolume("40 %"));
  EXPECT_EQ(vesk({"stop"}).status, 0);
  EXPECT_TRUE(top.showsVolume("100 %"));
  player.pause();
  EXPECT_TRUE(top.showsVolume(""));
  top.type("q");
  EXPECT_EQ(top.waitForEnd(), 0);
}

TEST_F(Sounding, TopSurvivesTheLossOfTheAudioServer) {
  Top top(terminalEnvironment());
  EXPECT_TRUE(top.showsVolume("100 %"));
  stack.kill(Daemon::PipeWire);
  EXPECT_TRUE(top.waitFor("Volumes are not known: There is no connection to the audio server."));
  top.type("q");
  EXPECT_EQ(top.waitForEnd(), 0);
}

}  // namespace
}  // namespace monitor::lab
