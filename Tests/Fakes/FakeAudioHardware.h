// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::fakes {

// A program's two channels during one cycle.
struct StereoBlock {
  std::vector<float> left;
  std::vector<float> right;

  friend bool operator==(const StereoBlock&, const StereoBlock&) = default;
};

[[nodiscard]] AudioStreamFormat floatFormat(std::uint32_t channels, double sampleRate);

// A whole audio system that a test scripts: processes, devices, and what the views make of them. Every call
// of every view is recorded in order and can be made to fail; cycles run when the test says so. The script
// belongs to one thread and may go on while views are used on others; what is returned by reference is for
// moments when none is.
class FakeAudioHardware final : public AudioHardwareProvider {
 public:
  struct Call {
    std::size_t view = 0;  // 1 is the first view opened
    std::string text;      // e.g. "propertyData 1 prs#", "createProcessTap", "startDevice 12"
    AudioStatus status = 0;
  };
  struct Process {
    std::int32_t pid = 0;
    bool running = false;
    std::optional<std::string> bundleID = std::string();  // none is a null string reference
    AudioStatus pidStatus = 0;                            // what reading the property returns
    AudioStatus runningStatus = 0;
    AudioStatus bundleStatus = 0;
    AudioStatus tapStatus = 0;  // what tapping the process returns
    bool silent = false;        // produces zeros while it runs
  };
  struct Device {
    std::optional<std::string> uid;
    AudioStreamFormat format;
  };
  struct Tap {
    std::size_t view = 0;
    ProcessTapDescription description;
    AudioStreamFormat format;
  };
  struct Procedure {
    AudioIOBlock block;
    bool running = false;
  };
  struct Aggregate {
    std::size_t view = 0;
    AggregateDeviceDescription description;
    std::map<AudioIOProcID, Procedure> procedures;
  };

  static constexpr AudioStatus kNoSuchObject = -2;
  static constexpr AudioStatus kBusy = -16;
  static constexpr AudioStatus kBadArgument = -22;
  static constexpr AudioStatus kServerGone = -32;

  // Starts with one stereo device of 48 kHz, "speakers", as the default output.
  FakeAudioHardware();
  ~FakeAudioHardware() override;
  FakeAudioHardware(const FakeAudioHardware&) = delete;
  FakeAudioHardware& operator=(const FakeAudioHardware&) = delete;

  [[nodiscard]] std::shared_ptr<AudioHardware> openView() override;

  // The script. Whatever changes a property notifies its listeners, unless `notifies` is off.
  bool notifies = true;
  AudioObjectID addProcess(std::int32_t pid, bool running = true, std::string bundleID = {});
  void removeProcess(AudioObjectID process);
  void setRunning(AudioObjectID process, bool running);
  AudioObjectID addDevice(std::string uid, const AudioStreamFormat& format);
  void setDefaultOutput(AudioObjectID device);  // 0 is none
  void notify(const AudioObjectAddress& address);
  // The audio server dies: what the views made is gone and every call returns -32. When it returns, processes
  // and devices have new ids and the listeners of the process list and of the default output run once.
  void loseServer();
  void returnServer();
  bool permissionDenied = false;                       // taps deliver zeros, without any error
  std::optional<AudioStreamFormat> tapFormat;          // of taps made from now on, instead of the device's
  std::optional<std::uint32_t> announcedListSize;      // what the size query of the process list answers
  std::function<void(const std::string&)> beforeCall;  // runs before each call of a view, outside of the lock

  [[nodiscard]] Process& process(AudioObjectID id) { return processes_.at(id); }
  [[nodiscard]] Device& device(AudioObjectID id) { return devices_.at(id); }
  [[nodiscard]] AudioObjectID processOf(std::int32_t pid) const;  // 0 when there is none
  [[nodiscard]] AudioObjectID defaultOutput() const {
    const std::lock_guard lock(mutex_);
    return defaultOutput_;
  }

  // Failures: the n-th call from now (1 is the next one), or every call from that one on; or every call whose
  // text begins with `prefix`. Stopping and destroying take effect all the same.
  void failCall(std::size_t n, AudioStatus status);
  void failFrom(std::size_t n, AudioStatus status);
  void failMatching(std::string prefix, AudioStatus status);
  void failNothing();
  std::string failureText = "The audio system said no.";

