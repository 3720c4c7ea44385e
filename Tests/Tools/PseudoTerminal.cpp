// SPDX-License-Identifier: MIT
#include "Tests/Tools/PseudoTerminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

namespace monitor::vesk {
namespace {

using Clock = std::chrono::steady_clock;

// Generous, since a loaded machine is slow and not broken.
constexpr std::chrono::seconds kPatience{60};

// Only calls that are allowed between fork and exec.
[[noreturn]] void becomeProgram(int terminal, char* const* command, char* const* environment) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::setsid();
  ::ioctl(terminal, TIOCSCTTY, 0);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(terminal, descriptor);
  ::execve(command[0], command, environment);
  ::_exit(127);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> all;
  for (std::string& text : texts) all.push_back(text.data());
  all.push_back(nullptr);
  return all;
}

}  // namespace

PseudoTerminal::PseudoTerminal(std::size_t rows, std::size_t columns, std::vector<std::string> command,
                               const lab::Environment& environment)
    : screen_(rows, columns) {
  int ours = -1;
  int theirs = -1;
  if (::openpty(&ours, &theirs, nullptr, nullptr, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "openpty");
  }
  ours_ = lab::Descriptor(ours);
  theirs_ = lab::Descriptor(theirs);
  setSize(rows, columns);
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) variables.push_back(name + '=' + value);
  const std::vector<char*> arguments = pointers(command);
  const std::vector<char*> variablePointers = pointers(variables);
  pid_ = ::fork();
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid_ == 0) {
    ::close(ours);
    becomeProgram(theirs, arguments.data(), variablePointers.data());
  }
}

PseudoTerminal::~PseudoTerminal() {
  if (pid_ == 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void PseudoTerminal::read() {
  pollfd entry{ours_.get(), POLLIN, 0};
  if (::poll(&entry, 1, 20) != 1) return;
  std::array<char, 65536> bytes{};
  const ssize_t count = ::read(ours_.get(), bytes.data(), bytes.size());
  if (count > 0) screen_.feed({bytes.data(), static_cast<std::size_t>(count)});
}

bool PseudoTerminal::waitUntil(const std::function<bool(const ScreenModel&)>& condition) {
  const auto deadline = Clock::now() + kPatience;
  while (!condition(screen_)) {
    if (Clock::now() > deadline) return false;
    read();
  }
  return true;
}

void PseudoTerminal::type(std::string_view keys) const {
  if (::write(ours_.get(), keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    throw std::system_error(errno, std::generic_category(), "typing");
  }
}

void PseudoTerminal::resize(std::size_t rows, std::size_t columns) {
  screen_.resize(rows, columns);
  setSize(rows, columns);
}

void PseudoTerminal::setSize(std::size_t rows, std::size_t columns) const {
  winsize size{};
  size.ws_row = static_cast<unsigned short>(rows);
  size.ws_col = static_cast<unsigned short>(columns);
  ::ioctl(ours_.get(), TIOCSWINSZ, &size);
}

void PseudoTerminal::signal(int number) const {
  ::kill(pid_, number);
}

void PseudoTerminal::hangUp() {
  theirs_.reset();
  ours_.reset();
}

std::optional<int> PseudoTerminal::waitForStatus(int options) {
  const auto deadline = Clock::now() + kPatience;
  while (Clock::now() < deadline) {
    int status = 0;
    const pid_t changed = ::waitpid(pid_, &status, WNOHANG | options);
    // What it wrote last is read before it is looked at.
    if (ours_) read();
    if (changed != pid_) {
      if (!ours_) ::poll(nullptr, 0, 5);
      continue;
    }
    if (!WIFSTOPPED(status)) pid_ = 0;
    return status;
  }
  return std::nullopt;
}

std::optional<int> PseudoTerminal::waitForStop() {
  return waitForStatus(WUNTRACED);
}

std::optional<int> PseudoTerminal::waitForEnd() {
  return waitForStatus(0);
}

termios PseudoTerminal::attributes() const {
  termios found{};
  ::tcgetattr(theirs_.get(), &found);
  return found;
}

bool sameAttributes(const termios& left, const termios& right) {
  return left.c_iflag == right.c_iflag && left.c_oflag == right.c_oflag && left.c_cflag == right.c_cflag &&
         left.c_lflag == right.c_lflag && std::equal(std::begin(left.c_cc), std::end(left.c_cc), right.c_cc);
}

}  // namespace monitor::vesk
