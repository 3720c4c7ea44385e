// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ObjectTable.h"

#include <gmock/gmock.h>

#include <thread>

#include "Platform/Linux/Audio/AudioSystem.h"

namespace monitor::platform::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using State = PipeWireConnection::State;

ObjectTable readyTable() {
  ObjectTable table;
  table.state = State::Ready;
  table.processes = {{2, 10, false}, {3, 11, true}};
  table.devices[4] = {50, 1, "a", graphFormat(48000, 2)};
  table.defaultDevice = 4;
  return table;
}

TEST(ChangedProperties, EqualTablesChangeNothing) {
  EXPECT_THAT(changedProperties(readyTable(), readyTable()), IsEmpty());
}

TEST(ChangedProperties, ProcessThatBeginsToRunChangesTheListToo) {
  ObjectTable after = readyTable();
  after.processes[0].running = true;
  EXPECT_THAT(changedProperties(readyTable(), after),
              ElementsAre(Pair(audio::kSystemObject, audio::kProcessObjectList),
                          Pair(2U, audio::kProcessIsRunningOutput)));
}

TEST(ChangedProperties, OutputIsToldBeforeTheProcesses) {
  ObjectTable after = readyTable();
  after.processes.pop_back();
  after.devices.clear();
  after.defaultDevice = 0;
  EXPECT_THAT(changedProperties(readyTable(), after),
              ElementsAre(Pair(audio::kSystemObject, audio::kDefaultOutputDevice),
                          Pair(audio::kSystemObject, audio::kProcessObjectList)));
}

TEST(ChangedProperties, FormatOfADeviceThatStays) {
  ObjectTable after = readyTable();
  after.devices[4].format = graphFormat(44100, 2);
  EXPECT_THAT(changedProperties(readyTable(), after), ElementsAre(Pair(4U, audio::kStreamFormat)));
}

TEST(PublishedTable, WaitsUntilTheTableIsSettled) {
  PublishedTable published;
  std::thread publisher{[&] { published.publish(readyTable()); }};
  const auto table = published.waitFor([](const ObjectTable& each) { return each.state == State::Ready; },
                                       std::chrono::steady_clock::now() + std::chrono::seconds{5});
  EXPECT_EQ(table->state, State::Ready);
  publisher.join();
}

TEST(PublishedTable, GivesTheNewestTableWhenTheDeadlineComesFirst) {
  const PublishedTable published;
  const auto table = published.waitFor([](const ObjectTable&) { return false; },
                                       std::chrono::steady_clock::now() - std::chrono::seconds{1});
  EXPECT_EQ(table->state, State::Connecting);
}

TEST(PublishedTable, TableInHandIsNotChangedByALaterOne) {
  PublishedTable published;
  published.publish(readyTable());
  const auto before = published.current();
  published.publish({});
  EXPECT_EQ(before->processes.size(), 2U);
  EXPECT_THAT(published.current()->processes, IsEmpty());
}

TEST(ObjectTable, KnowsItsObjects) {
  ObjectTable table = readyTable();
  table.taps[7] = graphFormat(48000, 2);
  table.aggregates[8] = "uid";
  for (const AudioObjectID id : {1U, 2U, 3U, 4U, 7U, 8U}) EXPECT_TRUE(table.exists(id)) << id;
  for (const AudioObjectID id : {0U, 5U, 9U}) EXPECT_FALSE(table.exists(id)) << id;
}

}  // namespace
}  // namespace monitor::platform::test
