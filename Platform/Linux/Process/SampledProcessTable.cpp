// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/SampledProcessTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <functional>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {
namespace {

// Seconds. Listed anyway, for what takes a pid of its choice when it is restored.
constexpr double kListingPeriod = 10.0;
// More pids than this and than there are processes are not looked at one by one.
constexpr std::size_t kFewestProbes = 64;
// Seconds between two checks of a process that did not run, each with a period of its own so that they spread
// out.
constexpr double kShortestPeriod = 240.0;
constexpr std::int32_t kPeriods = 61;

// A process that ran in so many passes in a row is taken to have run, and asked in one of so many.
constexpr unsigned kBusyPasses = 4;

constexpr std::array<const char*, 3> kFileNames{"stat", "statm", "io"};

using RunsBuffer = std::array<char, 72>;  // three numbers of twenty digits
using StatBuffer = std::array<char, 4096>;
using FigureBuffer = std::array<char, 1024>;
using StatusBuffer = std::array<char, 64U << 10U>;

// The last word of loadavg: the pid that was given last, to a thread or to a process.
std::optional<std::int32_t> lastPidIn(std::string_view loadavg) {
  loadavg = loadavg.substr(0, loadavg.find('\n'));
  const std::string_view word = loadavg.substr(loadavg.rfind(' ') + 1);
  std::int32_t pid = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), pid);
  if (error != std::errc() || end != word.data() + word.size() || pid <= 0) return std::nullopt;
  return pid;
}

}  // namespace

SampledProcessTable::SampledProcessTable(Settings settings, std::shared_ptr<BootTime> bootTime,
                                         std::shared_ptr<const Clock> uptime)
    : settings_(std::move(settings)),
      bootTime_(std::move(bootTime)),
      uptime_(std::move(uptime)),
      plain_(settings_.root, bootTime_),
      proc_(settings_.root),
      ports_(proc_, settings_.root, settings_.listeners) {}

std::vector<std::int32_t> SampledProcessTable::allPids() {
  beginPass();
  const bool listing = !addNewPids(lastPid());
  if (listing) list();
  for (const std::int32_t pid : pids_) {
    if (Process* process = find(pid)) look(pid, *process);
  }
  if (listing) {
    forgetUnlisted();
  } else {
    for (const std::int32_t pid : ended_) std::erase(pids_, pid);
  }
  rereadOrphans();
  return pids_;
}

void SampledProcessTable::beginPass() {
  ++pass_;
  now_ = uptime_->now();
  ports_.beginPass();
  FigureBuffer buffer;  // the figures of the swap are among the first
  const auto memory = proc_.beginning("meminfo", buffer);
  swapInUse_ = memory && isSwapInUse(*memory);
}

std::optional<std::int32_t> SampledProcessTable::lastPid() const {
  FigureBuffer buffer;
  const auto text = proc_.read("loadavg", buffer);
  return text ? lastPidIn(*text) : std::nullopt;
}

bool SampledProcessTable::addNewPids(std::optional<std::int32_t> last) {
  const auto begin = std::exchange(lastPidBefore_, lastPid_);
  lastPid_ = last;
  if (!begin || !last || now_ < lastListing_ || now_ - lastListing_ >= kListingPeriod) return false;
  // Where they started over, and where there are so many that a listing is cheaper.
  if (*last < *begin || static_cast<std::size_t>(*last - *begin) > kFewestProbes + pids_.size()) return false;
  for (std::int32_t pid = *begin + 1; pid <= *last; ++pid) {
    const auto place = std::lower_bound(pids_.begin(), pids_.end(), pid);
    if ((place == pids_.end() || *place != pid) && isProcess(pid)) pids_.insert(place, pid);
  }
  return true;
}

// Threads other than the first cannot be listed, but can be opened like processes.
bool SampledProcessTable::isProcess(std::int32_t pid) const {
  if (!proc_.owner(pid)) return false;
  StatusBuffer buffer;
  const auto status = proc_.read(pid, "status", buffer);
  return !status || numberBehind(*status, "Tgid:").value_or(0) == static_cast<std::uint64_t>(pid);
}

void SampledProcessTable::list() {
  pids_ = proc_.pids();
  std::sort(pids_.begin(), pids_.end());
  lastListing_ = now_;
}

void SampledProcessTable::forgetUnlisted() {
  std::vector<std::int32_t> unlisted;
  for (const auto& [pid, process] : processes_) {
    if (process.pass != pass_) unlisted.push_back(pid);
  }
  for (const std::int32_t pid : unlisted) forget(pid);
}

void SampledProcessTable::rereadOrphans() {
  if (ended_.empty()) return;
  const std::set<std::int32_t> ended(ended_.begin(), ended_.end());
  for (auto& [pid, process] : processes_) {
    if (ended.contains(static_cast<std::int32_t>(process.record.parent))) process.read = false;
  }
  ended_.clear();
}

