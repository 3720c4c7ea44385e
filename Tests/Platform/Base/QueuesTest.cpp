// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/Queues.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Linux/Base/Clocks.h"
#include "Tests/Contract/Event.h"

namespace monitor::platform {
namespace {

using contract::Event;

std::shared_ptr<SerialQueue> makeQueue(const std::string& label,
                                       QualityOfService quality = QualityOfService::UserInitiated) {
  return makeSerialQueueFactory()->makeSerialQueue(label, quality);
}

std::string threadNameOf(SerialQueue& queue) {
  std::array<char, 32> name{};
  Event done;
  queue.submit([&] {
    pthread_getname_np(pthread_self(), name.data(), name.size());
    done.set();
  });
  EXPECT_TRUE(done.wait());
  return name.data();
}

TEST(ThreadQueue, NamesItsThreadAfterTheEndOfTheLabel) {
  EXPECT_EQ(threadNameOf(*makeQueue("short")), "short");
  EXPECT_EQ(threadNameOf(*makeQueue("exactly.fifteen")), "exactly.fifteen");
  EXPECT_EQ(threadNameOf(*makeQueue("app.vesk.monitor.audio")), "monitor.audio");
  EXPECT_EQ(threadNameOf(*makeQueue("withoutanydotinit")), "withoutanydotin");
}

TEST(ThreadQueue, EndsItsThreadWithTheLastReference) {
  ASSERT_TRUE(waitForSerialQueues(0, 20.0));
  {
    std::vector<std::shared_ptr<SerialQueue>> queues;
    for (int i = 0; i < 50; ++i) queues.push_back(makeQueue("many"));
    EXPECT_EQ(liveSerialQueues(), 50U);
    EXPECT_FALSE(waitForSerialQueues(49, 0.0));
    EXPECT_TRUE(waitForSerialQueues(50, 0.0));
  }
  EXPECT_TRUE(waitForSerialQueues(0, 20.0));
}

TEST(ThreadQueue, KeepsTheOrderOfEachThreadThatSubmits) {
  constexpr int kThreads = 4;
  constexpr int kTasks = 2000;
  const auto queue = makeQueue("concurrent");
  std::array<std::vector<int>, kThreads> ran;
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kTasks; ++i) queue->submit([&ran, thread, i] { ran[thread].push_back(i); });
    });
  }
  for (auto& thread : threads) thread.join();
  Event done;
  queue->submit([&] { done.set(); });
  ASSERT_TRUE(done.wait());
  for (const auto& order : ran) {
    ASSERT_EQ(order.size(), static_cast<std::size_t>(kTasks));
    for (int i = 0; i < kTasks; ++i) ASSERT_EQ(order[static_cast<std::size_t>(i)], i);
  }
}

TEST(ThreadQueue, RunsATaskInPlaceWhenItIsIdle) {
  const auto queue = makeQueue("idle");
  std::thread::id ran;
  bool current = false;
  // Its thread may still be on its way to its first sleep, but has no task.
  ASSERT_TRUE(queue->runIfIdle([&] {
    ran = std::this_thread::get_id();
    current = queue->isCurrent();
  }));
  EXPECT_EQ(ran, std::this_thread::get_id());
  EXPECT_TRUE(current);
  EXPECT_FALSE(queue->isCurrent());
}

TEST(ThreadQueue, RunsNothingInPlaceWhileItHasATask) {
  const auto queue = makeQueue("busy");
  Event started;
  Event go;
  Event done;
  queue->submit([&] {
    started.set();
    EXPECT_TRUE(go.wait());
  });
  EXPECT_FALSE(queue->runIfIdle([] { ADD_FAILURE() << "it had a task"; }));
  ASSERT_TRUE(started.wait());
  EXPECT_FALSE(queue->runIfIdle([] { ADD_FAILURE() << "a task was running"; }));
  queue->submit([&] { done.set(); });
  EXPECT_FALSE(queue->runIfIdle([] { ADD_FAILURE() << "two tasks were there"; }));
  go.set();
  ASSERT_TRUE(done.wait());
}

