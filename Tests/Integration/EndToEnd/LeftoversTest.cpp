// SPDX-License-Identifier: MIT
// What a service that was killed leaves in the audio server, and what the next one does about it.
#include <gmock/gmock.h>

#include <csignal>
#include <string>

#include "Tests/Integration/EndToEnd/Playground.h"
#include "Tools/AudioLab/Graph.h"

namespace monitor::lab {
namespace {

class Leftovers : public Playground {
 protected:
  // Kills the service and, before it can start another one, the agent.
  void killServiceAndAgent() const {
    const pid_t serving = service();
    const pid_t holding = agent();
    ASSERT_NE(serving, 0);
    ASSERT_NE(holding, 0);
    ASSERT_EQ(::kill(holding, SIGSTOP), 0);
    ASSERT_EQ(::kill(serving, SIGKILL), 0);
    ASSERT_EQ(::kill(holding, SIGKILL), 0);
  }
};

bool isOurs(const std::string& name) {
  return name.starts_with("vesk-monitor.");
}

bool hasOurNodes(const GraphView& now) {
  for (const auto* node : now.ofType("Node")) {
    if (isOurs(node->property("node.name"))) return true;
  }
  return false;
}

TEST_F(Leftovers, OfAServiceThatWasKilledAreRemovedByTheNextStart) {
  Graph graph(stack.remote());
  const std::uint32_t stream = graph.view().nodesOfClass("Stream/Output/Audio").front()->id;
  const auto target = [stream](const GraphView& now) { return now.metadataValue(stream, "target.object"); };
  // With an output of the user's own choice, so that the session manager does not tidy up by itself.
  graph.setMetadata(stream, "target.object", "Spa:Id",
                    graph.view().nodeNamed("lab-sink-a")->property("object.serial"));
  const std::size_t asked = recorder.frames();
  setGain("40%");
  ASSERT_TRUE(hear(static_cast<double>(0.4F), asked).has_value());
  ASSERT_TRUE(isOurs(target(graph.view())));

  const std::size_t killed = recorder.frames();
  killServiceAndAgent();
  ASSERT_TRUE(hear(1.0, killed).has_value());
  EXPECT_TRUE(graph.waitUntil([](const GraphView& now) { return !hasOurNodes(now); }));
  ASSERT_TRUE(isOurs(target(graph.view()))) << "nothing is left to be removed";

  EXPECT_EQ(vesk({"apps"}).status, 0);
  EXPECT_TRUE(
      graph.waitUntil([&](const GraphView& now) { return !isOurs(target(now)); }, Milliseconds(10'000)))
      << target(graph.view());
  const std::size_t swept = recorder.frames();
  EXPECT_TRUE(hear(1.0, swept).has_value());
  // And the program can be set as before.
  setGain("40%");
  EXPECT_TRUE(hear(static_cast<double>(0.4F), swept).has_value());
}

}  // namespace
}  // namespace monitor::lab
