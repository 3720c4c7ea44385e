// SPDX-License-Identifier: MIT
// Clients of the audio service that are not ours, on real sound.
#include <gmock/gmock.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Integration/EndToEnd/Playground.h"
#include "Tools/AudioLab/BuiltServices.h"
#include "Tools/AudioLab/Graph.h"

namespace monitor::lab {
namespace {

constexpr double kHeardGain = static_cast<double>(0.4F);

class OtherClients : public Playground {
 protected:
  // An interpreter that has the D-Bus module: the first of the path need not be the system's own.
  [[nodiscard]] std::optional<std::string> python() const {
    for (const std::string interpreter : {"python3", "/usr/bin/python3"}) {
      if (stack.run({interpreter, "-c", "import dbus"}, Milliseconds(30'000)).status == 0) return interpreter;
    }
    return std::nullopt;
  }

  // The arguments of the reply, in JSON.
  [[nodiscard]] nlohmann::json busctl(const std::string& method,
                                      std::vector<std::string> arguments = {}) const {
    std::vector<std::string> command = {
        "busctl", "--json=short", "--address=" + stack.busAddress(), "--",
        "call",   kServiceName,   "/app/vesk/native/monitor_audio",  "app.vesk.native.MonitorAudio",
        method};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto result = stack.run(std::move(command), Milliseconds(30'000));
    EXPECT_EQ(result.status, 0) << fileTail(stack.log("busctl"), 5);
    return nlohmann::json::parse(result.output, nullptr, false).value("data", nlohmann::json::array());
  }

  // The processes of the playing program, as the service lists them.
  [[nodiscard]] std::string processes() const {
    const auto reply = busctl("Applications");
    std::string list;
    for (const auto& byte : reply.at(0)) list += static_cast<char>(byte.get<unsigned>());
    for (const auto& program : nlohmann::json::parse(list)) {
      if (program.at("name") == kProgram) return program.at("processes").dump();
    }
    return {};
  }
};

TEST_F(OtherClients, PythonClientHoldsAProgramAtItsGainAndGivesItBackWhenItEnds) {
  const auto interpreter = python();
  if (!interpreter) GTEST_SKIP() << "there is no python3 with the module dbus";
  const std::size_t began = recorder.frames();
  auto client =
      stack.spawn("python", {*interpreter, VESK_END_TO_END_TESTS "/hold_gain.py", kProgram, "0.4"}, true);
  ASSERT_EQ(client.receive(Milliseconds(30'000)), "set") << fileTail(stack.log("python"), 8);
  ASSERT_TRUE(hear(kHeardGain, began).has_value());
  // Past the service's patience with silent clients in the long version.
  recorder.waitSeconds(std::getenv("VESK_LONG") != nullptr ? 12.0 : 1.0);
  EXPECT_TRUE(hear(kHeardGain, recorder.frames() - 4'800).has_value());
  const std::size_t ended = recorder.frames();
  client.closeInput();
  ASSERT_TRUE(client.wait(Milliseconds(10'000)).has_value());
  EXPECT_TRUE(hear(1.0, ended).has_value());
}

TEST_F(OtherClients, OneShotGainOfBusctlIsTakenAndLeavesNormalPlayback) {
  const std::string selection = processes();
  ASSERT_FALSE(selection.empty());
  std::vector<std::string> arguments = {"day", "0.4", std::to_string(selection.size())};
  for (const char character : selection) {
    arguments.push_back(std::to_string(static_cast<unsigned char>(character)));
  }
  EXPECT_EQ(busctl("SetGain", arguments), nlohmann::json::array({""}));
  // Its connection ended with the call, and its routes with the connection.
  Graph graph(stack.remote());
  EXPECT_TRUE(graph.waitUntil(
      [](const GraphView& now) {
        for (const auto* node : now.ofType("Node")) {
          if (node->property("node.name").starts_with("vesk-monitor.")) return false;
        }
        return true;
      },
      Milliseconds(10'000)));
  const std::size_t left = recorder.frames();
  EXPECT_TRUE(hear(1.0, left).has_value());
  recorder.waitSeconds(1.0);
  EXPECT_TRUE(hear(1.0, recorder.frames() - 4'800).has_value());
}

}  // namespace
}  // namespace monitor::lab
