// SPDX-License-Identifier: MIT
#include "Tests/Fakes/FakeAudioHardware.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <utility>

namespace monitor::fakes {
namespace {

std::string selectorText(const AudioObjectAddress& address) {
  std::string text;
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    text += static_cast<char>((address.selector >> shift) & 0xFFU);
  }
  return text;
}

std::string callText(const char* name, AudioObjectID object) {
  return std::string(name) + ' ' + std::to_string(object);
}

std::string callText(const char* name, AudioObjectID object, const AudioObjectAddress& address) {
  return callText(name, object) + ' ' + selectorText(address);
}

template <class Value>
std::vector<std::byte> bytesOf(const Value& value) {
  const auto bytes = std::as_bytes(std::span(&value, 1));
  return {bytes.begin(), bytes.end()};
}

// Two buffers of one channel, as MonitorAudioBufferList lays them out.
class StereoList {
 public:
  explicit StereoList(StereoBlock& block) {
    auto* list = get();
    list->mNumberBuffers = 2;
    auto* buffers = static_cast<MonitorAudioBuffer*>(list->mBuffers);
    buffers[0] = {1, static_cast<std::uint32_t>(block.left.size() * sizeof(float)), block.left.data()};
    buffers[1] = {1, static_cast<std::uint32_t>(block.right.size() * sizeof(float)), block.right.data()};
  }
  MonitorAudioBufferList* get() { return reinterpret_cast<MonitorAudioBufferList*>(storage_.data()); }

 private:
  alignas(MonitorAudioBufferList)
      std::array<std::byte, sizeof(MonitorAudioBufferList) + sizeof(MonitorAudioBuffer)> storage_{};
};

}  // namespace

AudioStreamFormat floatFormat(std::uint32_t channels, double sampleRate) {
  const std::uint32_t frame = channels * static_cast<std::uint32_t>(sizeof(float));
  return {sampleRate, audio::kFormatLinearPCM, audio::kFormatFlagIsFloat, frame, 1, frame, channels, 32, 0};
}

class FakeAudioHardware::View final : public AudioHardware {
 public:
  View(FakeAudioHardware& system, std::size_t number) : system_(system), number_(number) {}
  ~View() override { system_.closeView(number_); }
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  AudioStatus propertyDataSize(AudioObjectID object, const AudioObjectAddress& address,
                               std::uint32_t& size) override {
    return call(callText("propertyDataSize", object, address), [&] {
      AudioStatus status = 0;
      const auto value = system_.value(object, address, status);
      if (status != 0) return status;
      const bool announced = address == audio::kProcessObjectList && system_.announcedListSize.has_value();
      size = announced ? *system_.announcedListSize : static_cast<std::uint32_t>(value.size());
      return AudioStatus{0};
    });
  }

  AudioStatus propertyData(AudioObjectID object, const AudioObjectAddress& address, std::span<std::byte> data,
                           std::uint32_t& size) override {
    return call(callText("propertyData", object, address), [&] {
      AudioStatus status = 0;
      const auto value = system_.value(object, address, status);
      if (status != 0) return status;
      const std::size_t length = std::min(value.size(), data.size());
      std::copy_n(value.begin(), length, data.begin());
      size = static_cast<std::uint32_t>(length);
      return AudioStatus{0};
    });
  }

  AudioStatus propertyString(AudioObjectID object, const AudioObjectAddress& address,
                             std::optional<std::string>& value) override {
    return call(callText("propertyString", object, address),
                [&] { return system_.text(object, address, value); });
  }

  AudioStatus addPropertyListener(AudioObjectID object, const AudioObjectAddress& address,
                                  std::shared_ptr<SerialQueue> queue,
                                  std::shared_ptr<const AudioPropertyListener> listener) override {
    return call(callText("addPropertyListener", object, address), [&] {
      system_.listeners_.push_back({number_, object, address, std::move(queue), std::move(listener)});
      return AudioStatus{0};
    });
  }

  AudioStatus removePropertyListener(AudioObjectID object, const AudioObjectAddress& address,
                                     const std::shared_ptr<SerialQueue>& queue,
                                     const std::shared_ptr<const AudioPropertyListener>& listener) override {
    return undo(callText("removePropertyListener", object, address), [&] {
      const auto removed = std::erase_if(system_.listeners_, [&](const Listener& it) {
        return it.view == number_ && it.object == object && it.address == address && it.queue == queue &&
               it.listener == listener;
      });
      return removed != 0 ? 0 : kNoSuchObject;
    });
  }

