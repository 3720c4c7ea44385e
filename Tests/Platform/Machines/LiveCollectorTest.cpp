// SPDX-License-Identifier: MIT
// The collector on the machine the test runs on, next to what ps, ss and free say of it. Those run a moment
// before and a moment after the sample: what both agree on must be in it.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "MonitorMac/NativeMonitorCollector.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/LinuxSystemInformation.h"
#include "Platform/Linux/Host/NetlinkInterfaces.h"
#include "Platform/Linux/Host/ProcfsHostStatistics.h"
#include "Platform/Linux/Host/SysfsDevices.h"
#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ProcessAdapters.h"

namespace monitor::platform {
namespace {

bool installed(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

std::string outputOf(const std::string& command) {
  struct Close {
    void operator()(FILE* file) const { ::pclose(file); }
  };
  const std::unique_ptr<FILE, Close> pipe(::popen(("LC_ALL=C " + command).c_str(), "r"));
  std::string output;
  std::array<char, 4096> chunk;
  while (pipe != nullptr) {
    const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe.get());
    if (count == 0) break;
    output.append(chunk.data(), count);
  }
  return output;
}

class LiveCollectorTest : public testing::Test {
 protected:
  MonitorSnapshot sample() { return collector_.sample(true); }

 private:
  BootTimeClock uptime_;
  SystemWallClock wallClock_;
  std::shared_ptr<SystemInformation> system_ = makeSystemInformation();
  ProcfsHostStatistics host_{HostFiles(), "/"};
  NetlinkInterfaces network_{HostFiles()};
  SysfsBlockStorage storage_{HostFiles()};
  SysfsPowerSources power_{HostFiles()};
  SysfsAccessories accessories_{HostFiles()};
  std::shared_ptr<ProcessTable> processes_ = makeSampledProcessTable();
  std::shared_ptr<ApplicationBundles> bundles_ = makeApplicationBundles();
  NativeMonitorCollector collector_{{uptime_, wallClock_, *system_, host_, network_, storage_, power_,
                                     accessories_, *processes_, *bundles_, kLinuxSourceTexts}};
};

std::map<std::int32_t, ProcessSample> byPid(const MonitorSnapshot& snapshot) {
  std::map<std::int32_t, ProcessSample> result;
  for (const AppUsage& app : snapshot.apps) {
    for (const ProcessSample& process : app.processes) result.emplace(process.key.pid, process);
  }
  return result;
}

struct PsRow {
  std::int32_t parent = 0;
  unsigned long owner = 0;
  double ageSeconds = 0.0;
};

// Without those that only wait for their parent.
std::map<std::int32_t, PsRow> psRows() {
  std::istringstream lines(outputOf("ps -eo pid=,ppid=,uid=,etimes=,stat="));
  std::map<std::int32_t, PsRow> rows;
  std::int32_t pid = 0;
  PsRow row;
  std::string state;
  while (lines >> pid >> row.parent >> row.owner >> row.ageSeconds >> state) {
    if (!state.starts_with('Z') && !state.starts_with('X')) rows[pid] = row;
  }
  return rows;
}

TEST_F(LiveCollectorTest, ProcessesAreThoseOfPs) {
  if (!installed("ps")) GTEST_SKIP() << "ps is not installed";
  (void)sample();  // its second sample answers from what it kept
  const auto before = psRows();
  const MonitorSnapshot snapshot = sample();
  const auto after = psRows();
  const auto found = byPid(snapshot);
  std::size_t compared = 0;
  for (const auto& [pid, row] : before) {
    const auto later = after.find(pid);
    // Ended meanwhile, a new one under its pid, changed its user or its parent: nothing to be compared with.
    if (later == after.end() || later->second.ageSeconds < row.ageSeconds ||
        row.owner != later->second.owner || row.parent != later->second.parent) {
      continue;
    }
    if (row.owner != ::getuid()) {
      EXPECT_FALSE(found.contains(pid)) << pid;
      continue;
    }
    const auto process = found.find(pid);
    if (process == found.end()) {
      EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(pid) + "/stat")) << pid;
      continue;
    }
    EXPECT_EQ(process->second.parentPID, row.parent) << pid;
    const double age =
        snapshot.timestamp.secondsSince1970() - static_cast<double>(process->second.key.start) / 1e6;
    EXPECT_GE(age, row.ageSeconds - 5.0) << pid;
    EXPECT_LE(age, later->second.ageSeconds + 5.0) << pid;
    ++compared;
  }
  EXPECT_GE(compared, 1U) << "this test is a process too";
}

