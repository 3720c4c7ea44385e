// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ProcessObjects.h"

#include <gtest/gtest.h>

#include "Platform/Linux/Audio/ClientProcess.h"
#include "Tests/Platform/Audio/GraphFixture.h"

namespace monitor::platform::test {
namespace {

class ProcessObjectsTest : public testing::Test {
 protected:
  bool update() { return objects.update(fixture.graph); }
  [[nodiscard]] std::vector<std::int32_t> pids() const {
    std::vector<std::int32_t> result;
    for (const auto& object : objects.objects()) result.push_back(object.pid);
    return result;
  }

  GraphFixture fixture;
  ObjectIDs ids;
  int resolved = 0;
  int unresolved = 0;
  ProcessObjects objects{ids,
                         [this](const GraphClient& client) -> std::optional<std::int32_t> {
                           ++resolved;
                           const auto pid = propertyNumber(client.properties, "pipewire.sec.pid");
                           if (!pid) return std::nullopt;
                           return static_cast<std::int32_t>(*pid);
                         },
                         [this](const GraphClient&) { ++unresolved; }};
};

TEST_F(ProcessObjectsTest, ClientWithoutAPlaybackStreamIsNoObject) {
  fixture.addNativeClient(10);
  EXPECT_FALSE(update());
  EXPECT_TRUE(pids().empty());
  EXPECT_EQ(resolved, 0) << "clients that never play cost no lookup";
}

TEST_F(ProcessObjectsTest, ProcessStaysListedBetweenItsStreams) {
  const GlobalID client = fixture.addNativeClient(10);
  const GlobalID stream = fixture.addStream(client);
  EXPECT_TRUE(update());
  const AudioObjectID id = objects.objects().at(0).id;
  fixture.graph.removeGlobal(stream);
  EXPECT_FALSE(update());
  fixture.addStream(client);
  EXPECT_FALSE(update());
  EXPECT_EQ(objects.objects().at(0).id, id);
  EXPECT_EQ(resolved, 1);
}

TEST_F(ProcessObjectsTest, ProcessGoesWithItsLastClientThatHasPlayed) {
  const GlobalID first = fixture.addNativeClient(10);
  const GlobalID second = fixture.addNativeClient(10);
  const GlobalID silent = fixture.addNativeClient(10);
  fixture.addStream(first);
  fixture.addStream(second);
  update();
  EXPECT_EQ(pids(), std::vector<std::int32_t>{10});
  fixture.graph.removeGlobal(first);
  EXPECT_FALSE(update());
  fixture.graph.removeGlobal(second);
  EXPECT_TRUE(update());
  EXPECT_TRUE(pids().empty()) << "a client that never played does not keep the process, id " << silent;
}

TEST_F(ProcessObjectsTest, ProcessThatEndedGoesThoughItsClientIsStillThere) {
  const GlobalID client = fixture.addNativeClient(10);
  const GlobalID stream = fixture.addStream(client);
  update();
  EXPECT_TRUE(objects.processEnded(10));
  EXPECT_FALSE(objects.processEnded(10));
  EXPECT_FALSE(update());
  EXPECT_TRUE(pids().empty());
  EXPECT_EQ(objects.objectOfStream(fixture.graph, *fixture.graph.node(stream)), nullptr);
}

TEST_F(ProcessObjectsTest, ReusedPidIsANewObject) {
  fixture.addStream(fixture.addNativeClient(10));
  update();
  const AudioObjectID before = objects.objects().at(0).id;
  objects.processEnded(10);
  fixture.addStream(fixture.addNativeClient(10));
  EXPECT_TRUE(update());
  EXPECT_NE(objects.objects().at(0).id, before);
}

TEST_F(ProcessObjectsTest, RunningIsTrueWhileAnyStreamRuns) {
  const GlobalID client = fixture.addNativeClient(10);
  const GlobalID first = fixture.addStream(client);
  const GlobalID second = fixture.addStream(fixture.addNativeClient(10));
  update();
  EXPECT_FALSE(objects.objectOfPid(10)->running);
  fixture.graph.setNodeState(first, NodeState::Running);
  fixture.graph.setNodeState(second, NodeState::Running);
  EXPECT_TRUE(update()) << "a change of running is a change";
  EXPECT_TRUE(objects.objectOfPid(10)->running);
  fixture.graph.setNodeState(first, NodeState::Idle);
  EXPECT_FALSE(update());
  fixture.graph.setNodeState(second, NodeState::Suspended);
  EXPECT_TRUE(update());
  EXPECT_FALSE(objects.objectOfPid(10)->running);
}

TEST_F(ProcessObjectsTest, StreamWaitsForTheDescriptionOfItsClient) {
  GraphModel& graph = fixture.graph;
  graph.addGlobal(5, GlobalKind::Client, {{"pipewire.sec.pid", "10"}}, 0);
  const GlobalID stream = fixture.addStream(5);
  EXPECT_FALSE(update());
  graph.describeClient(5, {{"pipewire.sec.pid", "10"}});
  EXPECT_TRUE(update());
  EXPECT_EQ(objects.objectOfStream(graph, *graph.node(stream))->pid, 10);
}

TEST_F(ProcessObjectsTest, UnknownProcessIsNotListedAndToldOnce) {
  const GlobalID client = fixture.addClient({{"application.name", "x"}});
  const GlobalID stream = fixture.addStream(client);
  update();
  fixture.graph.removeGlobal(stream);
  update();
  fixture.addStream(client);
  update();
  EXPECT_TRUE(pids().empty());
  EXPECT_EQ(unresolved, 1);
}

TEST_F(ProcessObjectsTest, StreamOfNobodyBelongsToNobody) {
  fixture.addNode({{"media.class", "Stream/Output/Audio"}});
  fixture.addNode({{"media.class", "Stream/Output/Audio"}, {"client.id", "9999"}});
  fixture.addNode({{"media.class", "Stream/Output/Audio"}, {"client.id", "4294967295"}});
  EXPECT_FALSE(update());
}

TEST_F(ProcessObjectsTest, ClearedObjectsComeBackUnderNewIds) {
  fixture.addStream(fixture.addNativeClient(10));
  update();
  const AudioObjectID before = objects.objects().at(0).id;
  objects.clear();
  EXPECT_TRUE(pids().empty());
  EXPECT_TRUE(update());
  EXPECT_NE(objects.objects().at(0).id, before);
  EXPECT_EQ(objects.object(before), nullptr);
}

TEST_F(ProcessObjectsTest, IdsAreNeverThoseOfNothingOrTheSystem) {
  for (int pid = 1; pid <= 3; ++pid) fixture.addStream(fixture.addNativeClient(pid));
  update();
  for (const auto& object : objects.objects()) EXPECT_GT(object.id, audio::kSystemObject);
}

}  // namespace
}  // namespace monitor::platform::test
