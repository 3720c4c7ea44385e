// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopCommand.h"

#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "Tools/vesk/Monitor/SignalWatch.h"
#include "Tools/vesk/Top/Frame.h"
#include "Tools/vesk/Top/LiveTerminal.h"
#include "Tools/vesk/Top/TopKeys.h"
#include "Tools/vesk/Top/TopView.h"

namespace monitor::vesk {
namespace {

// Waits until one of them is readable, or a signal came. select() because not every system can poll a
// terminal.
fd_set waitForAny(std::initializer_list<int> descriptors) {
  fd_set readable;
  FD_ZERO(&readable);
  for (const int descriptor : descriptors) FD_SET(descriptor, &readable);
  if (::select(std::max(descriptors) + 1, &readable, nullptr, nullptr, nullptr) < 0) FD_ZERO(&readable);
  return readable;
}

// The running view: the one place where state, terminal, signals and feed meet.
class TopRun {
 public:
  TopRun(TopState state, TopFeed::Look look, int input, int output, const Terminal& terminal)
      : state_(std::move(state)),
        terminal_(terminal),
        signals_({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH, SIGTSTP}),
        feed_(std::move(look), state_.every, state_.projects),
        screen_(input, output) {}

  void run() {
    while (!over_) {
      if (!draw()) return;
      const fd_set readable = waitForAny({screen_.input(), signals_.descriptor(), feed_.descriptor()});
      while (const auto signal = signals_.take()) onSignal(*signal);
      if (FD_ISSET(feed_.descriptor(), &readable)) onData();
      if (FD_ISSET(screen_.input(), &readable)) onInput();
    }
  }

 private:
  bool draw() {
    const ScreenSize size = screen_.size();
    if (size != size_) shown_.clear();
    size_ = size;
    std::vector<std::string> lines = renderTop(state_, size, terminal_, zone_);
    const std::string bytes = frameUpdate(shown_, lines);
    shown_ = std::move(lines);
    return screen_.write(bytes);
  }

  void onSignal(int signal) {
    if (signal == SIGWINCH) return;  // the next draw sees the new size
    if (signal != SIGTSTP) {
      over_ = true;
      return;
    }
    screen_.leave();
    ::raise(SIGSTOP);
    screen_.enter();
    shown_.clear();
  }

  void onData() {
    if (auto data = feed_.take()) state_.data = std::move(data);
  }

  void onInput() {
    const auto bytes = screen_.read();
    if (!bytes) {  // the terminal has gone
      over_ = true;
      return;
    }
    for (const TopKey key : keys_.feed(*bytes)) onKey(key);
  }

  void onKey(TopKey key) {
    applyKey(state_, key, tableRows(state_, size_));
    if (key == TopKey::Quit) over_ = true;
    if (key == TopKey::Redraw) shown_.clear();
    if (key == TopKey::Pause) feed_.setPaused(state_.paused);
    if (key == TopKey::Projects) feed_.setProjects(state_.projects);
  }

  TopState state_;
  Terminal terminal_;
  TimeZone zone_ = TimeZone::local();
  SignalWatch signals_;
  KeyDecoder keys_;
  TopFeed feed_;
  // After the feed, so that the terminal is given back first: the end of the feed may wait for a look.
  LiveTerminal screen_;
  ScreenSize size_{0, 0};
  std::vector<std::string> shown_;
  bool over_ = false;
};

}  // namespace

ExitCode runTop(TopState state, TopFeed::Look look, int input, int output, const Console& console) {
  if (!console.outTerminal.interactive || ::isatty(input) != 1 || ::isatty(output) != 1) {
    throw CommandError(ExitCode::Usage,
                       "A live view needs a terminal. `vesk sample` prints one look at the machine.");
  }
  TopRun(std::move(state), std::move(look), input, output, console.outTerminal).run();
  return ExitCode::Ok;
}

}  // namespace monitor::vesk
