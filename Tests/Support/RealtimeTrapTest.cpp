// SPDX-License-Identifier: MIT
#include "Tests/Support/RealtimeTrap.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace monitor::test {
namespace {

// Keeps the optimiser from removing a pair of new and delete.
void use(void* memory) {
  asm volatile("" : : "g"(memory) : "memory");
}

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

// What a body allocates and a test frees behind the section.
using Memory = std::unique_ptr<void, Free>;

using Names = std::vector<std::string>;

Names caughtIn(const std::function<void()>& body) {
  Names names;
  for (const RealtimeViolation& violation : runUnderRealtimeTrap(body)) names.push_back(violation.what);
  return names;
}

// Without the system calls by which an allocator may get its memory.
Names allocationsIn(const std::function<void()>& body) {
  Names names;
  for (const RealtimeViolation& violation : runUnderRealtimeTrap(body)) {
    if (violation.offence == RealtimeOffence::Allocation) names.push_back(violation.what);
  }
  return names;
}

// Leaves a test that needs what this build cannot catch, and says why.
#define SKIP_UNLESS_CAUGHT(offence) \
  if (const std::string gap = realtimeTrapGap(offence); !gap.empty()) GTEST_SKIP() << gap

TEST(RealtimeTrapTest, HarmlessCodeIsNotReported) {
  std::atomic<int> counter{0};
  std::array<float, 512> samples{};
  EXPECT_EQ(caughtIn([&] {
              for (float& sample : samples) sample = sample * 0.5F + 1.0F;
              std::memset(samples.data(), 0, sizeof samples);
              counter.fetch_add(1);
            }),
            Names{});
  EXPECT_EQ(counter, 1);
}

TEST(RealtimeTrapTest, AllocationsAreCaught) {
  Memory memory;
  EXPECT_EQ(allocationsIn([&] { memory.reset(std::malloc(100)); }), Names{"malloc"});
  EXPECT_EQ(allocationsIn([&] { memory.reset(); }), Names{"free"});
  EXPECT_EQ(allocationsIn([] {
              auto owned = std::make_unique<int>(1);
              use(owned.get());
            }),
            (Names{"malloc", "free"}));
  EXPECT_EQ(allocationsIn([] {
              std::vector<int> vector(1000);
              use(vector.data());
            }),
            (Names{"malloc", "free"}));
  EXPECT_EQ(allocationsIn([] { std::free(nullptr); }), Names{});
}

TEST(RealtimeTrapTest, ZeroedAndResizedMemoryIsCaught) {
  Memory memory;
  EXPECT_EQ(allocationsIn([&] { memory.reset(std::calloc(3, 5)); }).size(), 1U);
  EXPECT_GE(allocationsIn([&] { memory.reset(std::realloc(memory.release(), 4096)); }).size(), 1U);
}

TEST(RealtimeTrapTest, AlignedMemoryIsCaughtAndAligned) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << realtimeTrapGaps().front();
#endif
  Memory memory;
  EXPECT_EQ(allocationsIn([&] { memory.reset(std::aligned_alloc(64, 640)); }).size(), 1U);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.get()) % 64, 0U);
  void* other = nullptr;
  EXPECT_EQ(allocationsIn([&] { EXPECT_EQ(posix_memalign(&other, 128, 640), 0); }).size(), 1U);
  memory.reset(other);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.get()) % 128, 0U);
}

TEST(RealtimeTrapTest, LocksAreCaught) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::Lock);
  std::mutex mutex;
  EXPECT_EQ(caughtIn([&] { const std::lock_guard guard(mutex); }),
            (Names{"pthread_mutex_lock", "pthread_mutex_unlock"}));
  EXPECT_EQ(caughtIn([&] {
              if (mutex.try_lock()) mutex.unlock();
            }),
            (Names{"pthread_mutex_trylock", "pthread_mutex_unlock"}));
  std::shared_mutex shared;
  EXPECT_EQ(caughtIn([&] { const std::shared_lock guard(shared); }),
            (Names{"pthread_rwlock_rdlock", "pthread_rwlock_unlock"}));
  EXPECT_EQ(caughtIn([&] { const std::unique_lock guard(shared); }),
            (Names{"pthread_rwlock_wrlock", "pthread_rwlock_unlock"}));
}

TEST(RealtimeTrapTest, ConditionsAndSemaphoresAreCaught) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::Lock);
  std::condition_variable condition;
  EXPECT_EQ(caughtIn([&] { condition.notify_all(); }), Names{"pthread_cond_broadcast"});
  EXPECT_EQ(caughtIn([&] { condition.notify_one(); }), Names{"pthread_cond_signal"});
  sem_t semaphore;
  ASSERT_EQ(sem_init(&semaphore, 0, 1), 0);
  EXPECT_EQ(caughtIn([&] {
              sem_wait(&semaphore);
              sem_trywait(&semaphore);
              sem_post(&semaphore);
            }),
            (Names{"sem_wait", "sem_trywait", "sem_post"}));
  sem_destroy(&semaphore);
}

TEST(RealtimeTrapTest, WaitingForAConditionIsCaughtAndStillWaits) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::Lock);
  std::mutex mutex;
  std::condition_variable condition;
  std::unique_lock lock(mutex, std::defer_lock);
  const Names names = caughtIn([&] {
    lock.lock();
    condition.wait_for(lock, std::chrono::milliseconds(1));
    lock.unlock();
  });
  EXPECT_NE(std::find(names.begin(), names.end(), "pthread_cond_clockwait"), names.end());
}

