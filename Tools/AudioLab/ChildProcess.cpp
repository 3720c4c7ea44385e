// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <fstream>
#include <utility>

#include "Tools/AudioLab/LabError.h"

namespace monitor::lab {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what) {
  throw LabError(what + ": " + std::strerror(errno));
}

int openPidfd(pid_t pid) {
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

// Everything the child needs is made before fork(): after it, a child of a threaded process may only make
// calls that are safe in a signal handler.
struct Prepared {
  std::vector<std::string> texts;
  std::vector<char*> arguments, environment;
  std::string file;
};

std::string findInPath(const std::string& program, const Environment& environment) {
  if (program.find('/') != std::string::npos) return program;
  const auto path = environment.find("PATH");
  std::string folders = path == environment.end() ? "/usr/local/bin:/usr/bin:/bin" : path->second;
  for (std::size_t begin = 0; begin <= folders.size();) {
    const auto end = std::min(folders.find(':', begin), folders.size());
    const std::string candidate = folders.substr(begin, end - begin) + "/" + program;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    begin = end + 1;
  }
  throw LabError("\"" + program + "\" is not installed (not found in " + folders + ")");
}

Prepared prepare(const SpawnOptions& options) {
  if (options.command.empty()) throw LabError("no command to start");
  Prepared result;
  result.file = findInPath(options.command.front(), options.environment);
  result.texts = options.command;
  for (const auto& [name, value] : options.environment) result.texts.push_back(name + "=" + value);
  for (std::size_t i = 0; i < result.texts.size(); ++i) {
    auto& list = i < options.command.size() ? result.arguments : result.environment;
    list.push_back(result.texts[i].data());
  }
  result.arguments.push_back(nullptr);
  result.environment.push_back(nullptr);
  return result;
}

struct Ends {
  Descriptor read, write;
};

Ends makePipe() {
  std::array<int, 2> numbers{};
  if (::pipe2(numbers.data(), O_CLOEXEC) != 0) fail("pipe");
  return {Descriptor(numbers[0]), Descriptor(numbers[1])};
}

Descriptor openFile(const std::filesystem::path& file, int flags) {
  Descriptor result(::open(file.c_str(), flags | O_CLOEXEC, 0600));
  if (!result) fail("open " + file.string());
  return result;
}

// Runs in the child. 127 is the shell's status for a program that cannot be started.
[[noreturn]] void becomeProgram(const Prepared& prepared, bool diesWithParent, pid_t parent, int input,
                                int output, int errors) {
  if (diesWithParent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);  // the parent died before the line above
  }
  ::setpgid(0, 0);
  ::dup2(input, 0);
  ::dup2(output, 1);
  ::dup2(errors, 2);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  ::execve(prepared.file.c_str(), prepared.arguments.data(), prepared.environment.data());
  ::_exit(127);
}

int remaining(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, 3'600'000));
}

// True when `descriptor` is readable (or at its end) before the deadline.
bool waitReadable(int descriptor, Clock::time_point deadline) {
  pollfd entry{descriptor, POLLIN, 0};
  for (;;) {
    const int ready = ::poll(&entry, 1, remaining(deadline));
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) fail("poll");
  }
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    reset();
    number_ = other.release();
  }
  return *this;
}

int Descriptor::release() {
  return std::exchange(number_, -1);
}

void Descriptor::reset() {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

ChildProcess::ChildProcess(const SpawnOptions& options) {
  const Prepared prepared = prepare(options);
  name_ = options.command.front();
  Descriptor nothing = openFile("/dev/null", O_RDWR);
  Descriptor log;
  if (!options.log.empty()) log = openFile(options.log, O_WRONLY | O_CREAT | O_APPEND);
  const int errors = log ? log.get() : nothing.get();
  Ends toChild, fromChild;
  if (options.talk) {
    toChild = makePipe();
    fromChild = makePipe();
  }
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) fail("fork for " + name_);
  if (pid == 0) {
    becomeProgram(prepared, options.diesWithParent, parent, options.talk ? toChild.read.get() : nothing.get(),
                  options.talk ? fromChild.write.get() : errors, errors);
  }
  ::setpgid(pid, pid);  // both sides set it, so that it holds whoever runs first
  pid_ = group_ = pid;
  pidfd_ = Descriptor(openPidfd(pid));
  input_ = std::move(toChild.write);
  output_ = std::move(fromChild.read);
  if (!pidfd_) {
    kill();
    fail("pidfd_open for " + name_);
  }
}