  AudioStatus createProcessTap(const ProcessTapDescription& description, AudioObjectID& tap) override {
    return call("createProcessTap", [&] { return system_.createTap(number_, description, tap); });
  }

  AudioStatus destroyProcessTap(AudioObjectID tap) override {
    return undo(callText("destroyProcessTap", tap), [&] {
      const auto found = system_.taps_.find(tap);
      if (found == system_.taps_.end() || found->second.view != number_) return kNoSuchObject;
      system_.taps_.erase(found);
      return AudioStatus{0};
    });
  }

  AudioStatus createAggregateDevice(const AggregateDeviceDescription& description,
                                    AudioObjectID& device) override {
    return call("createAggregateDevice",
                [&] { return system_.createAggregate(number_, description, device); });
  }

  AudioStatus destroyAggregateDevice(AudioObjectID device) override {
    return undo(callText("destroyAggregateDevice", device), [&] {
      if (system_.findAggregate(number_, device) == nullptr) return kNoSuchObject;
      system_.aggregates_.erase(device);
      return AudioStatus{0};
    });
  }

  AudioStatus createIOProc(AudioObjectID device, AudioIOBlock block, AudioIOProcID& procedure) override {
    return call(callText("createIOProc", device), [&] {
      Aggregate* aggregate = system_.findAggregate(number_, device);
      if (aggregate == nullptr) return kNoSuchObject;
      procedure = system_.nextProcedure_++;
      aggregate->procedures.emplace(procedure, Procedure{std::move(block), false});
      return AudioStatus{0};
    });
  }

  AudioStatus destroyIOProc(AudioObjectID device, AudioIOProcID procedure) override {
    return undo(callText("destroyIOProc", device), [&] {
      Aggregate* aggregate = system_.findAggregate(number_, device);
      return aggregate != nullptr && aggregate->procedures.erase(procedure) != 0 ? 0 : kNoSuchObject;
    });
  }

  AudioStatus startDevice(AudioObjectID device, AudioIOProcID procedure) override {
    return call(callText("startDevice", device), [&] { return setRunning(device, procedure, true); });
  }

  AudioStatus stopDevice(AudioObjectID device, AudioIOProcID procedure) override {
    return undo(callText("stopDevice", device), [&] { return setRunning(device, procedure, false); });
  }

  [[nodiscard]] AudioFailure lastFailure() const override { return lastFailure_; }

 private:
  AudioStatus setRunning(AudioObjectID device, AudioIOProcID procedure, bool running) {
    Procedure* found = system_.findProcedure(number_, device, procedure);
    if (found == nullptr) return kNoSuchObject;
    found->running = running;
    return 0;
  }

  // A call that does nothing when it is told to fail …
  template <class Action>
  AudioStatus call(std::string text, Action action) {
    if (system_.beforeCall) system_.beforeCall(text);
    const std::lock_guard lock(system_.mutex_);
    AudioStatus status = system_.begin(text);
    if (status == 0) status = action();
    return note(std::move(text), status);
  }
  // … and one that takes effect all the same.
  template <class Action>
  AudioStatus undo(std::string text, Action action) {
    if (system_.beforeCall) system_.beforeCall(text);
    const std::lock_guard lock(system_.mutex_);
    const AudioStatus told = system_.begin(text);
    const AudioStatus status = action();
    return note(std::move(text), told != 0 ? told : status);
  }
  AudioStatus note(std::string text, AudioStatus status) {
    if (status != 0) lastFailure_ = {status, text + ": " + system_.failureText};
    return system_.finish(number_, std::move(text), status);
  }

  FakeAudioHardware& system_;
  const std::size_t number_;
  AudioFailure lastFailure_;
};

