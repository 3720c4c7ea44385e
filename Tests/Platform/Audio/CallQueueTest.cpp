// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/CallQueue.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>

namespace monitor::platform::test {
namespace {

using std::chrono::milliseconds;
using Clock = CallQueue::Clock;

class CallQueueTest : public testing::Test {
 protected:
  CallQueueTest() { thread.start(); }
  ~CallQueueTest() override { thread.stop(); }

  AudioOutcome run(CallQueue::Operation operation, milliseconds patience = milliseconds{5000}) {
    return calls.run(std::move(operation), Clock::now() + patience);
  }
  // Runs on the loop and waits for it.
  void onLoop(const std::function<void()>& task) {
    std::promise<void> done;
    thread.post([&] {
      task();
      done.set_value();
    });
    done.get_future().wait();
  }

  LoopThread thread;
  CallQueue calls{thread};
  std::atomic<int> undone{0};
};

TEST_F(CallQueueTest, CallWithoutAWaitIsDoneWithItsBeginning) {
  bool begun = false;
  EXPECT_TRUE(run({.begin =
                       [&] {
                         begun = true;
                         return AudioOutcome{};
                       },
                   .undo = [&] { ++undone; }})
                  .ok());
  EXPECT_TRUE(begun);
  EXPECT_EQ(undone, 0);
}

TEST_F(CallQueueTest, FailedBeginningIsTheOutcomeAndIsNotUndone) {
  const auto outcome =
      run({.begin = [] { return AudioOutcome::failure(-16, "busy"); }, .undo = [&] { ++undone; }});
  EXPECT_EQ(outcome.status, -16);
  EXPECT_EQ(outcome.text, "busy");
  EXPECT_EQ(undone, 0);
}

TEST_F(CallQueueTest, CallIsAskedAgainAfterEveryChangeUntilItAnswers) {
  std::atomic<int> asked{0};
  auto answer = std::async(std::launch::async, [&] {
    return run({.begin = [] { return AudioOutcome{}; },
                .poll = [&]() -> std::optional<AudioOutcome> {
                  if (++asked < 3) return std::nullopt;
                  return AudioOutcome{};
                },
                .undo = [&] { ++undone; }});
  });
  while (asked < 1) std::this_thread::yield();
  while (asked < 3) onLoop([&] { calls.poll(); });
  EXPECT_TRUE(answer.get().ok());
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(undone, 0);
}

TEST_F(CallQueueTest, FailureWhileWaitingIsUndone) {
  const auto outcome = run({.begin = [] { return AudioOutcome{}; },
                            .poll = [] { return std::optional{AudioOutcome::failure(-5, "refused")}; },
                            .undo = [&] { ++undone; }});
  EXPECT_EQ(outcome.status, -5);
  EXPECT_EQ(undone, 1);
}

TEST_F(CallQueueTest, CallThatIsNeverAnsweredTimesOutBeforeItsDeadlineAndIsUndone) {
  const auto begin = Clock::now();
  const auto outcome = run({.begin = [] { return AudioOutcome{}; },
                            .poll = []() -> std::optional<AudioOutcome> { return std::nullopt; },
                            .undo = [&] { ++undone; }},
                           milliseconds{200});
  EXPECT_EQ(outcome.status, audiostatus::kTimedOut);
  EXPECT_EQ(undone, 1) << "undone before the caller is told";
  EXPECT_LE(Clock::now() - begin, milliseconds{400});
}

TEST_F(CallQueueTest, CallerDoesNotWaitForALoopThatHangsAndNothingIsBegunLater) {
  std::promise<void> release;
  thread.post([&] { release.get_future().wait(); });
  std::atomic<bool> begun{false};
  const auto outcome = run({.begin =
                                [&] {
                                  begun = true;
                                  return AudioOutcome{};
                                }},
                           milliseconds{50});
  EXPECT_EQ(outcome.status, audiostatus::kTimedOut);
  release.set_value();
  onLoop([] {});
  EXPECT_FALSE(begun);
}

TEST_F(CallQueueTest, CallThatEndsSomethingIsCarriedOutHoweverLate) {
  std::promise<void> release;
  thread.post([&] { release.get_future().wait(); });
  std::atomic<int> begun{0};
  const auto outcome = run({.begin =
                                [&] {
                                  ++begun;
                                  return AudioOutcome{};
                                },
                            .poll = []() -> std::optional<AudioOutcome> { return std::nullopt; },
                            .undo = [&] { ++undone; },
                            .evenLate = true},
                           milliseconds{50});
  EXPECT_EQ(outcome.status, audiostatus::kTimedOut);
  release.set_value();
  onLoop([] {});
  EXPECT_EQ(begun, 1);
  EXPECT_EQ(undone, 1) << "there is no time left to wait for it";
}

TEST_F(CallQueueTest, SuccessThatNobodyWaitsForAnyLongerIsUndone) {
  std::promise<void> release;
  const auto outcome = run({.begin =
                                [&] {
                                  release.get_future().wait();
                                  return AudioOutcome{};
                                },
                            .undo = [&] { ++undone; }},
                           milliseconds{50});
  EXPECT_EQ(outcome.status, audiostatus::kTimedOut);
  release.set_value();
  onLoop([] {});
  EXPECT_EQ(undone, 1);
}

TEST_F(CallQueueTest, LostConnectionAnswersEveryWaitingCallWithoutUndoing) {
  std::vector<std::future<AudioOutcome>> answers;
  std::atomic<int> waiting{0};
  for (int index = 0; index < 3; ++index) {
    answers.push_back(std::async(std::launch::async, [&] {
      return run({.begin =
                      [&] {
                        ++waiting;
                        return AudioOutcome{};
                      },
                  .poll = []() -> std::optional<AudioOutcome> { return std::nullopt; },
                  .undo = [&] { ++undone; }});
    }));
  }
  while (waiting < 3) std::this_thread::yield();
  onLoop([&] { calls.failAll(AudioOutcome::failure(audiostatus::kServerGone, "gone")); });
  for (auto& answer : answers) EXPECT_EQ(answer.get().status, audiostatus::kServerGone);
  EXPECT_EQ(undone, 0);
}

TEST(LoopThread, RunsTasksInTheirOrderAndDropsThoseLeftWhenItStops) {
  LoopThread thread;
  std::vector<int> order;
  for (int number = 0; number < 5; ++number) thread.post([&order, number] { order.push_back(number); });
  thread.start();
  std::promise<void> done;
  thread.post([&] { done.set_value(); });
  done.get_future().wait();
  thread.stop();
  thread.post([&] { order.push_back(99); });
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(LoopThread, TellsWhenAProcessEnds) {
  LoopThread thread;
  const pid_t child = fork();
  if (child == 0) {
    pause();
    _exit(0);
  }
  std::promise<void> ended;
  auto watch = ProcessEndWatch::open(thread.loop(), child, [&] { ended.set_value(); });
  if (watch == nullptr) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    GTEST_SKIP() << "this kernel gives no descriptors of processes";
  }
  thread.start();
  kill(child, SIGKILL);
  EXPECT_EQ(ended.get_future().wait_for(milliseconds{5000}), std::future_status::ready);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(ProcessEndWatch::open(thread.loop(), child, [] {}), nullptr) << "it has ended already";
  thread.stop();
}

}  // namespace
}  // namespace monitor::platform::test
