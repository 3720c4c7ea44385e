// SPDX-License-Identifier: MIT
#include "Tests/Integration/HistoryChild.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>

namespace monitor::fakes {
namespace {

int runBody(const std::function<int(const HistoryChild::Report&)>& body, int pipe) {
  try {
    return body([pipe](int number) {
      if (write(pipe, &number, sizeof number) != sizeof number) _exit(3);
    });
  } catch (const std::exception& error) {
    std::fprintf(stderr, "child: %s\n", error.what());
    return 2;
  }
}

}  // namespace

HistoryChild::HistoryChild(const std::function<int(const Report&)>& body) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid_ == 0) {
    close(ends[0]);
    const int status = runBody(body, ends[1]);
    std::fflush(nullptr);
    _exit(status);  // the test program's own ending is not the child's
  }
  close(ends[1]);
  pipe_ = ends[0];
}

HistoryChild::~HistoryChild() {
  kill();
  wait();
  close(pipe_);
}

std::optional<int> HistoryChild::next() {
  int number = 0;
  ssize_t got = 0;
  do {
    got = read(pipe_, &number, sizeof number);
  } while (got < 0 && errno == EINTR);
  return got == sizeof number ? std::optional(number) : std::nullopt;
}

void HistoryChild::kill() {
  if (pid_ > 0) ::kill(pid_, SIGKILL);
}

std::optional<int> HistoryChild::wait() {
  if (pid_ <= 0) return std::nullopt;
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace monitor::fakes