FakeAudioHardware::FakeAudioHardware() {
  defaultOutput_ = addDevice("speakers", floatFormat(2, 48'000.0));
}

FakeAudioHardware::~FakeAudioHardware() = default;

std::shared_ptr<AudioHardware> FakeAudioHardware::openView() {
  const std::lock_guard lock(mutex_);
  ++openViews_;
  return std::make_shared<View>(*this, nextView_++);
}

AudioObjectID FakeAudioHardware::addProcess(std::int32_t pid, bool running, std::string bundleID) {
  AudioObjectID id = 0;
  {
    const std::lock_guard lock(mutex_);
    id = nextObject_++;
    Process process;
    process.pid = pid;
    process.running = running;
    process.bundleID = std::move(bundleID);
    processes_.emplace(id, std::move(process));
  }
  notifyChange(audio::kProcessObjectList);
  return id;
}

void FakeAudioHardware::removeProcess(AudioObjectID process) {
  {
    const std::lock_guard lock(mutex_);
    processes_.erase(process);
  }
  notifyChange(audio::kProcessObjectList);
}

void FakeAudioHardware::setRunning(AudioObjectID process, bool running) {
  {
    const std::lock_guard lock(mutex_);
    processes_.at(process).running = running;
  }
  notifyChange(audio::kProcessObjectList);
}

AudioObjectID FakeAudioHardware::addDevice(std::string uid, const AudioStreamFormat& format) {
  const std::lock_guard lock(mutex_);
  const AudioObjectID id = nextObject_++;
  devices_.emplace(id, Device{std::move(uid), format});
  return id;
}

void FakeAudioHardware::setDefaultOutput(AudioObjectID device) {
  {
    const std::lock_guard lock(mutex_);
    defaultOutput_ = device;
  }
  notifyChange(audio::kDefaultOutputDevice);
}

void FakeAudioHardware::notify(const AudioObjectAddress& address) {
  const std::lock_guard lock(mutex_);
  for (const Listener& it : listeners_) {
    if (it.address == address) it.queue->submit([listener = it.listener] { (*listener)(); });
  }
}

void FakeAudioHardware::loseServer() {
  const std::lock_guard lock(mutex_);
  serverLost_ = true;
  aggregates_.clear();
  taps_.clear();
}

void FakeAudioHardware::returnServer() {
  {
    const std::lock_guard lock(mutex_);
    serverLost_ = false;
    std::map<AudioObjectID, Process> processes;
    for (auto& [id, process] : processes_) processes.emplace(nextObject_++, std::move(process));
    processes_ = std::move(processes);
    std::map<AudioObjectID, Device> devices;
    AudioObjectID output = 0;
    for (auto& [id, device] : devices_) {
      if (id == defaultOutput_) output = nextObject_;
      devices.emplace(nextObject_++, std::move(device));
    }
    devices_ = std::move(devices);
    defaultOutput_ = output;
  }
  notifyChange(audio::kProcessObjectList);
  notifyChange(audio::kDefaultOutputDevice);
}

AudioObjectID FakeAudioHardware::processOf(std::int32_t pid) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(processes_.begin(), processes_.end(),
                                  [pid](const auto& entry) { return entry.second.pid == pid; });
  return found != processes_.end() ? found->first : 0;
}

void FakeAudioHardware::failCall(std::size_t n, AudioStatus status) {
  const std::lock_guard lock(mutex_);
  failAt_ = n;
  failOn_ = false;
  failStatus_ = status;
}

void FakeAudioHardware::failFrom(std::size_t n, AudioStatus status) {
  const std::lock_guard lock(mutex_);
  failCall(n, status);
  failOn_ = true;
}

void FakeAudioHardware::failMatching(std::string prefix, AudioStatus status) {
  const std::lock_guard lock(mutex_);
  failPrefix_ = std::move(prefix);
  failPrefixStatus_ = status;
}

void FakeAudioHardware::failNothing() {
  const std::lock_guard lock(mutex_);
  failAt_ = 0;
  failPrefixStatus_ = 0;
}

std::vector<std::string> FakeAudioHardware::callTexts() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  for (const Call& call : calls_) texts.push_back(call.text);
  return texts;
}

std::vector<std::string> FakeAudioHardware::routeCalls() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const Call& call : calls_) {
    const std::string name = call.text.substr(0, call.text.find(' '));
    if (!name.starts_with("property") && !name.ends_with("PropertyListener")) names.push_back(name);
  }
  return names;
}

std::size_t FakeAudioHardware::procedures() const {
  const std::lock_guard lock(mutex_);
  std::size_t count = 0;
  for (const auto& [id, aggregate] : aggregates_) count += aggregate.procedures.size();
  return count;
}

std::size_t FakeAudioHardware::runningProcedures() const {
  const std::lock_guard lock(mutex_);
  std::size_t count = 0;
  for (const auto& [id, aggregate] : aggregates_) {
    for (const auto& [procedure, entry] : aggregate.procedures) count += entry.running ? 1U : 0U;
  }
  return count;
}

