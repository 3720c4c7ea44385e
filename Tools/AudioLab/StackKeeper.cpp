// SPDX-License-Identifier: MIT
// Waits until the owner of a stack has gone, by the end of its stdin, and removes what is left of the stack:
// a test that is killed leaves neither processes nor files.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include "Tools/AudioLab/Cleanup.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: vesk-lab-keeper DIRECTORY\n", stderr);
    return 2;
  }
  ::setsid();
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) ::signal(number, SIG_IGN);
  std::array<char, 64> buffer{};
  for (;;) {
    const auto count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count == 0 || (count < 0 && errno != EINTR)) break;
  }
  if (std::filesystem::exists(argv[1])) monitor::lab::removeStack(argv[1]);
  return 0;
}