  // What was called, unless `recordsCalls` is off.
  bool recordsCalls = true;
  [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }
  [[nodiscard]] std::vector<std::string> callTexts() const;
  // The calls that make, start, stop and destroy, without their object ids.
  [[nodiscard]] std::vector<std::string> routeCalls() const;
  void forgetCalls() { calls_.clear(); }

  // What is there.
  [[nodiscard]] const std::map<AudioObjectID, Tap>& taps() const { return taps_; }
  [[nodiscard]] const std::map<AudioObjectID, Aggregate>& aggregates() const { return aggregates_; }
  [[nodiscard]] std::size_t procedures() const;
  [[nodiscard]] std::size_t runningProcedures() const;
  [[nodiscard]] std::size_t listeners() const {
    const std::lock_guard lock(mutex_);
    return listeners_.size();
  }
  [[nodiscard]] std::size_t listeners(const AudioObjectAddress& address) const;
  [[nodiscard]] std::size_t openViews() const {
    const std::lock_guard lock(mutex_);
    return openViews_;
  }
  // Nothing that a view could have made is left.
  [[nodiscard]] bool isClean() const {
    const std::lock_guard lock(mutex_);
    return taps_.empty() && aggregates_.empty();
  }
  // Whether the process is not heard directly: a tap that mutes it is being read.
  [[nodiscard]] bool isMuted(AudioObjectID process) const;
  // The aggregate device that plays the process; 0 when it plays by itself.
  [[nodiscard]] AudioObjectID routeOf(AudioObjectID process) const;

  // One cycle of the device's running procedures with the lists as they are; false when none runs.
  bool runCycle(AudioObjectID device, const MonitorAudioBufferList* input, MonitorAudioBufferList* output);
  // The same with two buffers of one channel each. Nothing when none runs.
  std::optional<StereoBlock> runCycle(AudioObjectID device, StereoBlock input);
  // One cycle of ones, or of zeros where only zeros are to be heard, on every aggregate device that has a
  // running procedure and a running process.
  void runCycles(std::size_t frames = 4);

 private:
  class View;
  struct Listener {
    std::size_t view = 0;
    AudioObjectID object = 0;
    AudioObjectAddress address;
    std::shared_ptr<SerialQueue> queue;
    std::shared_ptr<const AudioPropertyListener> listener;
  };

  // Records the call and finds the status it is told to fail with.
  AudioStatus begin(const std::string& text);
  AudioStatus finish(std::size_t view, std::string text, AudioStatus status);
  [[nodiscard]] std::vector<std::byte> value(AudioObjectID object, const AudioObjectAddress& address,
                                             AudioStatus& status) const;
  [[nodiscard]] AudioStatus text(AudioObjectID object, const AudioObjectAddress& address,
                                 std::optional<std::string>& value) const;
  AudioStatus createTap(std::size_t view, const ProcessTapDescription& description, AudioObjectID& tap);
  AudioStatus createAggregate(std::size_t view, const AggregateDeviceDescription& description,
                              AudioObjectID& device);
  Procedure* findProcedure(std::size_t view, AudioObjectID device, AudioIOProcID procedure);
  Aggregate* findAggregate(std::size_t view, AudioObjectID device);
  [[nodiscard]] bool reads(const Aggregate& aggregate, AudioObjectID process) const;
  void closeView(std::size_t view);
  void notifyChange(const AudioObjectAddress& address) {
    if (notifies) notify(address);
  }

  mutable std::recursive_mutex mutex_;
  AudioObjectID nextObject_ = 20;
  AudioIOProcID nextProcedure_ = 1;
  std::size_t nextView_ = 1;
  std::size_t openViews_ = 0;
  bool serverLost_ = false;
  AudioObjectID defaultOutput_ = 0;
  std::map<AudioObjectID, Process> processes_;
  std::map<AudioObjectID, Device> devices_;
  std::map<AudioObjectID, Tap> taps_;
  std::map<AudioObjectID, Aggregate> aggregates_;
  std::vector<Listener> listeners_;
  std::vector<Call> calls_;
  std::size_t failAt_ = 0;  // counts down; 0 is never
  bool failOn_ = false;
  AudioStatus failStatus_ = 0;
  std::string failPrefix_;
  AudioStatus failPrefixStatus_ = 0;
};

}  // namespace monitor::fakes
