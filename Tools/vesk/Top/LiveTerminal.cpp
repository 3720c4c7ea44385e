// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/LiveTerminal.h"

#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace monitor::vesk {
namespace {

// The other screen, no wrapping at the end of a line, no cursor; and back, with colours off.
constexpr std::string_view kEnter = "\x1b[?1049h\x1b[?7l\x1b[?25l";
constexpr std::string_view kLeave = "\x1b[0m\x1b[?25h\x1b[?7h\x1b[?1049l";
constexpr std::array kCrashes{SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGFPE};
constexpr std::size_t kMostCells = 1'000;

// What a crash gives back. Set while a view has the terminal.
struct Rescue {
  int input;
  int output;
  termios former;
};
Rescue rescue{};
std::atomic<bool> rescueNeeded{false};

// Only calls that a signal handler may make.
void rescueTerminal(int signal) {
  if (rescueNeeded.exchange(false)) {
    [[maybe_unused]] const auto written = ::write(rescue.output, kLeave.data(), kLeave.size());
    ::tcsetattr(rescue.input, TCSANOW, &rescue.former);
  }
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

termios rawAttributes(termios attributes) {
  // Signals stay: Ctrl-C and Ctrl-Z do what they do everywhere.
  attributes.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
  attributes.c_cc[VMIN] = 1;
  attributes.c_cc[VTIME] = 0;
  return attributes;
}

}  // namespace

LiveTerminal::LiveTerminal(int input, int output) : input_(input), output_(output) {
  if (::tcgetattr(input_, &former_) != 0) {
    throw std::system_error(errno, std::generic_category(), "The terminal cannot be used");
  }
  for (const int crash : kCrashes) ::signal(crash, rescueTerminal);
  enter();
}

LiveTerminal::~LiveTerminal() {
  leave();
  for (const int crash : kCrashes) ::signal(crash, SIG_DFL);
}

void LiveTerminal::enter() {
  if (entered_) return;
  entered_ = true;
  rescue = {input_, output_, former_};
  rescueNeeded = true;
  const termios raw = rawAttributes(former_);
  ::tcsetattr(input_, TCSANOW, &raw);
  (void)write(kEnter);
}

void LiveTerminal::leave() {
  if (!entered_) return;
  entered_ = false;
  rescueNeeded = false;
  (void)write(kLeave);
  // Not TCSADRAIN: a terminal that takes no output any more would hold the program for ever.
  ::tcsetattr(input_, TCSANOW, &former_);
}

ScreenSize LiveTerminal::size() const {
  winsize window{};
  if (::ioctl(output_, TIOCGWINSZ, &window) != 0 || window.ws_row == 0 || window.ws_col == 0) return {};
  return {std::min<std::size_t>(window.ws_row, kMostCells), std::min<std::size_t>(window.ws_col, kMostCells)};
}

std::optional<std::string> LiveTerminal::read() {
  std::array<char, 256> bytes{};
  const ssize_t count = ::read(input_, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return std::string();
  if (count <= 0) return std::nullopt;
  return std::string(bytes.data(), static_cast<std::size_t>(count));
}

bool LiveTerminal::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(output_, bytes.data(), bytes.size());
    if (written > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      fd_set writable;
      FD_ZERO(&writable);
      FD_SET(output_, &writable);
      ::select(output_ + 1, nullptr, &writable, nullptr, nullptr);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace monitor::vesk
