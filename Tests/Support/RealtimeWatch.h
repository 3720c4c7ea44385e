// SPDX-License-Identifier: MIT
#pragma once

#include "Tests/Support/RealtimeTrap.h"

// What the wrappers of allocator, locks and system calls share. Not for tests.
namespace monitor::test {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kThreadSanitizer = true;
#else
inline constexpr bool kThreadSanitizer = false;
#endif

// The log of the calling thread's section; null while it is not watched.
extern thread_local constinit RealtimeLog* currentRealtimeLog;

// Logs an offence of the calling thread, which is not watched while this runs.
void noteRealtimeOffence(RealtimeOffence offence, const char* what, long number = -1) noexcept;

inline void noteIfWatched(RealtimeOffence offence, const char* what) noexcept {
  if (currentRealtimeLog != nullptr) [[unlikely]] {
    noteRealtimeOffence(offence, what);
  }
}

// Both make sure that the linker takes the wrappers in, and do what has to be done before the first section.
void prepareAllocationTrap();
void prepareLockTrap();

// System calls of the calling thread. All are reported while the trap is closed and pass while it is open;
// between `remove` and `install` they do not even look at it.
namespace system_calls {
// Empty, or why calls cannot be trapped here. Installs the signal handler at the first call.
[[nodiscard]] const std::string& obstacle();
void install();  // open
void remove();
bool setClosed(bool closed) noexcept;                  // returns what it was
[[nodiscard]] const char* name(long number) noexcept;  // null for one that has no name here
}  // namespace system_calls

}  // namespace monitor::test
