// SPDX-License-Identifier: MIT
#include "Platform/Posix/PosixToolRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

namespace monitor::platform {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// From the polite signal to the one that cannot be refused.
constexpr Seconds kGrace{1.0};
// How long an ended output may wait for the end of its process.
constexpr Seconds kExitWait{1.0};
// After the whole group was killed nothing is read for longer than this: a process that left the group may
// hold the pipe open for ever.
constexpr Seconds kAfterKill{0.25};
constexpr std::size_t kChunk = 65'536;

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { close(); }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

struct Pipe {
  Descriptor read;
  Descriptor write;
};

void keepFromChildren(int fd) {
  ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  keepFromChildren(ends[0]);
  keepFromChildren(ends[1]);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// The child's three standard streams and its process group, as posix_spawn wants them.
class SpawnSettings {
 public:
  SpawnSettings(int output, bool errorsToOutput) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    if (errorsToOutput) {
      ::posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO);
    } else {
      ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    // Signals that this process ignores or blocks must not make the tool deaf to SIGTERM.
    sigset_t all;
    sigset_t none;
    ::sigfillset(&all);
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setflags(&attributes_,
                               POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  [[nodiscard]] const posix_spawn_file_actions_t* actions() const { return &actions_; }
  [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> list;
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  return list;
}

int pollTimeout(Clock::time_point until) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 60'000));
}

bool readable(int fd, Clock::time_point until) {
  pollfd entry{fd, POLLIN, 0};
  return ::poll(&entry, 1, pollTimeout(until)) > 0;
}

// A running child. One thread waits for its end and says so through a pipe, so that the end and the output
// can be awaited together without touching the process's signal handling. The child is reaped last of all:
// until then its pid, and with it its group, cannot belong to anybody else.
class Child {
 public:
  Child(pid_t pid, Pipe ended) : pid_(pid), endedRead_(std::move(ended.read)) {
    waiter_ = std::thread([pid, notice = std::move(ended.write)] {
      siginfo_t info{};
      while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
      }
      const char byte = 0;
      (void)!::write(notice.get(), &byte, 1);
    });
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (!reaped_) (void)reap();
  }

  // Asks once; later calls leave the first one's time standing.
  void terminate() {
    if (terminatedAt_) return;
    ::kill(pid_, SIGTERM);
    terminatedAt_ = Clock::now();
  }
  void killGroup() const { ::kill(-pid_, SIGKILL); }
  // Whether the child has ended by `until`.
  [[nodiscard]] bool ended(Clock::time_point until) const { return readable(endedRead_.get(), until); }
  // Sees the child off: told to terminate, killed with its group when it has not ended a second later.
  void shutDown() {
    terminate();
    (void)ended(*terminatedAt_ + std::chrono::duration_cast<Clock::duration>(kGrace));
  }
  // Kills what is left of the group, reaps the child and returns its wait status.
  int reap() {
    killGroup();
    waiter_.join();
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    reaped_ = true;
    return status;
  }

 private:
  pid_t pid_;
  Descriptor endedRead_;
  std::optional<Clock::time_point> terminatedAt_;
  bool reaped_ = false;
  std::thread waiter_;
};

enum class ReadEnd : std::uint8_t { EndOfFile, TooLarge, GivenUp };

// Sends the two signals of an overdue run as their times come.
class Deadline {
 public:
  Deadline(Child& child, double timeout)
      : child_(child), next_(Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(timeout))) {}

  [[nodiscard]] Clock::time_point next() const { return next_; }
  // Whether the time to give up has come.
  [[nodiscard]] bool passed() {
    if (Clock::now() < next_) return false;
    if (stage_ == 0) child_.terminate();
    if (stage_ == 1) child_.killGroup();
    next_ += std::chrono::duration_cast<Clock::duration>(stage_ == 0 ? kGrace : kAfterKill);
    return ++stage_ == 3;
  }

 private:
  Child& child_;
  Clock::time_point next_;
  int stage_ = 0;  // 0 running, 1 told to terminate, 2 killed
};

ReadEnd readOutput(int fd, std::size_t limit, Deadline& deadline, Data& output) {
  std::vector<char> chunk(kChunk);
  while (true) {
    if (deadline.passed()) return ReadEnd::GivenUp;
    if (!readable(fd, deadline.next())) continue;
    const ssize_t count = ::read(fd, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return ReadEnd::EndOfFile;
    if (output.size() + static_cast<std::size_t>(count) > limit) return ReadEnd::TooLarge;
    output.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

// Waits for the end of a child whose output has ended; the run's own deadline goes on meanwhile.
bool awaitExit(const Child& child, Deadline& deadline) {
  const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(kExitWait);
  while (Clock::now() < until) {
    if (child.ended(std::min(until, deadline.next()))) return true;
    if (deadline.passed()) return false;
  }
  return false;
}

ToolResult finished(int status, Data output) {
  if (WIFSIGNALED(status)) return {ToolResult::Outcome::Signalled, WTERMSIG(status), std::move(output)};
  return {ToolResult::Outcome::Exited, WEXITSTATUS(status), std::move(output)};
}

std::vector<std::string> commandLine(const ToolRun& run) {
  std::vector<std::string> words{run.executable};
  words.insert(words.end(), run.arguments.begin(), run.arguments.end());
  return words;
}

std::vector<std::string> environmentOf(const ToolRun& run) {
  std::vector<std::string> words;
  for (const auto& [name, value] : run.environment) words.push_back(name + '=' + value);
  return words;
}

}  // namespace

ToolResult PosixToolRunner::run(const ToolRun& run) {
  Pipe output = makePipe();
  Pipe ended = makePipe();
  const SpawnSettings settings(output.write.get(), run.errorsToOutput);
  auto words = commandLine(run);
  auto environment = environmentOf(run);
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, run.executable.c_str(), settings.actions(), settings.attributes(),
                                  pointers(words).data(), pointers(environment).data());
  if (error != 0) return {ToolResult::Outcome::StartFailed, error, {}};
  output.write.close();

  Child child(pid, std::move(ended));
  Deadline deadline(child, run.timeout);
  Data bytes;
  const ReadEnd end = readOutput(output.read.get(), run.outputLimit, deadline, bytes);
  if (end == ReadEnd::EndOfFile && awaitExit(child, deadline))
    return finished(child.reap(), std::move(bytes));
  child.shutDown();
  const auto outcome =
      end == ReadEnd::TooLarge ? ToolResult::Outcome::OutputTooLarge : ToolResult::Outcome::StillRunning;
  return {outcome, 0, std::move(bytes)};
}

}  // namespace monitor::platform