std::size_t FakeAudioHardware::listeners(const AudioObjectAddress& address) const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count_if(listeners_.begin(), listeners_.end(),
                                                [&](const Listener& it) { return it.address == address; }));
}

bool FakeAudioHardware::reads(const Aggregate& aggregate, AudioObjectID process) const {
  const bool running = std::any_of(aggregate.procedures.begin(), aggregate.procedures.end(),
                                   [](const auto& entry) { return entry.second.running; });
  if (!running) return false;
  return std::any_of(taps_.begin(), taps_.end(), [&](const auto& entry) {
    const ProcessTapDescription& tap = entry.second.description;
    return std::count(tap.processes.begin(), tap.processes.end(), process) != 0 &&
           std::any_of(aggregate.description.taps.begin(), aggregate.description.taps.end(),
                       [&](const auto& subTap) { return subTap.uid == tap.uuid; });
  });
}

AudioObjectID FakeAudioHardware::routeOf(AudioObjectID process) const {
  const std::lock_guard lock(mutex_);
  for (const auto& [id, aggregate] : aggregates_) {
    if (reads(aggregate, process)) return id;
  }
  return 0;
}

bool FakeAudioHardware::isMuted(AudioObjectID process) const {
  const std::lock_guard lock(mutex_);
  return std::any_of(taps_.begin(), taps_.end(), [&](const auto& entry) {
    const ProcessTapDescription& tap = entry.second.description;
    if (std::count(tap.processes.begin(), tap.processes.end(), process) == 0) return false;
    if (tap.muteBehavior == TapMuteBehavior::MutedWhenTapped) return routeOf(process) != 0;
    return tap.muteBehavior == TapMuteBehavior::Muted;
  });
}

bool FakeAudioHardware::runCycle(AudioObjectID device, const MonitorAudioBufferList* input,
                                 MonitorAudioBufferList* output) {
  const std::lock_guard lock(mutex_);
  const auto found = aggregates_.find(device);
  if (found == aggregates_.end()) return false;
  bool ran = false;
  for (const auto& [id, procedure] : found->second.procedures) {
    if (!procedure.running) continue;
    procedure.block(input, output);
    ran = true;
  }
  return ran;
}

std::optional<StereoBlock> FakeAudioHardware::runCycle(AudioObjectID device, StereoBlock input) {
  StereoBlock output{std::vector<float>(input.left.size()), std::vector<float>(input.right.size())};
  StereoList inputList(input);
  StereoList outputList(output);
  if (!runCycle(device, inputList.get(), outputList.get())) return std::nullopt;
  return output;
}

void FakeAudioHardware::runCycles(std::size_t frames) {
  const std::lock_guard lock(mutex_);
  std::map<AudioObjectID, float> levels;  // by device
  for (const auto& [process, entry] : processes_) {
    const AudioObjectID device = entry.running ? routeOf(process) : 0;
    if (device == 0) continue;
    float& level = levels[device];
    if (!entry.silent && !permissionDenied) level = 1.0F;
  }
  for (const auto& [device, level] : levels) {
    (void)runCycle(device, StereoBlock{std::vector<float>(frames, level), std::vector<float>(frames, level)});
  }
}

AudioStatus FakeAudioHardware::begin(const std::string& text) {
  if (serverLost_) return kServerGone;
  if (failPrefixStatus_ != 0 && text.starts_with(failPrefix_)) return failPrefixStatus_;
  if (failAt_ == 0) return 0;
  if (failAt_ > 1) {
    --failAt_;
    return 0;
  }
  if (!failOn_) failAt_ = 0;
  return failStatus_;
}

AudioStatus FakeAudioHardware::finish(std::size_t view, std::string text, AudioStatus status) {
  if (recordsCalls) calls_.push_back({view, std::move(text), status});
  return status;
}

