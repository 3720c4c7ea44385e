// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/PrivateStack.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>

#include "Tools/AudioLab/Cleanup.h"
#include "Tools/AudioLab/Graph.h"
#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/StackFiles.h"

namespace monitor::lab {
namespace {

namespace fs = std::filesystem;

// Generous, since a loaded machine is slow and not broken; a start takes well under a second otherwise.
constexpr Milliseconds kStartDeadline(15'000);

const char* programOf(Daemon daemon) {
  switch (daemon) {
    case Daemon::Bus:
      return "dbus-daemon";
    case Daemon::PipeWire:
      return "pipewire";
    case Daemon::SessionManager:
      return "wireplumber";
    case Daemon::Pulse:
      return "pipewire-pulse";
  }
  return "";
}

fs::path makeDirectory() {
  const char* root = std::getenv("TMPDIR");
  std::string pattern = std::string(root != nullptr && *root != '\0' ? root : "/tmp") + "/vesk-lab-XXXXXX";
  // A socket's path may have 107 characters, and the longest below the directory takes 25 of them.
  if (pattern.size() > 75) pattern = "/tmp/vesk-lab-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr)
    throw LabError("cannot make " + pattern + ": " + std::strerror(errno));
  return pattern;
}

bool accepts(const fs::path& socket) {
  const Descriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socket.c_str(), sizeof address.sun_path - 1);
  return ::connect(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

PrivateStack::PrivateStack(StackOptions options) : options_(std::move(options)), directory_(makeDirectory()) {
  try {
    startKeeper();
    writeStackFiles(directory_, options_);
    environment_ = stackEnvironment(directory_, options_);
    startAll();
  } catch (...) {
    for (auto& child : processes_) child.kill();
    removeStack(directory_);
    throw;
  }
}

PrivateStack::~PrivateStack() {
  // The session manager first: it would only log the loss of everything else. SIGTERM would make the daemons
  // tidy up, which nobody needs from a directory that is about to go.
  for (const auto daemon : {Daemon::SessionManager, Daemon::Pulse, Daemon::PipeWire, Daemon::Bus})
    process(daemon).kill();
  removeStack(directory_);
}

void PrivateStack::startKeeper() {
  SpawnOptions options;
  options.command = {builtProgram("vesk-lab-keeper"), directory_.string()};
  options.environment = neutralEnvironment();
  options.talk = true;
  options.diesWithParent = false;
  keeper_ = ChildProcess(options);
}

void PrivateStack::startAll() {
  if (options_.bus) start(Daemon::Bus);
  start(Daemon::PipeWire);
  start(Daemon::SessionManager);
  if (options_.pulse) start(Daemon::Pulse);
  started_ = true;
}

void PrivateStack::kill(Daemon daemon, int signal) {
  if (signal == SIGKILL) return process(daemon).kill();
  process(daemon).signal(signal);
  const bool ends = signal == SIGTERM || signal == SIGINT || signal == SIGHUP;
  if (ends && !process(daemon).wait(kStartDeadline)) fail(daemon, "does not end");
}

void PrivateStack::start(Daemon daemon) {
  std::vector<std::string> command = {programOf(daemon)};
  if (daemon == Daemon::Bus) {
    command.insert(command.end(),
                   {"--config-file=" + (directory_ / "bus.conf").string(), "--nofork", "--nopidfile"});
  }
  process(daemon) = spawn(programOf(daemon), std::move(command));
  switch (daemon) {
    case Daemon::Bus:
      return waitForSocket(daemon, directory_ / "run/bus");
    case Daemon::PipeWire:
      return waitForSocket(daemon, directory_ / "run/pipewire-0");
    case Daemon::SessionManager:
      return waitForDefaultSink();
    case Daemon::Pulse:
      return waitForSocket(daemon, directory_ / "run/pulse/native");
  }
}

void PrivateStack::restart(Daemon daemon) {
  process(daemon).kill();
  start(daemon);
}

ChildProcess PrivateStack::spawn(const std::string& name, std::vector<std::string> command, bool talk) const {
  SpawnOptions options;
  options.command = std::move(command);
  options.environment = environment_;
  options.log = log(name);
  options.talk = talk;
  return ChildProcess(options);
}

CommandResult PrivateStack::run(std::vector<std::string> command, Milliseconds deadline) const {
  SpawnOptions options;
  options.log = log(fs::path(command.front()).filename().string());
  options.command = std::move(command);
  options.environment = environment_;
  return runCommand(std::move(options), deadline);
}

void PrivateStack::waitForSocket(Daemon daemon, const fs::path& socket) {
  const auto end = std::chrono::steady_clock::now() + kStartDeadline;
  while (!accepts(socket)) {
    if (!process(daemon).running()) fail(daemon, "ended while starting");
    if (std::chrono::steady_clock::now() > end) fail(daemon, "does not listen on " + socket.string());
    std::this_thread::sleep_for(Milliseconds(10));
  }
}

void PrivateStack::waitForDefaultSink() {
  if (options_.sinks.empty()) return;
  Graph graph(remote(), kStartDeadline);
  const auto& wanted = options_.sinks.front().name;
  const auto end = std::chrono::steady_clock::now() + kStartDeadline;
  // In short turns, to notice early when the session manager does not even run.
  // A restarted one may remember another default output.
  const auto ready = [&](const GraphView& now) {
    return started_ ? !now.defaultSink().empty() : now.defaultSink() == wanted;
  };
  while (!graph.waitUntil(ready, Milliseconds(500))) {
    if (!process(Daemon::SessionManager).running()) fail(Daemon::SessionManager, "ended while starting");
    if (std::chrono::steady_clock::now() > end) {
      fail(Daemon::SessionManager, "does not make " + wanted + " the default output");
    }
  }
}

void PrivateStack::fail(Daemon daemon, const std::string& what) const {
  const std::string name = programOf(daemon);
  throw LabError(name + " " + what + fileTail(log(name), 12));
}

std::string builtProgram(const std::string& name) {
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  for (const auto& folder : {here, here / "../bin"}) {
    if (::access((folder / name).c_str(), X_OK) == 0) return fs::weakly_canonical(folder / name).string();
  }
  throw LabError("\"" + name + "\" is not built: it is neither in " + here.string() + " nor in ../bin");
}

}  // namespace monitor::lab