void SampledProcessTable::look(std::int32_t pid, Process& process) {
  process.pass = pass_;
  process.newIdentity = false;
  const Activity activity = activityOf(pid, process);
  if (activity == Activity::Ended) {
    forget(pid);
    return;
  }
  if (activity == Activity::Ran) {
    process.read = false;
    process.sockets.ran = true;
  } else {
    dropFiles(process);
  }
  if (now_ >= process.nextCheck) check(pid, process);
}

void SampledProcessTable::check(std::int32_t pid, Process& process) const {
  const bool settled = ageOf(process) >= kShortestPeriod;
  const std::size_t unit = unitOf(pid);
  if (settled || unit != process.unit) {
    process.read = false;
    process.newIdentity = true;
    process.sockets.becomeDue();
  }
  process.unit = unit;
  process.nextCheck = nextCheck(pid, process);
}

std::size_t SampledProcessTable::unitOf(std::int32_t pid) const {
  StatBuffer buffer;
  return std::hash<std::string_view>()(proc_.read(pid, "cgroup", buffer).value_or(std::string_view()));
}

SampledProcessTable::Activity SampledProcessTable::activityOf(std::int32_t pid, Process& process) const {
  // The file is the first thread's alone.
  if (process.threads != 1) return Activity::Ran;
  if (process.ranPasses >= kBusyPasses && (pass_ + static_cast<std::uint64_t>(pid)) % kBusyPasses != 0) {
    return Activity::Ran;
  }
  RunsBuffer buffer;
  const auto text =
      process.schedstat ? readAgain(*process.schedstat, buffer) : proc_.read(pid, "schedstat", buffer);
  if (!text) return process.schedstat && errno == ESRCH ? Activity::Ended : Activity::Ran;
  const auto runs = runsIn(*text);
  const bool idle = runs && runs == process.runs && !process.running;
  process.runs = runs;
  process.ranPasses = idle ? 0 : std::min(process.ranPasses + 1, kBusyPasses);
  return idle ? Activity::Idle : Activity::Ran;
}

// "run time, time waited for a processor, run count". Kernels that do not count say "0 0 0", and so does one
// that does of a process that has not run yet.
std::optional<SampledProcessTable::Runs> SampledProcessTable::runsIn(std::string_view schedstat) {
  Runs runs;
  std::uint64_t waited = 0;
  const char* begin = schedstat.data();
  const char* end = begin + schedstat.size();
  for (std::uint64_t* number : {&runs.nanoseconds, &waited, &runs.count}) {
    const auto [rest, error] = std::from_chars(begin, end, *number);
    if (error != std::errc()) return std::nullopt;
    begin = rest != end ? rest + 1 : rest;
  }
  if (runs.nanoseconds == 0) return std::nullopt;
  return runs;
}

SampledProcessTable::Process* SampledProcessTable::find(std::int32_t pid) {
  if (foundPid_ == pid) return found_;
  const auto entry = processes_.find(pid);
  if (entry == processes_.end()) return nullptr;
  foundPid_ = pid;
  found_ = &entry->second;
  return found_;
}

SampledProcessTable::Process* SampledProcessTable::current(std::int32_t pid) {
  Process* process = find(pid);
  if (process == nullptr) return admit(pid);
  if (process->read) return process;
  if (readAll(pid, *process) == Outcome::Read) {
    if (process->threads != 1) drop(process->schedstat);
    if (process->threads != 1 || process->ranPasses >= kBusyPasses) keepFiles(pid, *process);
    return process;
  }
  forget(pid);
  return admit(pid);  // its pid may be another's by now
}

SampledProcessTable::Process* SampledProcessTable::admit(std::int32_t pid) {
  const auto owner = proc_.owner(pid);
  if (!owner) ended_.push_back(pid);
  if (owner != settings_.owner) return nullptr;
  Process& process = processes_[pid];
  process.pass = pass_;
  watch(pid, process);
  if (readAll(pid, process) != Outcome::Read) {
    forget(pid);
    return nullptr;
  }
  process.unit = unitOf(pid);
  process.nextCheck = nextCheck(pid, process);
  if (process.threads != 1) drop(process.schedstat);
  return &process;
}

void SampledProcessTable::watch(std::int32_t pid, Process& process) {
  FileDescriptor file = proc_.open(pid, "schedstat");
  if (!file.valid()) return;
  RunsBuffer buffer;
  if (const auto text = readAgain(file, buffer)) process.runs = runsIn(*text);
  if (kept_ >= settings_.keptDescriptors) return;
  process.schedstat.emplace(std::move(file));
  ++kept_;
}

void SampledProcessTable::keepFiles(std::int32_t pid, Process& process) {
  if (process.files[Stat] || kept_ + FileCount > settings_.keptDescriptors / 2) return;
  for (std::size_t file = 0; file < FileCount; ++file) {
    FileDescriptor descriptor = proc_.open(pid, kFileNames[file]);
    if (!descriptor.valid()) continue;
    process.files[file].emplace(std::move(descriptor));
    ++kept_;
  }
}