std::vector<std::byte> FakeAudioHardware::value(AudioObjectID object, const AudioObjectAddress& address,
                                                AudioStatus& status) const {
  if (object == audio::kSystemObject && address == audio::kDefaultOutputDevice)
    return bytesOf(defaultOutput_);
  if (object == audio::kSystemObject && address == audio::kProcessObjectList) {
    std::vector<std::byte> bytes;
    for (const auto& [id, process] : processes_) {
      const auto one = bytesOf(id);
      bytes.insert(bytes.end(), one.begin(), one.end());
    }
    return bytes;
  }
  if (const auto process = processes_.find(object); process != processes_.end()) {
    if (address == audio::kProcessPID) {
      status = process->second.pidStatus;
      return bytesOf(process->second.pid);
    }
    if (address == audio::kProcessIsRunningOutput) {
      status = process->second.runningStatus;
      return bytesOf(std::uint32_t{process->second.running ? 1U : 0U});
    }
  }
  if (const auto device = devices_.find(object);
      device != devices_.end() && address == audio::kStreamFormat) {
    return bytesOf(device->second.format);
  }
  if (const auto tap = taps_.find(object); tap != taps_.end() && address == audio::kTapFormat) {
    return bytesOf(tap->second.format);
  }
  status = kNoSuchObject;
  return {};
}

AudioStatus FakeAudioHardware::text(AudioObjectID object, const AudioObjectAddress& address,
                                    std::optional<std::string>& value) const {
  if (const auto process = processes_.find(object);
      process != processes_.end() && address == audio::kProcessBundleID) {
    value = process->second.bundleID;
    return process->second.bundleStatus;
  }
  if (const auto device = devices_.find(object); device != devices_.end() && address == audio::kDeviceUID) {
    value = device->second.uid;
    return 0;
  }
  return kNoSuchObject;
}

AudioStatus FakeAudioHardware::createTap(std::size_t view, const ProcessTapDescription& description,
                                         AudioObjectID& tap) {
  const auto device = std::find_if(devices_.begin(), devices_.end(), [&](const auto& entry) {
    return entry.second.uid == description.deviceUID;
  });
  if (device == devices_.end() || description.stream != 0 || description.processes.empty())
    return kBadArgument;
  for (const AudioObjectID id : description.processes) {
    const auto process = processes_.find(id);
    if (process == processes_.end()) return kNoSuchObject;
    if (process->second.tapStatus != 0) return process->second.tapStatus;
    const bool tapped = std::any_of(taps_.begin(), taps_.end(), [id](const auto& entry) {
      const auto& processes = entry.second.description.processes;
      return std::count(processes.begin(), processes.end(), id) != 0;
    });
    if (tapped) return kBusy;
  }
  tap = nextObject_++;
  taps_.emplace(tap, Tap{view, description, tapFormat.value_or(device->second.format)});
  return 0;
}

AudioStatus FakeAudioHardware::createAggregate(std::size_t view,
                                               const AggregateDeviceDescription& description,
                                               AudioObjectID& device) {
  const auto knowsDevice = [this](const AggregateDeviceDescription::SubDevice& sub) {
    return std::any_of(devices_.begin(), devices_.end(),
                       [&](const auto& entry) { return entry.second.uid == sub.uid; });
  };
  const auto knowsTap = [this, view](const AggregateDeviceDescription::SubTap& sub) {
    return std::any_of(taps_.begin(), taps_.end(), [&](const auto& entry) {
      return entry.second.view == view && entry.second.description.uuid == sub.uid;
    });
  };
  if (description.subdevices.empty() || description.taps.empty()) return kBadArgument;
  if (!std::all_of(description.subdevices.begin(), description.subdevices.end(), knowsDevice) ||
      !std::all_of(description.taps.begin(), description.taps.end(), knowsTap)) {
    return kNoSuchObject;
  }
  device = nextObject_++;
  aggregates_.emplace(device, Aggregate{view, description, {}});
  return 0;
}

FakeAudioHardware::Aggregate* FakeAudioHardware::findAggregate(std::size_t view, AudioObjectID device) {
  const auto found = aggregates_.find(device);
  return found != aggregates_.end() && found->second.view == view ? &found->second : nullptr;
}

FakeAudioHardware::Procedure* FakeAudioHardware::findProcedure(std::size_t view, AudioObjectID device,
                                                               AudioIOProcID procedure) {
  Aggregate* aggregate = findAggregate(view, device);
  if (aggregate == nullptr) return nullptr;
  const auto found = aggregate->procedures.find(procedure);
  return found != aggregate->procedures.end() ? &found->second : nullptr;
}

void FakeAudioHardware::closeView(std::size_t view) {
  const std::lock_guard lock(mutex_);
  --openViews_;
  std::erase_if(listeners_, [view](const Listener& it) { return it.view == view; });
  std::erase_if(aggregates_, [view](const auto& entry) { return entry.second.view == view; });
  std::erase_if(taps_, [view](const auto& entry) { return entry.second.view == view; });
}

}  // namespace monitor::fakes