TEST(RealtimeTrapTest, SystemCallIsCaughtByNameAndStillDone) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::SystemCall);
  std::array<int, 2> pipe{};
  ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
  ssize_t written = 0;
  EXPECT_EQ(caughtIn([&] { written = write(pipe[1], "abc", 3); }), Names{"system call 1 (write)"});
  EXPECT_EQ(written, 3);
  std::array<char, 8> text{};
  EXPECT_EQ(read(pipe[0], text.data(), text.size()), 3);
  EXPECT_STREQ(text.data(), "abc");
  close(pipe[0]);
  close(pipe[1]);
}

TEST(RealtimeTrapTest, FailingSystemCallKeepsItsError) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::SystemCall);
  int error = 0;
  EXPECT_EQ(caughtIn([&] {
              if (write(-1, "a", 1) < 0) error = errno;
            }),
            Names{"system call 1 (write)"});
  EXPECT_EQ(error, EBADF);
}

TEST(RealtimeTrapTest, EachOfManySystemCallsIsCaught) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::SystemCall);
  EXPECT_EQ(caughtIn([] {
              for (int round = 0; round < 5; ++round) sched_yield();
            }),
            Names(5, "system call 24 (sched_yield)"));
  EXPECT_EQ(caughtIn([] { syscall(SYS_getppid); }), Names{"system call 110"});
  EXPECT_EQ(caughtIn([] { std::this_thread::sleep_for(std::chrono::microseconds(1)); }),
            Names{"system call 230 (clock_nanosleep)"});
}

TEST(RealtimeTrapTest, ThreadCannotBeStartedFromAWatchedOne) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::SystemCall);
  bool refused = false;
  const Names names = caughtIn([&] {
    pthread_t thread{};
    refused = pthread_create(
                  &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr) != 0;
  });
  EXPECT_TRUE(refused);
  EXPECT_FALSE(names.empty());
}

std::atomic<int> signalsHandled{0};

TEST(RealtimeTrapTest, SignalHandlerReturnsIntoTheWatchedSection) {
  SKIP_UNLESS_CAUGHT(RealtimeOffence::SystemCall);
  struct sigaction action {};
  action.sa_handler = [](int) { signalsHandled.fetch_add(1); };
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  signalsHandled = 0;
  const Names names = caughtIn([] {
    syscall(SYS_tgkill, getpid(), gettid(), SIGUSR1);
    sched_yield();
  });
  EXPECT_EQ(signalsHandled, 1);
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names.back(), "system call 24 (sched_yield)") << "still watched behind the handler";
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(RealtimeTrapTest, ViolationSaysWhoDidIt) {
  Memory memory;
  const std::vector<RealtimeViolation> violations =
      runUnderRealtimeTrap([&] { memory.reset(std::malloc(1)); });
  ASSERT_FALSE(violations.empty());
  const RealtimeViolation& last = violations.back();
  EXPECT_EQ(last.offence, RealtimeOffence::Allocation);
  EXPECT_GE(last.callers.size(), 2U);
  std::ostringstream text;
  text << last;
  EXPECT_EQ(text.str().rfind("malloc\n    ", 0), 0U) << text.str();
}

TEST(RealtimeTrapTest, CodeBetweenSectionsIsNotWatched) {
  RealtimeLog log;
  {
    const RealtimeSection section(log);
    asm volatile("" : : : "memory");
  }
  std::mutex mutex;
  mutex.lock();
  const Memory memory(std::malloc(1));
  sched_yield();
  mutex.unlock();
  EXPECT_EQ(log.count(), 0U);
  Memory watched;
  {
    const RealtimeSection section(log);
    watched.reset(std::malloc(1));
  }
  EXPECT_GE(log.count(), 1U);
}

TEST(RealtimeTrapTest, OtherThreadsAreNotWatched) {
  RealtimeLog log;
  std::atomic<int> stage{0};
  std::thread other([&] {
    while (stage == 0) std::this_thread::yield();
    const Memory memory(std::malloc(1));
    stage = 2;
  });
  {
    const RealtimeSection section(log);
    stage = 1;
    while (stage != 2) {
    }
  }
  other.join();
  EXPECT_EQ(log.count(), 0U);
}

TEST(RealtimeTrapTest, ManySectionsOfOneThreadShareALog) {
  RealtimeLog log;
  for (int round = 0; round < 100; ++round) {
    Memory memory;
    const RealtimeSection section(log);
    memory.reset(std::malloc(1));
  }
  EXPECT_GE(log.count(), 100U);
  EXPECT_EQ(log.violations().size(), 64U) << "the first ones are kept";
}

TEST(RealtimeTrapTest, ExceptionOfTheBodyArrivesAtTheCaller) {
  EXPECT_THROW((void)runUnderRealtimeTrap([] { throw std::runtime_error("no"); }), std::runtime_error);
}

TEST(RealtimeTrapTest, GapsAreNamedWithTheirReason) {
  for (const std::string& gap : realtimeTrapGaps()) std::cout << "realtime trap: " << gap << '\n';
  EXPECT_EQ(realtimeTrapGap(RealtimeOffence::Allocation), "");
#if defined(__SANITIZE_THREAD__)
  EXPECT_EQ(realtimeTrapGaps().size(), 3U);
#else
  EXPECT_EQ(realtimeTrapGap(RealtimeOffence::Lock), "");
#endif
}

}  // namespace
}  // namespace monitor::test
