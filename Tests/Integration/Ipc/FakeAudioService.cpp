// SPDX-License-Identifier: MIT
// The audio service over a made-up audio system: everything but the sound is real. It lists as many programs
// as it is told to, none of which plays just now, so that their routes stay without a single cycle. On
// SIGUSR1 it prints what is left of its clients.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "MonitorCore/ProcessKey.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Base/RandomUuid.h"
#include "Platform/Linux/Ipc/AudioServiceListener.h"
#include "Platform/Linux/Service/ServiceProcess.h"
#include "Tests/Fakes/FakeAudioHardware.h"
#include "Tests/Fakes/FakeSystemInformation.h"

namespace {

using namespace monitor;

constexpr std::int32_t kFirstPid = 100'001;
constexpr std::uint64_t kStartSeconds = 1'700'000'000;

// One process for each program, all of them started at the same moment. Any thread.
class MadeUpProcesses final : public ProcessTable {
 public:
  MadeUpProcesses(int count, std::uint32_t owner) : count_(count), owner_(owner) {}
  std::vector<std::int32_t> allPids() override { return {}; }
  std::optional<ProcessRecord> record(std::int32_t pid) override {
    if (!known(pid)) return std::nullopt;
    return ProcessRecord{kStartSeconds, 0, 1, owner_};
  }
  std::string executablePath(std::int32_t pid) override {
    return known(pid) ? "/opt/programs/program-" + std::to_string(pid - kFirstPid + 1) : std::string();
  }
  std::optional<ProcessUsage> usage(std::int32_t) override { return std::nullopt; }
  [[nodiscard]] double cpuTimeUnitNanoseconds() const override { return 1.0; }
  std::vector<std::int64_t> listeningPorts(std::int32_t) override { return {}; }
  std::optional<std::string> workingDirectory(std::int32_t) override { return std::nullopt; }

 private:
  [[nodiscard]] bool known(std::int32_t pid) const { return pid >= kFirstPid && pid < kFirstPid + count_; }
  int count_;
  std::uint32_t owner_;
};

struct NoBundles final : ApplicationBundles {
  std::optional<ApplicationBundle> bundleOfProcess(std::int32_t, const std::string&) override {
    return std::nullopt;
  }
  std::string identityKey(std::int32_t, const std::string& executable) override { return executable; }
};

// Prints, for every SIGUSR1, what is left of the service's clients; asked when nothing is under way.
class StatusPrinter {
 public:
  explicit StatusPrinter(fakes::FakeAudioHardware& hardware) : hardware_(hardware) {
    sigemptyset(&set_);
    sigaddset(&set_, SIGUSR1);
    // In every thread that is to come.
    pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    thread_ = std::thread([this] { run(); });
  }
  ~StatusPrinter() {
    done_ = true;
    pthread_kill(thread_.native_handle(), SIGUSR1);
    thread_.join();
  }
  StatusPrinter(const StatusPrinter&) = delete;
  StatusPrinter& operator=(const StatusPrinter&) = delete;

 private:
  void run() const {
    for (int signal = 0; sigwait(&set_, &signal) == 0 && !done_;) {
      std::cout << "views=" << hardware_.openViews() << " taps=" << hardware_.taps().size()
                << " devices=" << hardware_.aggregates().size() << " listeners=" << hardware_.listeners()
                << " queues=" << platform::liveSerialQueues() << std::endl;
    }
  }

  fakes::FakeAudioHardware& hardware_;
  sigset_t set_{};
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

}  // namespace

int main(int argc, char** argv) {
  auto options = platform::AudioServiceListener::defaults();
  int programs = 3;
  std::uint32_t user = getuid();
  CLI::App arguments("The audio service over a made-up audio system");
  arguments.add_option("--programs", programs, "Programs that it lists");
  arguments.add_option("--idle", options.idleSeconds, "Seconds after which it leaves");
  arguments.add_option("--user", user, "User whose service it claims to be");
  CLI11_PARSE(arguments, argc, argv);

  // Signals that end the service are its main thread's, also with the printer's thread beside it.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  fakes::FakeAudioHardware hardware;
  hardware.recordsCalls = false;
  for (int i = 0; i < programs; ++i) hardware.addProcess(kFirstPid + i, false);
  MadeUpProcesses processes(programs, user);
  NoBundles bundles;
  fakes::FakeSystemInformation system;
  system.user = user;
  system.process = getpid();
  const platform::MonotonicClock clock;
  const auto queues = platform::makeSerialQueueFactory();
  const StatusPrinter printer(hardware);

  const int status = platform::runServiceProcess(
      {hardware, *queues, clock, processes, bundles, system, platform::randomUuid}, options);
  std::fprintf(stderr, "left with %zu views, %s\n", hardware.openViews(),
               hardware.isClean() ? "clean" : "not clean");
  return status;
}
