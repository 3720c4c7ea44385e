// SPDX-License-Identifier: MIT
#include "Tests/Support/RealtimeTrap.h"

#include <execinfo.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <memory>
#include <ostream>
#include <thread>
#include <utility>

#include "Tests/Support/RealtimeWatch.h"

namespace monitor::test {

thread_local constinit RealtimeLog* currentRealtimeLog = nullptr;

namespace {

bool trapsSystemCalls() {
  return !kThreadSanitizer && system_calls::obstacle().empty();
}

void prepareOnce() {
  static const bool prepared = [] {
    prepareAllocationTrap();
    prepareLockTrap();
    void* first = nullptr;
    backtrace(&first, 1);  // loads a library the first time
    return true;
  }();
  (void)prepared;
}

std::vector<std::string> describe(void* const* addresses, std::size_t count) {
  std::vector<std::string> lines;
  const std::unique_ptr<char*, void (*)(void*)> symbols(backtrace_symbols(addresses, static_cast<int>(count)),
                                                        std::free);
  if (symbols == nullptr) return lines;
  for (std::size_t index = 0; index < count; ++index) lines.emplace_back(symbols.get()[index]);
  return lines;
}

std::string describe(const char* what, long number) {
  if (number < 0) return what;
  std::string text = std::string(what) + ' ' + std::to_string(number);
  if (const char* name = system_calls::name(number); name != nullptr) text += std::string(" (") + name + ')';
  return text;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const RealtimeViolation& violation) {
  out << violation.what;
  for (const std::string& caller : violation.callers) out << "\n    " << caller;
  return out << '\n';
}

std::string realtimeTrapGap(RealtimeOffence offence) {
  if (offence == RealtimeOffence::Lock && kThreadSanitizer) {
    return "locks are not trapped: the thread sanitizer has to see them first";
  }
  if (offence == RealtimeOffence::SystemCall && kThreadSanitizer) {
    return "system calls are not trapped: the thread sanitizer makes some of its own at any time";
  }
  if (offence == RealtimeOffence::SystemCall && !trapsSystemCalls()) {
    return "system calls are not trapped: " + system_calls::obstacle();
  }
  return {};
}

std::vector<std::string> realtimeTrapGaps() {
  std::vector<std::string> gaps;
  if (kThreadSanitizer) {
    gaps.emplace_back("aligned allocations are not trapped: the thread sanitizer does not tell of them");
  }
  for (const RealtimeOffence offence :
       {RealtimeOffence::Allocation, RealtimeOffence::Lock, RealtimeOffence::SystemCall}) {
    if (std::string gap = realtimeTrapGap(offence); !gap.empty()) gaps.push_back(std::move(gap));
  }
  return gaps;
}

RealtimeLog::RealtimeLog() {
  prepareOnce();
}

void RealtimeLog::add(RealtimeOffence offence, const char* what, long number) noexcept {
  const std::size_t index = count_.fetch_add(1);
  if (index >= entries_.size()) return;
  Entry& entry = entries_[index];
  entry.offence = offence;
  entry.what = what;
  entry.number = number;
  entry.depth =
      static_cast<std::size_t>(std::max(0, backtrace(entry.callers.data(), static_cast<int>(kDepth))));
}

std::vector<RealtimeViolation> RealtimeLog::violations() const {
  std::vector<RealtimeViolation> result;
  const std::size_t count = std::min(count_.load(), entries_.size());
  for (std::size_t index = 0; index < count; ++index) {
    const Entry& entry = entries_[index];
    result.push_back(
        {entry.offence, describe(entry.what, entry.number), describe(entry.callers.data(), entry.depth)});
  }
  return result;
}

void noteRealtimeOffence(RealtimeOffence offence, const char* what, long number) noexcept {
  RealtimeLog* log = currentRealtimeLog;
  if (log == nullptr) return;
  currentRealtimeLog = nullptr;
  const bool closed = system_calls::setClosed(false);
  const int error = errno;
  log->add(offence, what, number);
  errno = error;
  system_calls::setClosed(closed);
  currentRealtimeLog = log;
}

RealtimeSection::RealtimeSection(RealtimeLog& log) {
  if (trapsSystemCalls()) system_calls::install();
  currentRealtimeLog = &log;
  if (trapsSystemCalls()) system_calls::setClosed(true);
}

RealtimeSection::~RealtimeSection() {
  system_calls::setClosed(false);
  currentRealtimeLog = nullptr;
  if (trapsSystemCalls()) system_calls::remove();
}

std::vector<RealtimeViolation> runUnderRealtimeTrap(const std::function<void()>& body) {
  RealtimeLog log;
  std::exception_ptr thrown;
  std::thread thread([&] {
    const RealtimeSection section(log);
    try {
      body();
    } catch (...) {
      thrown = std::current_exception();
    }
  });
  thread.join();
  if (thrown != nullptr) std::rethrow_exception(thrown);
  return log.violations();
}

}  // namespace monitor::test
