// SPDX-License-Identifier: MIT
#include "Benchmarks/TerminalPeer.h"

#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>

namespace monitor::bench {
namespace {

constexpr double kRefreshSeconds = 1.0;
constexpr double kWindowSeconds = 2.0;

std::filesystem::path temporaryHome() {
  std::string name = (std::filesystem::temp_directory_path() / "vesk-peer-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
  std::filesystem::create_directories(name + "/.config/btop");
  std::ofstream(name + "/.config/btop/btop.conf") << "update_ms = 1000\n";
  return name;
}

void sleepSeconds(double seconds) {
  timespec time{};
  time.tv_sec = static_cast<time_t>(seconds);
  time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * 1e9);
  ::nanosleep(&time, nullptr);
}

[[noreturn]] void become(const std::vector<std::string>& command, const std::string& home) {
  ::setenv("HOME", home.c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
  ::setenv("TERM", "xterm-256color", 1);
  ::setenv("LC_ALL", "C.UTF-8", 1);
  std::vector<char*> arguments;
  for (const std::string& each : command) arguments.push_back(const_cast<char*>(each.c_str()));
  arguments.push_back(nullptr);
  ::execvp(arguments[0], arguments.data());
  ::_exit(127);
}

}  // namespace

bool TerminalPeer::installed(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<std::string> TerminalPeer::htop() {
  return {"htop", "-d", "10"};
}

std::vector<std::string> TerminalPeer::btop() {
  return {"btop", "--utf-force"};
}

TerminalPeer::TerminalPeer(const std::vector<std::string>& command) : home_(temporaryHome()) {
  winsize size{};
  size.ws_row = 40;
  size.ws_col = 120;
  pid_ = ::forkpty(&terminal_, nullptr, nullptr, &size);
  if (pid_ < 0) throw std::runtime_error("forkpty");
  if (pid_ == 0) become(command, home_.string());
  reader_ = std::thread([terminal = terminal_] {
    std::array<char, 65'536> buffer;
    while (::read(terminal, buffer.data(), buffer.size()) > 0) {
    }
  });
  sleepSeconds(3.0 * kRefreshSeconds);  // past its beginning
}

TerminalPeer::~TerminalPeer() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  reader_.join();  // its reads fail with the program's end
  ::close(terminal_);
  std::error_code ignored;
  std::filesystem::remove_all(home_, ignored);
}

double TerminalPeer::secondsOfARefresh() const {
  const double before = cpuSeconds();
  sleepSeconds(kWindowSeconds);
  const double used = cpuSeconds() - before;
  if (!(used > 0.0)) throw std::runtime_error("the program to compare with has ended");
  return used / kWindowSeconds * kRefreshSeconds;
}

double TerminalPeer::cpuSeconds() const {
  clockid_t clock{};
  timespec time{};
  if (::waitpid(pid_, nullptr, WNOHANG) != 0 || ::clock_getcpuclockid(pid_, &clock) != 0 ||
      ::clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("the program to compare with has ended");
  }
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace monitor::bench
