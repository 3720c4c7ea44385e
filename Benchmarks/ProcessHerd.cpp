// SPDX-License-Identifier: MIT
#include "Benchmarks/ProcessHerd.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

namespace monitor::bench {
namespace {

constexpr int kDescriptors = 20;
constexpr useconds_t kWakeMicroseconds = 250'000;

void listenSomewhere() {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  (void)::listen(listener, 1);
}

[[noreturn]] void live(bool active, bool listens) {
  if (listens) listenSomewhere();
  while (true) {
    if (active) {
      ::usleep(kWakeMicroseconds);
    } else {
      ::pause();
    }
  }
}

[[noreturn]] void keepHerd(const ProcessHerd::Kind& kind, int leash, int ready) {
  for (int descriptor = 0; descriptor < kDescriptors - 5; ++descriptor) (void)::open("/dev/null", O_RDONLY);
  std::vector<pid_t> herd;
  herd.reserve(kind.count);
  bool complete = true;
  while (complete && herd.size() < kind.count) {
    const pid_t pid = ::fork();
    if (pid == 0) live(kind.active, herd.size() < kind.listeners);
    complete = pid > 0;
    if (complete) herd.push_back(pid);
  }
  const char answer = complete ? '1' : '0';
  (void)!::write(ready, &answer, 1);
  char byte = 0;
  (void)!::read(leash, &byte, 1);
  for (const pid_t pid : herd) ::kill(pid, SIGKILL);
  for (const pid_t pid : herd) ::waitpid(pid, nullptr, 0);
  ::_exit(0);
}

}  // namespace

ProcessHerd::ProcessHerd(const Kind& kind) : kind_(kind) {
  int leash[2];
  int ready[2];
  if (::pipe2(leash, O_CLOEXEC) != 0 || ::pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  shepherd_ = ::fork();
  if (shepherd_ == 0) {
    ::close(leash[1]);
    ::close(ready[0]);
    keepHerd(kind, leash[0], ready[1]);
  }
  ::close(leash[0]);
  ::close(ready[1]);
  leash_ = leash[1];
  char answer = '0';
  const bool answered = shepherd_ > 0 && ::read(ready[0], &answer, 1) == 1;
  ::close(ready[0]);
  if (answered && answer == '1') return;
  ::close(leash_);
  if (shepherd_ > 0) ::waitpid(shepherd_, nullptr, 0);
  throw std::runtime_error("this machine does not let so many processes start");
}

ProcessHerd::~ProcessHerd() {
  ::close(leash_);
  ::waitpid(shepherd_, nullptr, 0);
}

}  // namespace monitor::bench
