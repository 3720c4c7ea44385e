// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

// Catches what a realtime thread must not do: allocate or free, use a lock, call the system. A program that
// links this library has its allocator and the thread library's locks wrapped; threads that are not watched
// pay one comparison. Linux with the GNU C library.
namespace monitor::test {

enum class RealtimeOffence { Allocation, Lock, SystemCall };

struct RealtimeViolation {
  RealtimeOffence offence = RealtimeOffence::Allocation;
  std::string what;                  // "malloc", "pthread_mutex_lock", "system call 1 (write)"
  std::vector<std::string> callers;  // innermost first, as far as the stack could be walked
};

std::ostream& operator<<(std::ostream& out, const RealtimeViolation& violation);

// Why this build on this kernel cannot catch an offence; empty when it can. Sanitizers come with an allocator
// and locks of their own.
[[nodiscard]] std::string realtimeTrapGap(RealtimeOffence offence);

// One sentence for everything that is not caught here. A test that relies on the trap prints them.
[[nodiscard]] std::vector<std::string> realtimeTrapGaps();

// Collects violations from any number of threads; the first 64 are kept. Made and read outside of watched
// sections.
class RealtimeLog {
 public:
  RealtimeLog();
  RealtimeLog(const RealtimeLog&) = delete;
  RealtimeLog& operator=(const RealtimeLog&) = delete;

  [[nodiscard]] std::vector<RealtimeViolation> violations() const;
  [[nodiscard]] std::size_t count() const { return count_.load(); }

  // For the wrappers. `what` is kept as it is; a number below zero means none.
  void add(RealtimeOffence offence, const char* what, long number) noexcept;

 private:
  static constexpr std::size_t kCapacity = 64;
  static constexpr std::size_t kDepth = 16;
  struct Entry {
    RealtimeOffence offence = RealtimeOffence::Allocation;
    const char* what = nullptr;
    long number = -1;
    std::array<void*, kDepth> callers{};
    std::size_t depth = 0;
  };
  std::array<Entry, kCapacity> entries_{};
  std::atomic<std::size_t> count_{0};
};

// Watches the calling thread while it lives, e.g. during one realtime callback of a thread that the test does
// not own. What is caught is written to the log and then done all the same, except that no thread or process
// can be started. Sections of a thread do not nest.
class RealtimeSection {
 public:
  explicit RealtimeSection(RealtimeLog& log);
  ~RealtimeSection();
  RealtimeSection(const RealtimeSection&) = delete;
  RealtimeSection& operator=(const RealtimeSection&) = delete;
};

// Runs `body` once on a watched thread of its own and returns what it did. What the body throws is thrown
// here.
[[nodiscard]] std::vector<RealtimeViolation> runUnderRealtimeTrap(const std::function<void()>& body);

}  // namespace monitor::test
