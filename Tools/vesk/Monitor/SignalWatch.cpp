// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/SignalWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <system_error>

namespace monitor::vesk {
namespace {

// Where the handler writes: the one thing that a handler may do and that wakes a waiting thread.
std::atomic<int> writeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

void handle(int signal) {
  const int error = errno;
  const auto byte = static_cast<unsigned char>(signal);
  // A full pipe loses nothing: signals merge anyhow, and the reader is awake.
  [[maybe_unused]] const auto written = ::write(writeEnd.load(), &byte, 1);
  errno = error;
}

void makeQuiet(int descriptor) {
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

}  // namespace

SignalWatch::SignalWatch(const std::vector<int>& signals) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : ends) makeQuiet(end);
  readEnd_ = ends[0];
  writeEnd = ends[1];
  for (const int signal : signals) {
    struct sigaction former {};
    ::sigaction(signal, nullptr, &former);
    if (former.sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = handle;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
    former_.emplace_back(signal, former);
  }
}

SignalWatch::~SignalWatch() {
  for (const auto& [signal, action] : former_) ::sigaction(signal, &action, nullptr);
  ::close(writeEnd.exchange(-1));
  ::close(readEnd_);
}

std::optional<int> SignalWatch::take() {
  unsigned char byte = 0;
  if (::read(readEnd_, &byte, 1) != 1) return std::nullopt;
  return byte;
}

SignalPause::SignalPause(const Clock& clock) : clock_(clock), watch_({SIGINT, SIGTERM, SIGHUP}) {}

bool SignalPause::until(double time) {
  constexpr double kLongestWait = 60.0;  // seconds; keeps the number of milliseconds small
  for (;;) {
    if (watch_.take()) return false;
    const double left = time - clock_.now();
    if (left <= 0.0) return true;
    pollfd entry{watch_.descriptor(), POLLIN, 0};
    ::poll(&entry, 1, static_cast<int>(std::ceil(std::min(left, kLongestWait) * 1000.0)));
  }
}

}  // namespace monitor::vesk
