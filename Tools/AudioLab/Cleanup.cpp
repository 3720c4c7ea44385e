// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Cleanup.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/StackFiles.h"

namespace monitor::lab {
namespace {

namespace fs = std::filesystem;

bool carriesMark(const fs::path& process, const std::string& mark) {
  std::ifstream stream(process / "environ", std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
    if (at == 0 || text[at - 1] == '\0') return true;
  }
  return false;
}

// The mark is read again through a held pidfd, so that a number that was given to another process meanwhile
// is safe.
bool killMarked(const fs::path& process, pid_t pid, const std::string& mark) {
  const Descriptor held(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  if (!held || !carriesMark(process, mark)) return false;
  return ::syscall(SYS_pidfd_send_signal, held.get(), SIGKILL, nullptr, 0) == 0;
}

bool killAllMarked(const std::string& mark) {
  bool found = false;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    pid_t pid = 0;
    const auto [rest, failure] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (failure != std::errc{} || rest != name.data() + name.size() || pid == ::getpid()) continue;
    if (carriesMark(entry->path(), mark)) found = killMarked(entry->path(), pid, mark) || found;
  }
  return found;
}

}  // namespace

void removeStack(const fs::path& directory) {
  const std::string mark = std::string(kStackVariable) + "=" + directory.string() + '\0';
  // A process may have forked between two entries of the listing; a dead one loses its environment at once.
  for (int round = 0; round < 5 && killAllMarked(mark); ++round) ::usleep(2'000);
  std::error_code ignored;
  fs::remove_all(directory, ignored);
}

}  // namespace monitor::lab
