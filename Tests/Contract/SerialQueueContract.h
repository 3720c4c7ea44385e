// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "MonitorCore/Ports/SerialQueue.h"
#include "Tests/Contract/Event.h"

namespace monitor::contract {

// What every SerialQueue does. The harness has
//   std::shared_ptr<SerialQueue> makeQueue(std::string label);
//   bool await(Event&);   lets tasks run and time pass until the event has happened
//   double unit();        seconds that are short for the test and long for the queue
template <class Harness>
class SerialQueueContract : public testing::Test {
 protected:
  Harness harness;
};
TYPED_TEST_SUITE_P(SerialQueueContract);

TYPED_TEST_P(SerialQueueContract, KeepsItsLabel) {
  EXPECT_EQ(this->harness.makeQueue("app.vesk.test.label")->label(), "app.vesk.test.label");
}

TYPED_TEST_P(SerialQueueContract, RunsTasksInTheOrderOfSubmission) {
  const auto queue = this->harness.makeQueue("order");
  std::vector<int> ran;
  Event done;
  for (int i = 0; i < 1000; ++i) queue->submit([&ran, i] { ran.push_back(i); });
  queue->submit([&] { done.set(); });
  ASSERT_TRUE(this->harness.await(done));
  ASSERT_EQ(ran.size(), 1000U);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(ran[static_cast<std::size_t>(i)], i);
}

TYPED_TEST_P(SerialQueueContract, NeverRunsATaskInsideSubmit) {
  const auto queue = this->harness.makeQueue("nested");
  std::string order;
  Event done;
  queue->submit([&] {
    queue->submit([&] {
      order += "inner";
      done.set();
    });
    order += "outer ";
  });
  ASSERT_TRUE(this->harness.await(done));
  EXPECT_EQ(order, "outer inner");
}

TYPED_TEST_P(SerialQueueContract, IsCurrentInsideItsOwnTasksOnly) {
  const auto queue = this->harness.makeQueue("one");
  const auto other = this->harness.makeQueue("two");
  bool own = false;
  bool foreign = true;
  Event done;
  EXPECT_FALSE(queue->isCurrent());
  queue->submit([&] {
    own = queue->isCurrent();
    foreign = other->isCurrent();
    done.set();
  });
  ASSERT_TRUE(this->harness.await(done));
  EXPECT_TRUE(own);
  EXPECT_FALSE(foreign);
}

TYPED_TEST_P(SerialQueueContract, RunsDelayedTasksInTheOrderOfTheirTimes) {
  const auto queue = this->harness.makeQueue("delays");
  const double unit = this->harness.unit();
  std::string order;
  Event done;
  // Submitted in one task, so that all delays count from nearly the same moment.
  queue->submit([&] {
    queue->submitAfter(3 * unit, [&] {
      order += "3";
      done.set();
    });
    queue->submitAfter(2 * unit, [&] { order += "2"; });
    queue->submitAfter(1 * unit, [&] { order += "1"; });
    queue->submit([&] { order += "0"; });
  });
  ASSERT_TRUE(this->harness.await(done));
  EXPECT_EQ(order, "0123");
}

TYPED_TEST_P(SerialQueueContract, RunsADelayWithoutLengthSoon) {
  const auto queue = this->harness.makeQueue("zero");
  Event zero;
  Event negative;
  queue->submitAfter(0.0, [&] { zero.set(); });
  queue->submitAfter(-1.0, [&] { negative.set(); });
  EXPECT_TRUE(this->harness.await(zero));
  EXPECT_TRUE(this->harness.await(negative));
}

TYPED_TEST_P(SerialQueueContract, RunsWhatWasSubmittedBeforeTheLastReferenceWent) {
  auto queue = this->harness.makeQueue("last");
  Event first;
  Event last;
  queue->submit([&] { first.set(); });
  queue->submit([&] { last.set(); });
  queue.reset();
  EXPECT_TRUE(this->harness.await(first));
  EXPECT_TRUE(this->harness.await(last));
}

TYPED_TEST_P(SerialQueueContract, DropsDelayedTasksWithTheLastReference) {
  auto queue = this->harness.makeQueue("dropped");
  const auto witness = this->harness.makeQueue("witness");
  const auto owned = std::make_shared<int>();
  Event ran;
  Event later;
  queue->submitAfter(this->harness.unit(), [&ran, owned] { ran.set(); });
  queue.reset();
  witness->submitAfter(4 * this->harness.unit(), [&] { later.set(); });
  ASSERT_TRUE(this->harness.await(later));
  EXPECT_FALSE(ran.happened());
}

TYPED_TEST_P(SerialQueueContract, MayLoseItsLastReferenceInItsOwnTask) {
  auto queue = this->harness.makeQueue("self");
  auto holder = std::make_shared<std::shared_ptr<SerialQueue>>(queue);
  Event after;
  queue->submit([holder] { holder->reset(); });
  queue->submit([&] { after.set(); });
  queue.reset();
  EXPECT_TRUE(this->harness.await(after));
}

TYPED_TEST_P(SerialQueueContract, ReleasesATaskOnceItHasRun) {
  const auto queue = this->harness.makeQueue("release");
  auto owned = std::make_shared<int>();
  const std::weak_ptr<int> watch = owned;
  bool releasedBeforeNext = false;
  Event done;
  queue->submit([owned = std::move(owned)] {});
  queue->submit([&] {
    releasedBeforeNext = watch.expired();
    done.set();
  });
  ASSERT_TRUE(this->harness.await(done));
  EXPECT_TRUE(releasedBeforeNext);
}

TYPED_TEST_P(SerialQueueContract, StartsATimerOnlyWhenResumed) {
  const auto queue = this->harness.makeQueue("suspended");
  Event ran;
  Event later;
  const auto timer = queue->makeTimer(0.0, this->harness.unit(), [&] { ran.set(); });
  queue->submitAfter(4 * this->harness.unit(), [&] { later.set(); });
  ASSERT_TRUE(this->harness.await(later));
  EXPECT_FALSE(ran.happened());
  timer->resume();
  EXPECT_TRUE(this->harness.await(ran));
}

TYPED_TEST_P(SerialQueueContract, RepeatsATimerOnItsQueue) {
  const auto queue = this->harness.makeQueue("repeats");
  int calls = 0;
  bool current = true;
  Event third;
  const auto timer = queue->makeTimer(this->harness.unit(), this->harness.unit(), [&] {
    current = current && queue->isCurrent();
    if (++calls == 3) third.set();
  });
  timer->resume();
  ASSERT_TRUE(this->harness.await(third));
  Event stopped;
  queue->submit([&] {
    timer->cancel();
    stopped.set();
  });
  ASSERT_TRUE(this->harness.await(stopped));
  EXPECT_GE(calls, 3);
  EXPECT_TRUE(current);
}

TYPED_TEST_P(SerialQueueContract, NeverCallsATimerAgainThatWasCancelledOnItsQueue) {
  const auto queue = this->harness.makeQueue("cancel");
  const double unit = this->harness.unit();
  int calls = 0;
  std::unique_ptr<RepeatingTimer> timer;
  Event later;
  queue->submit([&] {
    timer = queue->makeTimer(unit, unit, [&] {
      ++calls;
      timer->cancel();
      queue->submitAfter(4 * unit, [&] { later.set(); });
    });
    timer->resume();
  });
  ASSERT_TRUE(this->harness.await(later));
  EXPECT_EQ(calls, 1);
}

TYPED_TEST_P(SerialQueueContract, LetsATimerBeDestroyedByItsOwnHandler) {
  const auto queue = this->harness.makeQueue("destroy");
  const double unit = this->harness.unit();
  int calls = 0;
  std::unique_ptr<RepeatingTimer> timer;
  Event later;
  queue->submit([&] {
    timer = queue->makeTimer(unit, unit, [&] {
      ++calls;
      timer.reset();
      queue->submitAfter(4 * unit, [&] { later.set(); });
    });
    timer->resume();
  });
  ASSERT_TRUE(this->harness.await(later));
  EXPECT_EQ(calls, 1);
}

REGISTER_TYPED_TEST_SUITE_P(SerialQueueContract, KeepsItsLabel, RunsTasksInTheOrderOfSubmission,
                            NeverRunsATaskInsideSubmit, IsCurrentInsideItsOwnTasksOnly,
                            RunsDelayedTasksInTheOrderOfTheirTimes, RunsADelayWithoutLengthSoon,
                            RunsWhatWasSubmittedBeforeTheLastReferenceWent,
                            DropsDelayedTasksWithTheLastReference, MayLoseItsLastReferenceInItsOwnTask,
                            ReleasesATaskOnceItHasRun, StartsATimerOnlyWhenResumed, RepeatsATimerOnItsQueue,
                            NeverCallsATimerAgainThatWasCancelledOnItsQueue,
                            LetsATimerBeDestroyedByItsOwnHandler);

}  // namespace monitor::contract