ChildProcess::~ChildProcess() {
  kill();
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept {
  *this = std::move(other);
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  if (this == &other) return *this;
  kill();
  pid_ = std::exchange(other.pid_, 0);
  group_ = std::exchange(other.group_, 0);
  status_ = other.status_;
  pidfd_ = std::move(other.pidfd_);
  input_ = std::move(other.input_);
  output_ = std::move(other.output_);
  name_ = std::move(other.name_);
  received_ = std::move(other.received_);
  return *this;
}

void ChildProcess::reapIfEnded() {
  if (pid_ == 0) return;
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) != pid_) return;
  status_ = status;
  pid_ = 0;
}

bool ChildProcess::running() {
  reapIfEnded();
  return pid_ != 0;
}

void ChildProcess::signal(int number) const {
  if (pid_ != 0) ::kill(pid_, number);
}

void ChildProcess::signalGroup(int number) const {
  if (pid_ != 0) ::kill(-group_, number);
}

void ChildProcess::kill() {
  if (pid_ == 0) return;
  // The group's number stays taken until its leader is reaped, so this cannot hit a stranger.
  ::kill(-group_, SIGKILL);
  ::kill(pid_, SIGKILL);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  status_ = status;
  pid_ = 0;
}

void ChildProcess::terminate(Milliseconds grace) {
  signalGroup(SIGTERM);
  signalGroup(SIGCONT);
  wait(grace);
  kill();
}

std::optional<int> ChildProcess::wait(Milliseconds deadline) {
  if (pid_ != 0 && waitReadable(pidfd_.get(), Clock::now() + deadline)) reapIfEnded();
  return pid_ == 0 ? status_ : std::nullopt;
}

void ChildProcess::send(std::string_view line) {
  std::string text(line);
  text += '\n';
  // MSG_NOSIGNAL does not exist for pipes; a broken pipe must be an error here, never the end of the test.
  sigset_t pipeSignal, before;
  ::sigemptyset(&pipeSignal);
  ::sigaddset(&pipeSignal, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
  const auto written = ::write(input_.get(), text.data(), text.size());
  const int error = errno;
  if (written < 0 && error == EPIPE) {
    const timespec now{0, 0};
    ::sigtimedwait(&pipeSignal, nullptr, &now);
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  if (written != static_cast<ssize_t>(text.size()))
    fail(name_ + " does not take \"" + std::string(line) + "\"");
}

std::optional<std::string> ChildProcess::receive(Milliseconds deadline) {
  const auto end = Clock::now() + deadline;
  for (;;) {
    if (const auto newline = received_.find('\n'); newline != std::string::npos) {
      std::string line = received_.substr(0, newline);
      received_.erase(0, newline + 1);
      return line;
    }
    if (!output_ || !waitReadable(output_.get(), end)) return std::nullopt;
    std::array<char, 4096> buffer{};
    const auto count = ::read(output_.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {  // the end of the stream: what is left is the last line
      output_.reset();
      if (received_.empty()) return std::nullopt;
      return std::exchange(received_, {});
    }
    received_.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

CommandResult runCommand(SpawnOptions options, Milliseconds deadline) {
  options.talk = true;
  ChildProcess child(options);
  child.closeInput();
  const auto end = Clock::now() + deadline;
  CommandResult result;
  while (auto line = child.receive(Milliseconds(remaining(end)))) {
    result.output += *line;
    result.output += '\n';
  }
  const auto status = child.wait(Milliseconds(remaining(end)));
  if (!status)
    throw LabError("\"" + options.command.front() + "\" is not done after " +
                   std::to_string(deadline.count()) + " ms");
  result.status = WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status);
  return result;
}

std::string fileTail(const std::filesystem::path& file, std::size_t lines) {
  std::ifstream stream(file);
  std::deque<std::string> last;
  for (std::string line; std::getline(stream, line);) {
    last.push_back(line);
    if (last.size() > lines) last.pop_front();
  }
  std::string result;
  for (const auto& line : last) result += "\n    " + line;
  return result;
}

}  // namespace monitor::lab