// A child that computes, and ends with its holder.
class Busy {
 public:
  Busy() : pid_(::fork()) {
    if (pid_ == 0) {
      while (true) asm volatile("");
    }
  }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;
  ~Busy() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  [[nodiscard]] std::int32_t pid() const { return pid_; }
  // Processor seconds so far, by the child's own clock.
  [[nodiscard]] double seconds() const {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(pid_, &clock) != 0 || ::clock_gettime(clock, &time) != 0) return 0.0;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }
  // However little a loaded machine gives it.
  void waitFor(double wanted) const {
    while (seconds() < wanted) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

 private:
  pid_t pid_;
};

TEST_F(LiveCollectorTest, ShareOfABusyProcessIsTheTimeItHad) {
  const Busy child;
  child.waitFor(0.05);
  const double earliest = child.seconds();
  const MonitorSnapshot first = sample();
  const double early = child.seconds();
  child.waitFor(early + 0.3);
  const double late = child.seconds();
  const MonitorSnapshot second = sample();
  const double latest = child.seconds();
  ASSERT_GT(second.interval, 0.0);
  const auto found = byPid(second);
  ASSERT_TRUE(found.contains(child.pid()));
  ASSERT_TRUE(found.at(child.pid()).cpu);
  const double seconds = *found.at(child.pid()).cpu / 100.0 * second.interval;
  constexpr double kTick = 0.01;
  EXPECT_GE(seconds, late - early - 2 * kTick);
  EXPECT_LE(seconds, latest - earliest + 2 * kTick);
}

struct Free {
  double total = 0.0;
  double available = 0.0;
};

Free freeMemory() {
  std::istringstream lines(outputOf("free -b"));
  Free memory;
  std::string word;
  while (lines >> word && word != "Mem:") {
  }
  double used = 0, unused = 0, shared = 0, cached = 0;
  lines >> memory.total >> used >> unused >> shared >> cached >> memory.available;
  return memory;
}

TEST_F(LiveCollectorTest, MemoryIsThatOfFree) {
  if (!installed("free")) GTEST_SKIP() << "free is not installed";
  constexpr int kAttempts = 20;  // other programs allocate and release meanwhile
  constexpr double kSlack = 0.03;
  bool agreed = false;
  for (int attempt = 0; attempt < kAttempts && !agreed; ++attempt) {
    const Free before = freeMemory();
    const MonitorSnapshot snapshot = sample();
    const Free after = freeMemory();
    const double total = snapshot.readings.at(MetricID::MemoryTotal).value.value_or(0.0);
    EXPECT_EQ(total, before.total);
    const double available = total - snapshot.readings.at(MetricID::MemoryUsed).value.value_or(0.0);
    agreed = available >= std::min(before.available, after.available) - kSlack * total &&
             available <= std::max(before.available, after.available) + kSlack * total;
  }
  EXPECT_TRUE(agreed);
}

std::set<std::int64_t> ssPorts() {
  std::istringstream lines(outputOf("ss -Hltn"));
  std::set<std::int64_t> ports;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string state, receive, send, local;
    words >> state >> receive >> send >> local;
    const std::size_t colon = local.rfind(':');
    if (colon != std::string::npos) ports.insert(std::atoll(local.c_str() + colon + 1));
  }
  return ports;
}

std::int64_t listenSomewhere(int socket) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(socket, generic, length) != 0 || ::listen(socket, 1) != 0 ||
      ::getsockname(socket, generic, &length) != 0) {
    return 0;
  }
  return ntohs(address.sin_port);
}

TEST_F(LiveCollectorTest, PortsAreThoseOfSs) {
  if (!installed("ss")) GTEST_SKIP() << "ss is not installed";
  const FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const std::int64_t port = listenSomewhere(listener.get());
  ASSERT_NE(port, 0);
  std::set<std::int64_t> known = ssPorts();
  EXPECT_TRUE(known.contains(port));
  const auto found = byPid(sample());
  known.merge(ssPorts());
  ASSERT_TRUE(found.contains(::getpid()));
  const ProcessSample& own = found.at(::getpid());
  EXPECT_NE(std::find(own.ports.begin(), own.ports.end(), port), own.ports.end());
  EXPECT_EQ(own.directory, std::filesystem::current_path().string());
  const auto ownNetwork = readLink("/proc/self/ns/net");
  for (const auto& [pid, process] : found) {
    if (readLink("/proc/" + std::to_string(pid) + "/ns/net") != ownNetwork) continue;  // ss sees ours only
    for (const std::int64_t each : process.ports) {
      // Opened and closed again between the two listings.
      if (known.contains(each)) continue;
      EXPECT_FALSE(ssPorts().contains(each)) << pid << ':' << each;
    }
  }
}

}  // namespace
}  // namespace monitor::platform