TEST(ThreadQueue, LetsTasksWaitForTheOneInPlace) {
  const auto queue = makeQueue("exclusive");
  std::vector<int> order;  // only tasks of the queue touch it
  Event done;
  const auto inPlace = [&] {
    queue->submit([&] {
      order.push_back(2);
      done.set();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    order.push_back(1);
  };
  ASSERT_TRUE(queue->runIfIdle(inPlace));
  ASSERT_TRUE(done.wait());
  EXPECT_EQ(order, (std::vector{1, 2}));
}

TEST(ThreadQueue, RunsOneTaskAtATimeWhoeverRunsThem) {
  const auto queue = makeQueue("counted");
  constexpr int kRounds = 2000;
  int running = 0;  // unguarded on purpose: the thread sanitizer sees two at a time
  int ran = 0;
  const auto task = [&] {
    EXPECT_EQ(++running, 1);
    ++ran;
    --running;
  };
  int inPlace = 0;
  for (int round = 0; round < kRounds; ++round) {
    if (round % 3 == 0) queue->submit(task);
    inPlace += queue->runIfIdle(task) ? 1 : 0;
  }
  Event done;
  int total = 0;
  queue->submit([&] {
    total = ran;
    done.set();
  });
  ASSERT_TRUE(done.wait());
  EXPECT_EQ(total, inPlace + (kRounds + 2) / 3);
}

TEST(ThreadQueue, IsNotStarvedOfDelaysByTasksThatSubmitTasks) {
  const auto queue = makeQueue("busy");
  bool stop = false;
  Event done;
  std::function<void()> again = [&] {
    if (!stop) queue->submit(again);
  };
  queue->submit(again);
  queue->submitAfter(0.005, [&] {
    stop = true;
    done.set();
  });
  EXPECT_TRUE(done.wait());
  Event over;
  queue->submit([&] { over.set(); });
  EXPECT_TRUE(over.wait());
}

TEST(ThreadQueue, NeverRunsADelayTooEarly) {
  const auto queue = makeQueue("early");
  const MonotonicClock clock;
  for (const double delay : {0.0, 0.0000001, 0.001, 0.0123}) {
    Event done;
    double ranAt = 0.0;
    const double submittedAt = clock.now();
    queue->submitAfter(delay, [&] {
      ranAt = clock.now();
      done.set();
    });
    ASSERT_TRUE(done.wait());
    // The queue counts whole microseconds.
    EXPECT_GE(ranAt - submittedAt, delay - 2e-6) << delay;
  }
}

TEST(ThreadQueue, KeepsDelaysThatNeverComeOutOfTheWay) {
  const auto queue = makeQueue("never");
  bool ran = false;
  for (const double delay : {1e9, 1e300, std::numeric_limits<double>::infinity()}) {
    queue->submitAfter(delay, [&] { ran = true; });
  }
  Event done;
  queue->submitAfter(0.005, [&] { done.set(); });
  ASSERT_TRUE(done.wait());
  EXPECT_FALSE(ran);
}

TEST(ThreadQueue, MergesMissedCallsOfATimerAndKeepsItsGrid) {
  const auto queue = makeQueue("grid");
  constexpr double kInterval = 0.02;
  const MonotonicClock clock;
  std::vector<double> calls;
  Event done;
  double start = 0.0;
  std::unique_ptr<RepeatingTimer> timer;
  queue->submit([&] {
    timer = queue->makeTimer(kInterval, kInterval, [&] {
      calls.push_back(clock.now() - start);
      if (calls.size() == 1) {
        // Misses two calls and the beginning of a third interval.
        while (clock.now() - start < 3.5 * kInterval) std::this_thread::yield();
      }
      if (calls.size() == 3) {
        timer.reset();
        done.set();
      }
    });
    start = clock.now();
    timer->resume();
  });
  ASSERT_TRUE(done.wait());
  // The second call stands for the two that were missed; the third comes where the grid has its next line,
  // not one interval after the late second.
  EXPECT_GE(calls[1], 3.5 * kInterval);
  const double offGrid = calls[2] - kInterval * std::floor(calls[2] / kInterval);
  EXPECT_GE(calls[2], 4.0 * kInterval - 2e-6);
  EXPECT_LT(offGrid, 0.8 * kInterval) << "third call at " << calls[2];
}

TEST(ThreadQueue, CancelsATimerFromAnotherThread) {
  const auto queue = makeQueue("foreign");
  auto owned = std::make_shared<int>();
  const std::weak_ptr<int> watch = owned;
  Event ran;
  auto timer = queue->makeTimer(0.001, 0.001, [&ran, owned = std::move(owned)] { ran.set(); });
  timer->resume();
  ASSERT_TRUE(ran.wait());
  timer.reset();
  Event after;
  queue->submit([&] { after.set(); });
  ASSERT_TRUE(after.wait());
  EXPECT_TRUE(watch.expired());
}

TEST(ThreadQueue, LeavesATimerHarmlessThatOutlivesItsQueue) {
  auto queue = makeQueue("gone");
  const auto timer = queue->makeTimer(1000.0, 1000.0, [] { FAIL(); });
  const auto late = queue->makeTimer(0.0, 1.0, [] { FAIL(); });
  timer->resume();
  queue.reset();
  ASSERT_TRUE(waitForSerialQueues(0, 20.0));
  late->resume();
  timer->cancel();
}

TEST(ThreadQueue, LeavesSignalsToTheMainThread) {
  const auto queue = makeQueue("signals");
  sigset_t blocked;
  sigemptyset(&blocked);
  Event done;
  queue->submit([&] {
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    done.set();
  });
  ASSERT_TRUE(done.wait());
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGCHLD})
    EXPECT_EQ(sigismember(&blocked, signal), 1);
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  EXPECT_EQ(sigismember(&blocked, SIGTERM), 0);
}