std::optional<std::string_view> SampledProcessTable::read(std::int32_t pid, const Process& process, File file,
                                                          std::span<char> buffer) const {
  const auto& kept = process.files[file];
  return kept ? readAgain(*kept, buffer) : proc_.read(pid, kFileNames[file], buffer);
}

void SampledProcessTable::drop(std::optional<FileDescriptor>& descriptor) {
  if (!descriptor) return;
  descriptor.reset();
  --kept_;
}

void SampledProcessTable::dropFiles(Process& process) {
  for (auto& file : process.files) drop(file);
}

void SampledProcessTable::forget(std::int32_t pid) {
  const auto entry = processes_.find(pid);
  if (entry == processes_.end()) return;
  drop(entry->second.schedstat);
  dropFiles(entry->second);
  processes_.erase(entry);
  ended_.push_back(pid);
  foundPid_ = 0;
  found_ = nullptr;
}

SampledProcessTable::Outcome SampledProcessTable::readAll(std::int32_t pid, Process& process) const {
  // Programs give up their user, so the owner is asked for every time.
  const auto owner = proc_.owner(pid);
  if (!owner) return Outcome::Ended;
  if (*owner != settings_.owner) return Outcome::Other;
  process.record.owner = *owner;
  StatBuffer buffer;
  const auto text = read(pid, process, Stat, buffer);
  if (!text && errno != EACCES && errno != EPERM) return Outcome::Ended;
  if (text) {
    const auto stat = parseProcessStat(*text);
    return stat && !stat->ended() ? take(pid, process, *stat) : Outcome::Ended;
  }
  process.record = {};
  process.record.owner = *owner;
  process.usage.reset();
  process.threads = 0;
  process.read = true;
  return Outcome::Read;
}

SampledProcessTable::Outcome SampledProcessTable::take(std::int32_t pid, Process& process,
                                                       const ProcessStat& stat) const {
  const auto boot = bootTime_->seconds();
  const auto record = boot ? recordOf(stat, settings_.owner, *boot, settings_.units) : std::nullopt;
  if (!record) return Outcome::Ended;
  if (process.startTicks && *process.startTicks != stat.startTicks) return Outcome::Other;
  if (process.startTicks && (process.program != stat.program || process.terminal != stat.terminal)) {
    process.newIdentity = true;
    process.sockets.forgetProgram();
  }
  FigureBuffer statm;
  FigureBuffer io;
  StatusBuffer status;
  UsageTexts texts;
  if (!stat.kernelThread) texts.statm = read(pid, process, Statm, statm);
  texts.io = read(pid, process, Io, io);
  if (swapInUse_ && !stat.kernelThread) texts.status = proc_.read(pid, "status", status);
  process.usage = usageOf(stat, texts, settings_.units);
  process.record = *record;
  process.startTicks = stat.startTicks;
  process.program = stat.program;
  process.terminal = stat.terminal;
  process.threads = stat.threads;
  process.running = stat.state == 'R';
  process.read = true;
  return Outcome::Read;
}

double SampledProcessTable::ageOf(const Process& process) const {
  const double started = static_cast<double>(process.startTicks.value_or(0)) /
                         static_cast<double>(settings_.units.ticksPerSecond);
  return std::max(now_ - started, 0.0);
}

double SampledProcessTable::nextCheck(std::int32_t pid, const Process& process) const {
  return now_ + std::min(ageOf(process), kShortestPeriod + static_cast<double>(pid % kPeriods));
}

std::optional<ProcessRecord> SampledProcessTable::record(std::int32_t pid) {
  const Process* process = current(pid);
  if (process == nullptr) return std::nullopt;
  return process->record;
}

std::optional<ProcessUsage> SampledProcessTable::usage(std::int32_t pid) {
  const Process* process = current(pid);
  if (process == nullptr) return std::nullopt;
  return process->usage;
}

bool SampledProcessTable::mayHaveNewIdentity(std::int32_t pid) {
  const Process* process = current(pid);
  return process == nullptr || process->newIdentity;
}

std::string SampledProcessTable::executablePath(std::int32_t pid) {
  return plain_.executablePath(pid);
}

double SampledProcessTable::cpuTimeUnitNanoseconds() const {
  return 1e9 / static_cast<double>(settings_.units.ticksPerSecond);
}

std::vector<std::int64_t> SampledProcessTable::listeningPorts(std::int32_t pid) {
  Process* process = current(pid);
  if (process == nullptr) return {};
  return ports_.portsOf(pid, process->sockets);
}

std::optional<std::string> SampledProcessTable::workingDirectory(std::int32_t pid) {
  return plain_.workingDirectory(pid);
}

}  // namespace monitor::platform
