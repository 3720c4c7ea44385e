// SPDX-License-Identifier: MIT
// The thread library's locks with a look at the watch before each. Under the thread sanitizer they stay as
// they are: it knows of a lock only what its own wrappers see.
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "Tests/Support/RealtimeWatch.h"

#if defined(__SANITIZE_THREAD__)

namespace monitor::test {
void prepareLockTrap() {}
}  // namespace monitor::test

#else

namespace {

// The next definition of a function after this program's own. Found at the first call, which may come before
// main.
template <typename Function>
class Original {
 public:
  constexpr explicit Original(const char* name) : name_(name) {}

  Function find() noexcept {
    Function function = function_.load(std::memory_order_acquire);
    if (function == nullptr) [[unlikely]] {
      function = look();
      function_.store(function, std::memory_order_release);
    }
    return function;
  }

 private:
  Function look() const noexcept {
    // The linker's own locks and memory are not the caller's doing.
    monitor::test::RealtimeLog* log = monitor::test::currentRealtimeLog;
    monitor::test::currentRealtimeLog = nullptr;
    const bool closed = monitor::test::system_calls::setClosed(false);
    void* found = dlsym(RTLD_NEXT, name_);
    if (found == nullptr) {
      std::fprintf(stderr, "realtime trap: there is no %s to wrap\n", name_);
      std::abort();
    }
    monitor::test::system_calls::setClosed(closed);
    monitor::test::currentRealtimeLog = log;
    return reinterpret_cast<Function>(found);
  }

  const char* name_;
  std::atomic<Function> function_{nullptr};
};

}  // namespace

// VESK_WRAP(name, exceptions, (parameters), (arguments)): a function of the thread library that returns an
// int.
#define VESK_WRAP(name, exceptions, parameters, arguments)                           \
  namespace {                                                                        \
  constinit Original<int(*) parameters> original_##name(#name);                      \
  }                                                                                  \
  extern "C" __attribute__((visibility("default"))) int name parameters exceptions { \
    monitor::test::noteIfWatched(monitor::test::RealtimeOffence::Lock, #name);       \
    return original_##name.find() arguments;                                         \
  }

#define VESK_MUTEX (pthread_mutex_t * lock)
#define VESK_MUTEX_TIME (pthread_mutex_t * lock, const timespec* time)
#define VESK_MUTEX_CLOCK (pthread_mutex_t * lock, clockid_t clock, const timespec* time)
VESK_WRAP(pthread_mutex_lock, noexcept, VESK_MUTEX, (lock))
VESK_WRAP(pthread_mutex_trylock, noexcept, VESK_MUTEX, (lock))
VESK_WRAP(pthread_mutex_timedlock, noexcept, VESK_MUTEX_TIME, (lock, time))
VESK_WRAP(pthread_mutex_clocklock, noexcept, VESK_MUTEX_CLOCK, (lock, clock, time))
VESK_WRAP(pthread_mutex_unlock, noexcept, VESK_MUTEX, (lock))

#define VESK_RWLOCK (pthread_rwlock_t * lock)
#define VESK_RWLOCK_TIME (pthread_rwlock_t * lock, const timespec* time)
#define VESK_RWLOCK_CLOCK (pthread_rwlock_t * lock, clockid_t clock, const timespec* time)
VESK_WRAP(pthread_rwlock_rdlock, noexcept, VESK_RWLOCK, (lock))
VESK_WRAP(pthread_rwlock_tryrdlock, noexcept, VESK_RWLOCK, (lock))
VESK_WRAP(pthread_rwlock_timedrdlock, noexcept, VESK_RWLOCK_TIME, (lock, time))
VESK_WRAP(pthread_rwlock_clockrdlock, noexcept, VESK_RWLOCK_CLOCK, (lock, clock, time))
VESK_WRAP(pthread_rwlock_wrlock, noexcept, VESK_RWLOCK, (lock))
VESK_WRAP(pthread_rwlock_trywrlock, noexcept, VESK_RWLOCK, (lock))
VESK_WRAP(pthread_rwlock_timedwrlock, noexcept, VESK_RWLOCK_TIME, (lock, time))
VESK_WRAP(pthread_rwlock_clockwrlock, noexcept, VESK_RWLOCK_CLOCK, (lock, clock, time))
VESK_WRAP(pthread_rwlock_unlock, noexcept, VESK_RWLOCK, (lock))

#define VESK_COND (pthread_cond_t * condition)
#define VESK_COND_WAIT (pthread_cond_t * condition, pthread_mutex_t * lock)
#define VESK_COND_TIME (pthread_cond_t * condition, pthread_mutex_t * lock, const timespec* time)
#define VESK_COND_CLOCK \
  (pthread_cond_t * condition, pthread_mutex_t * lock, clockid_t clock, const timespec* time)
VESK_WRAP(pthread_cond_wait, , VESK_COND_WAIT, (condition, lock))
VESK_WRAP(pthread_cond_timedwait, , VESK_COND_TIME, (condition, lock, time))
VESK_WRAP(pthread_cond_clockwait, , VESK_COND_CLOCK, (condition, lock, clock, time))
VESK_WRAP(pthread_cond_signal, noexcept, VESK_COND, (condition))
VESK_WRAP(pthread_cond_broadcast, noexcept, VESK_COND, (condition))

#define VESK_SEMAPHORE (sem_t * semaphore)
VESK_WRAP(sem_wait, , VESK_SEMAPHORE, (semaphore))
VESK_WRAP(sem_trywait, noexcept, VESK_SEMAPHORE, (semaphore))
VESK_WRAP(sem_timedwait, , (sem_t * semaphore, const timespec* time), (semaphore, time))
VESK_WRAP(sem_clockwait, , (sem_t * semaphore, clockid_t clock, const timespec* time),
          (semaphore, clock, time))
VESK_WRAP(sem_post, noexcept, VESK_SEMAPHORE, (semaphore))

VESK_WRAP(pthread_spin_lock, noexcept, (pthread_spinlock_t * lock), (lock))
VESK_WRAP(pthread_spin_trylock, noexcept, (pthread_spinlock_t * lock), (lock))
VESK_WRAP(pthread_barrier_wait, noexcept, (pthread_barrier_t * barrier), (barrier))

namespace monitor::test {
void prepareLockTrap() {}
}  // namespace monitor::test

#endif
