// SPDX-License-Identifier: MIT
// Measures what only root may: the helper runs it once for every sample.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Power/NetlinkTcpSockets.h"
#include "Tools/powermetrics/Powermetrics.h"

namespace {

// A signal to end ends it at once, whatever the caller ignores or blocks; a reader that went away is an error
// of writing.
void prepareSignals() {
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) std::signal(signal, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
}

int writeAll(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pollfd entry{STDOUT_FILENO, POLLOUT, 0};
      (void)::poll(&entry, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace monitor;
  prepareSignals();
  try {
    platform::NetlinkTcpSockets sockets;
    const platform::BootTimeClock clock;
    const platform::SystemWallClock wallClock;
    const auto wait = [](double seconds) {
      std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    };
    const auto complain = [](const std::string& text) {
      std::fprintf(stderr, "vesk-powermetrics: %s\n", text.c_str());
    };
    return static_cast<int>(powermetrics::run(std::vector<std::string>(argv + 1, argv + argc),
                                              {{"/", sockets, clock, wait}, wallClock, writeAll, complain}));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vesk-powermetrics: %s\n", error.what());
    return static_cast<int>(powermetrics::ExitCode::Failed);
  }
}
