// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ListenerTable.h"

#include <gtest/gtest.h>

#include "Tests/Fakes/VirtualTime.h"

namespace monitor::platform::test {
namespace {

class ListenerTableTest : public testing::Test {
 protected:
  std::shared_ptr<const AudioPropertyListener> counting(int& calls) {
    return std::make_shared<const AudioPropertyListener>([&calls] { ++calls; });
  }

  fakes::VirtualTime time;
  std::shared_ptr<SerialQueue> queue = time.makeQueue();
  ListenerTable table;
  int view = 0;
  int otherView = 0;
};

TEST_F(ListenerTableTest, ListenerRunsOnItsQueueAndNotBefore) {
  int calls = 0;
  table.add({&view, 1, audio::kProcessObjectList, queue, counting(calls)});
  table.notify(1, audio::kProcessObjectList);
  EXPECT_EQ(calls, 0);
  time.run();
  EXPECT_EQ(calls, 1);
}

TEST_F(ListenerTableTest, OnlyListenersOfThatObjectAndAddressRun) {
  int calls = 0;
  table.add({&view, 1, audio::kProcessObjectList, queue, counting(calls)});
  table.notify(2, audio::kProcessObjectList);
  table.notify(1, audio::kDefaultOutputDevice);
  time.run();
  EXPECT_EQ(calls, 0);
}

TEST_F(ListenerTableTest, RemovalTakesOneEqualRegistration) {
  int calls = 0;
  const auto listener = counting(calls);
  const ListenerTable::Registration registration{&view, 1, audio::kProcessObjectList, queue, listener};
  table.add(registration);
  table.add(registration);
  EXPECT_TRUE(table.remove(registration));
  table.notify(1, audio::kProcessObjectList);
  time.run();
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(table.remove(registration));
  EXPECT_FALSE(table.remove(registration));
}

TEST_F(ListenerTableTest, RemovalNeedsTheSameQueueAndListener) {
  int calls = 0;
  const auto listener = counting(calls);
  table.add({&view, 1, audio::kProcessObjectList, queue, listener});
  EXPECT_FALSE(table.remove({&view, 1, audio::kProcessObjectList, time.makeQueue(), listener}));
  EXPECT_FALSE(table.remove({&view, 1, audio::kProcessObjectList, queue, counting(calls)}));
  EXPECT_FALSE(table.remove({&otherView, 1, audio::kProcessObjectList, queue, listener}));
  EXPECT_EQ(table.size(), 1U);
}

TEST_F(ListenerTableTest, ViewTakesItsListenersAlong) {
  int calls = 0;
  int others = 0;
  table.add({&view, 1, audio::kProcessObjectList, queue, counting(calls)});
  table.add({&otherView, 1, audio::kProcessObjectList, queue, counting(others)});
  table.add({&view, 1, audio::kDefaultOutputDevice, queue, counting(calls)});
  table.removeView(&view);
  EXPECT_EQ(table.size(), 1U);
  table.notify(1, audio::kProcessObjectList);
  time.run();
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(others, 1);
}

TEST_F(ListenerTableTest, ListenerMayRemoveItselfWhileItRuns) {
  std::shared_ptr<const AudioPropertyListener> listener;
  ListenerTable::Registration registration;
  listener = std::make_shared<const AudioPropertyListener>([&] { EXPECT_TRUE(table.remove(registration)); });
  registration = {&view, 1, audio::kProcessObjectList, queue, listener};
  table.add(registration);
  table.notify(1, audio::kProcessObjectList);
  time.run();
  EXPECT_EQ(table.size(), 0U);
}

}  // namespace
}  // namespace monitor::platform::test
