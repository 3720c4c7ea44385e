// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Graph.h"

#include <gtest/gtest.h>

#include <memory>

#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/PrivateStack.h"

namespace monitor::lab {
namespace {

TEST(Graph, GoesOnWhenAnotherOneOfTheProcessEnds) {
  const PrivateStack stack({.pulse = false});
  auto first = std::make_unique<Graph>(stack.remote());
  Graph second(stack.remote());
  first.reset();
  EXPECT_TRUE(second.roundTrip());
  EXPECT_EQ(second.view().defaultSink(), "lab-sink-a");
}

TEST(Graph, AddsAndRemovesSinks) {
  const PrivateStack stack({.pulse = false});
  Graph graph(stack.remote());
  graph.addSink({.name = "late", .priority = 2000});
  EXPECT_TRUE(graph.waitUntil([](const GraphView& now) { return now.defaultSink() == "late"; }));
  graph.removeSink("late");
  EXPECT_TRUE(graph.waitUntil([](const GraphView& now) { return now.defaultSink() == "lab-sink-a"; }));
}

TEST(Graph, TellsStatesLinksAndMetadataOfAPlayer) {
  const PrivateStack stack({.pulse = false});
  Graph graph(stack.remote());
  Player player(stack, {.name = "Seen", .streams = 2});
  const auto playing = [](const GraphView& now) {
    const auto nodes = now.nodesOfClass("Stream/Output/Audio");
    return nodes.size() == 2 && nodes[0]->state == "running" && nodes[1]->state == "running";
  };
  ASSERT_TRUE(graph.waitUntil(playing));
  const auto view = graph.view();
  const auto* stream = view.nodesOfClass("Stream/Output/Audio").front();
  EXPECT_EQ(view.linkCount(stream->id, view.nodeNamed("lab-sink-a")->id), 2U);
  EXPECT_EQ(view.objects.at(stream->number("client.id")).property("pipewire.sec.pid"),
            std::to_string(player.pid()));
  graph.setMetadata(stream->id, "target.object", "Spa:String", "lab-sink-b");
  EXPECT_EQ(graph.view().metadataValue(stream->id, "target.object"), "lab-sink-b");
  player.pause();
  EXPECT_TRUE(
      graph.waitUntil([&](const GraphView& now) { return now.objects.at(stream->id).state == "idle"; }));
  player.resume();
  EXPECT_TRUE(graph.waitUntil(playing));
  player.close();
  EXPECT_TRUE(graph.waitUntil(
      [](const GraphView& now) { return now.nodesOfClass("Stream/Output/Audio").size() == 1; }));
}

TEST(Graph, NoticesTheEndOfTheServer) {
  PrivateStack stack({.pulse = false});
  Graph graph(stack.remote());
  stack.kill(Daemon::PipeWire);
  EXPECT_FALSE(graph.waitUntil([](const GraphView&) { return false; }));
  EXPECT_FALSE(graph.connected());
  EXPECT_THROW(Graph(stack.remote()), LabError);
}

TEST(Player, RunsInAPidNamespaceOfItsOwn) {
  const PrivateStack stack;
  Graph graph(stack.remote());
  for (const auto kind : {PlayerKind::Native, PlayerKind::Pulse}) {
    const Player player(stack, {.kind = kind, .ownPidNamespace = true});
    EXPECT_EQ(player.ownPid(), 1);
    EXPECT_GT(player.pid(), 1);
  }
}

}  // namespace
}  // namespace monitor::lab
