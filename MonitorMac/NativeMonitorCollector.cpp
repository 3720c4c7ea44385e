// SPDX-License-Identifier: MIT
#include "MonitorMac/NativeMonitorCollector.h"

#include <cmath>
#include <cstddef>
#include <string_view>
#include <utility>

#include "MonitorCore/AppAggregator.h"
#include "MonitorCore/Utf8.h"
#include "MonitorMac/HostFormulas.h"

namespace monitor {
namespace {

// Seconds of uptime after which a pause voids every rate.
constexpr double kLongestGap = 90.0;
// Seconds between two refreshes of the interface set and of the accessories.
constexpr double kRefreshInterval = 30.0;
constexpr std::size_t kMostIdentities = 4'096;

void put(MonitorSnapshot& snapshot, MetricID metric, std::optional<double> value, MetricUnit unit,
         std::string_view source, std::optional<std::string_view> detail = std::nullopt,
         MetricState state = MetricState::Available) {
  std::optional<std::string> text;
  if (detail) text = std::string(*detail);
  snapshot.readings.insert_or_assign(
      metric, MetricReading(value, unit, std::string(source), state, snapshot.timestamp, std::move(text)));
}

std::optional<double> asDouble(std::optional<std::uint64_t> value) {
  if (!value) return std::nullopt;
  return static_cast<double>(*value);
}

// A folder or a device may be called anything; records hold well-formed text.
std::optional<std::string> repaired(std::optional<std::string> text) {
  if (text) text = repairedUtf8(*std::move(text));
  return text;
}

// What is no path is a name that the kernel gave, which may hold slashes: "kworker/0:1".
std::string fileName(const std::string& path) {
  return path.starts_with('/') ? path.substr(path.rfind('/') + 1) : path;
}

}  // namespace

void NativeMonitorCollector::reset() {
  const std::lock_guard lock(mutex_);
  forgetRates();
}

void NativeMonitorCollector::forgetRates() {
  previousCPU_.reset();
  previousUptime_.reset();
  network_ = {};
  diskIO_ = {};
  processRates_.clear();
  order_.clear();
  lastInterfaces_ = -std::numeric_limits<double>::infinity();
  lastAccessories_ = -std::numeric_limits<double>::infinity();
}

MonitorSnapshot NativeMonitorCollector::sample(bool includeProjects) {
  const std::lock_guard lock(mutex_);
  MonitorSnapshot snapshot;
  snapshot.timestamp = ports_.wallClock.now();
  snapshot.uptime = ports_.uptime.now();
  const double elapsed = previousUptime_ ? snapshot.uptime - *previousUptime_ : 0.0;
  if (elapsed > kLongestGap || elapsed < 0.0) forgetRates();

  readCPU(snapshot);
  readMemory(snapshot);
  readPressure(snapshot);
  readHomeVolume(snapshot);
  readNetwork(snapshot);
  readStorage(snapshot);
  readBattery(snapshot);
  readProcesses(snapshot.uptime, includeProjects);
  // At least 30 s here, more than 30 s for the interfaces: the two are meant to differ.
  if (snapshot.uptime - lastAccessories_ >= kRefreshInterval) {
    refreshAccessories();
    lastAccessories_ = snapshot.uptime;
  }
  previousUptime_ = snapshot.uptime;
  snapshot.interval = elapsed > 0.0 && elapsed <= kLongestGap ? elapsed : 0.0;
  snapshot.apps = AppAggregator::groupAndClear(listing_.processes);
  snapshot.accessories = accessoryReadings_;
  snapshot.restrictedProcessCount = listing_.restricted;
  return snapshot;
}

void NativeMonitorCollector::readCPU(MonitorSnapshot& snapshot) {
  const SourceTexts& texts = ports_.texts;
  const auto current = ports_.host.cpuTicks();
  if (!current) {
    put(snapshot, MetricID::Cpu, std::nullopt, MetricUnit::Percent, texts.cpuFailed, texts.cpuFailedDetail,
        MetricState::Unsupported);
    return;
  }
  std::optional<double> total;
  if (previousCPU_) {
    if (const auto shares = cpuShares(*previousCPU_, *current)) {
      total = shares->total;
      put(snapshot, MetricID::CpuUser, shares->user, MetricUnit::Percent, texts.cpu);
      put(snapshot, MetricID::CpuSystem, shares->system, MetricUnit::Percent, texts.cpu);
      put(snapshot, MetricID::CpuIdle, shares->idle, MetricUnit::Percent, texts.cpu);
    }
  }
  put(snapshot, MetricID::Cpu, total, MetricUnit::Percent, texts.cpu, texts.cpuDetail);
  previousCPU_ = current;
}

void NativeMonitorCollector::readMemory(MonitorSnapshot& snapshot) {
  const SourceTexts& texts = ports_.texts;
  if (const auto physical = ports_.host.physicalMemory()) {
    put(snapshot, MetricID::MemoryTotal, asDouble(physical), MetricUnit::Bytes, texts.memoryTotal);
  }
  const auto memory = ports_.host.memory();
  if (!memory) return;
  if (memory->used) {
    put(snapshot, MetricID::MemoryUsed, asDouble(memory->used), MetricUnit::Bytes, texts.memoryUsed,
        texts.memoryUsedDetail);
  }
  if (memory->wired) {
    put(snapshot, MetricID::MemoryWired, asDouble(memory->wired), MetricUnit::Bytes, texts.memoryWired);
  }
  if (memory->compressed) {
    put(snapshot, MetricID::MemoryCompressed, asDouble(memory->compressed), MetricUnit::Bytes,
        texts.memoryCompressed);
  }
}

void NativeMonitorCollector::readPressure(MonitorSnapshot& snapshot) {
  if (const auto level = ports_.host.memoryPressureLevel()) {
    put(snapshot, MetricID::MemoryPressure, pressureFromLevel(*level), MetricUnit::Level,
        ports_.texts.memoryPressure);
  }
}

void NativeMonitorCollector::readHomeVolume(MonitorSnapshot& snapshot) {
  const auto volume = ports_.host.homeVolume();
  if (!volume) return;
  put(snapshot, MetricID::DiskTotal, asDouble(volume->total), MetricUnit::Bytes, ports_.texts.diskTotal);
  put(snapshot, MetricID::DiskFree, asDouble(volume->available), MetricUnit::Bytes, ports_.texts.diskFree);
}

void NativeMonitorCollector::readNetwork(MonitorSnapshot& snapshot) {
  if (snapshot.uptime - lastInterfaces_ > kRefreshInterval) {
    physicalInterfaces_ = ports_.network.physicalInterfaces();
    lastInterfaces_ = snapshot.uptime;
  }
  std::vector<NetworkCounter> counters;
  for (InterfaceCounter& counter : ports_.network.counters()) {
    const bool physical = counter.up && physicalInterfaces_.contains(counter.name);
    counters.push_back({std::move(counter.name), counter.received, counter.sent, physical});
  }
  const auto rates = network_.sample(counters, snapshot.uptime);
  const SourceTexts& texts = ports_.texts;
  put(snapshot, MetricID::Download, rates.download, MetricUnit::BytesPerSecond, texts.network,
      texts.downloadDetail);
  put(snapshot, MetricID::Upload, rates.upload, MetricUnit::BytesPerSecond, texts.network);
}

void NativeMonitorCollector::readStorage(MonitorSnapshot& snapshot) {
  std::vector<NetworkCounter> counters;
  for (StorageCounter& counter : ports_.storage.counters()) {
    if (!counter.read || !counter.written) continue;
    counters.push_back({std::move(counter.id), *counter.read, *counter.written, true});
  }
  const auto rates = diskIO_.sample(counters, snapshot.uptime);
  const SourceTexts& texts = ports_.texts;
  put(snapshot, MetricID::DiskRead, rates.download, MetricUnit::BytesPerSecond, texts.storage,
      texts.diskReadDetail);
  put(snapshot, MetricID::DiskWrite, rates.upload, MetricUnit::BytesPerSecond, texts.storage);
}

void NativeMonitorCollector::readBattery(MonitorSnapshot& snapshot) {
  const SourceTexts& texts = ports_.texts;
  for (const PowerSource& source : ports_.power.sources()) {
    if (!source.internalBattery) continue;
    if (const auto percent = batteryPercent(source)) {
      put(snapshot, MetricID::Battery, percent, MetricUnit::Percent, texts.battery, source.state);
    }
    if (source.minutesToEmpty && *source.minutesToEmpty > 0) {
      put(snapshot, MetricID::BatteryMinutes, source.minutesToEmpty, MetricUnit::Minutes,
          texts.batteryMinutes);
    }
  }
  if (const auto wear = ports_.power.wear()) {
    if (const auto health = batteryHealth(*wear)) {
      put(snapshot, MetricID::BatteryHealth, health, MetricUnit::Percent, texts.batteryHealth,
          texts.batteryHealthDetail);
    }
  }
}

void NativeMonitorCollector::refreshAccessories() {
  accessoryReadings_.clear();
  for (const Accessory& accessory : ports_.accessories.connected()) {
    // Written so that NaN is refused too.
    if (!accessory.batteryPercent ||
        !(*accessory.batteryPercent >= 0.0 && *accessory.batteryPercent <= 100.0)) {
      continue;
    }
    accessoryReadings_.emplace_back(
        repairedUtf8(accessory.id),
        repaired(accessory.product).value_or(std::string(ports_.texts.accessoryName)),
        *accessory.batteryPercent);
  }
}

void NativeMonitorCollector::readProcesses(double uptime, bool includeProjects) {
  ++pass_;
  const Pass pass{uptime, ports_.system.userIdentifier(), ports_.processes.cpuTimeUnitNanoseconds(),
                  includeProjects};
  const std::vector<std::int32_t> pids = ports_.processes.allPids();
  lastOrder_.swap(order_);
  order_.clear();
  next_ = 0;
  listing_.processes.clear();
  listing_.restricted = 0;
  listing_.processes.reserve(pids.size());
  for (const std::int32_t pid : pids) {
    if (pid > 0) readProcess(pid, pass);
  }
  forgetEndedProcesses();
  if (identities_.size() > kMostIdentities) identities_.clear();
}

// Processes mostly come in the order of the last pass. Following that order spares the search, and what the
// next ones need is on its way from memory in good time: after a second of other programs none of it is in a
// cache.
NativeMonitorCollector::Remembered& NativeMonitorCollector::remembered(const ProcessKey& key) {
  constexpr std::size_t kAhead = 6;
  if (next_ + kAhead < lastOrder_.size()) prefetch(*lastOrder_[next_ + kAhead]);
  if (next_ < lastOrder_.size() && lastOrder_[next_]->first == key) return *lastOrder_[next_++];
  const auto [entry, isNew] = processRates_.try_emplace(key);
  if (!isNew) next_ = entry->second.place + 1;  // some ended, or the order is another one
  return *entry;
}

void NativeMonitorCollector::prefetch(const Remembered& process) {
  constexpr std::size_t kCacheLine = 64;
  const char* begin = reinterpret_cast<const char*>(&process);
  for (std::size_t line = 0; line < sizeof process; line += kCacheLine) __builtin_prefetch(begin + line);
}

void NativeMonitorCollector::forgetEndedProcesses() {
  if (order_.size() == processRates_.size()) return;
  std::erase_if(processRates_, [this](const auto& entry) { return entry.second.pass != pass_; });
}

void NativeMonitorCollector::readProcess(std::int32_t pid, const Pass& pass) {
  const auto info = processInfo(ports_.processes, pid);
  if (!info || info->owner != pass.owner) return;
  const auto usage = ports_.processes.usage(pid);
  if (!usage) {
    ++listing_.restricted;
    return;
  }
  Remembered& process = remembered(info->key);
  Known& known = process.second;
  if (known.pass == 0 || ports_.processes.mayHaveNewIdentity(pid)) identify(pid, known);
  if (std::exchange(known.pass, pass_) != pass_) {
    known.place = order_.size();
    order_.push_back(&process);
  }

  ProcessSample& sample = listing_.processes.emplace_back();
  sample.key = info->key;
  sample.parentPID = info->parent;
  sample.owner = info->owner;
  sample.executable = known.executable;
  sample.name = known.identity.name;
  sample.bundleID = known.identity.bundleID;
  if (const auto rate = known.cpu.sample(usage->cpuTime, pass.uptime)) {
    sample.cpu = cpuPercent(*rate, pass.cpuTimeUnit);
  }
  if (usage->diskRead) sample.diskRead = known.diskRead.sample(*usage->diskRead, pass.uptime);
  if (usage->diskWritten) sample.diskWrite = known.diskWrite.sample(*usage->diskWritten, pass.uptime);
  sample.memory = usage->memory;
  if (pass.includeProjects) {
    sample.ports = ports_.processes.listeningPorts(pid);
    if (!sample.ports.empty()) sample.directory = repaired(ports_.processes.workingDirectory(pid));
  }
}

void NativeMonitorCollector::identify(std::int32_t pid, Known& known) {
  known.executable = executable(ports_.processes, pid);
  known.identity = identity(pid, known.executable);
  if (known.identity.name.empty()) known.identity.name = "Process " + std::to_string(pid);
}

const NativeMonitorCollector::Identity& NativeMonitorCollector::identity(std::int32_t pid,
                                                                         const std::string& executable) {
  const std::string key = ports_.bundles.identityKey(pid, executable);
  if (const auto known = identities_.find(key); known != identities_.end()) return known->second;
  Identity identity{fileName(executable), std::nullopt};
  if (const auto bundle = ports_.bundles.bundleOfProcess(pid, executable)) {
    identity.bundleID = bundle->identifier;
    if (bundle->displayName) {
      identity.name = *bundle->displayName;
    } else if (bundle->name) {
      identity.name = *bundle->name;
    }
  }
  return identities_.emplace(key, std::move(identity)).first->second;
}

}  // namespace monitor