TEST(ThreadQueue, RunsUtilityWorkLessUrgently) {
  const auto niceOf = [](QualityOfService quality) {
    const auto queue = makeQueue("nice", quality);
    int nice = 0;
    Event done;
    queue->submit([&] {
      nice = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
      done.set();
    });
    EXPECT_TRUE(done.wait());
    return nice;
  };
  EXPECT_GT(niceOf(QualityOfService::Utility), niceOf(QualityOfService::UserInitiated));
}

TEST(ThreadQueue, HandsNoDescriptorToPrograms) {
  const auto count = [] {
    std::string listed;
    FILE* list = popen("ls /proc/self/fd | wc -l", "r");
    std::array<char, 64> line{};
    while (list != nullptr && fgets(line.data(), static_cast<int>(line.size()), list) != nullptr)
      listed += line.data();
    if (list != nullptr) pclose(list);
    return listed;
  };
  const std::string before = count();
  std::vector<std::shared_ptr<SerialQueue>> queues;
  for (int i = 0; i < 10; ++i) queues.push_back(makeQueue("fork"));
  EXPECT_EQ(count(), before);
  // The programs started meanwhile took nothing away from the queues.
  Event done;
  queues.front()->submit([&] { done.set(); });
  EXPECT_TRUE(done.wait());
}

TEST(MainQueue, RunsEverythingInTheThreadThatRunsIt) {
  MainQueue queue;
  std::string order;
  std::unique_ptr<RepeatingTimer> timer;
  queue.submit([&] {
    timer = queue.makeTimer(0.01, 0.01, [&] {
      order += "timer";
      timer.reset();
      queue.quit();
    });
    timer->resume();
    queue.submitAfter(0.005, [&] { order += "delay "; });
    queue.submit([&] { order += queue.isCurrent() ? "task " : "elsewhere "; });
  });
  EXPECT_FALSE(queue.isCurrent());
  queue.run();
  EXPECT_EQ(order, "task delay timer");
  EXPECT_FALSE(queue.isCurrent());
}

TEST(MainQueue, TakesTasksFromOtherThreads) {
  MainQueue queue;
  int sum = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i)
        queue.submit([&] {
          if (++sum == 400) queue.quit();
        });
    });
  }
  queue.run();
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(sum, 400);
}

TEST(MainQueue, KeepsWhatItHasNotRunForTheNextRun) {
  MainQueue queue;
  std::string order;
  queue.quit();
  queue.submit([&] { order += "a"; });
  queue.run();
  EXPECT_EQ(order, "");
  queue.submitAfter(0.001, [&] {
    order += "b";
    queue.quit();
  });
  queue.run();
  EXPECT_EQ(order, "ab");
}

TEST(MainQueue, RunsItsHandlerForASignal) {
  MainQueue queue;
  int signals = 0;
  queue.handleSignal(SIGUSR1, [&] {
    ++signals;
    queue.quit();
  });
  kill(getpid(), SIGUSR1);
  queue.run();
  EXPECT_EQ(signals, 1);
}

}  // namespace
}  // namespace monitor::platform
