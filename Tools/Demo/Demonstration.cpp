// SPDX-License-Identifier: MIT
#include "Tools/Demo/Demonstration.h"

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "Tools/AudioLab/BuiltServices.h"
#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/PrivateStack.h"
#include "Tools/AudioLab/Recorder.h"
#include "Tools/Demo/BusWatch.h"
#include "Tools/Demo/Measure.h"

namespace monitor::demo {
namespace {

constexpr const char* kMusic = "Lab Music";
constexpr const char* kTalk = "Lab Talk";
constexpr unsigned kTakeovers = 5;

lab::StackOptions stackOptions(unsigned quantum) {
  lab::StackOptions options;
  options.quantum = quantum;
  options.bus = true;
  options.activations = lab::builtServices();
  return options;
}

class Stage {
 public:
  Stage(const DemonstrationOptions& options, const Narrator& narrator)
      : narrator_(narrator),
        stack_(stackOptions(options.quantum)),
        routed_(options.routed == lab::PlayerKind::Native ? kMusic : kTalk),
        music_(stack_, player(lab::PlayerKind::Native, kMusic, 0)),
        talk_(stack_, player(lab::PlayerKind::Pulse, kTalk, 1)),
        watch_(stack_.busAddress()),
        recorder_(stack_.remote(), {.seconds = 60.0}) {
    narrator_.step(
        "Private audio system",
        fmt::format("PipeWire, session manager, PulseAudio front, session bus; cycles of {} frames",
                    options.quantum));
    narrator_.step("Programs that play",
                   fmt::format("{} (a PipeWire client), {} (a PulseAudio client)", kMusic, kTalk));
  }

  Demonstration play() {
    vesk({"apps"});
    // The first cycles after the recorder's links were made may lack a channel.
    recorder_.waitSeconds(0.2);
    recordingStart_ = recorder_.frames();
    recorder_.waitSeconds(0.8);
    takeOver();
    recorder_.waitSeconds(0.8);
    vesk({"apps"});
    timeline_.changeCommand = vesk({"gain", routed_, "80%"});
    recorder_.waitSeconds(0.5);
    timeline_.stopCommand = vesk({"stop", routed_});
    recorder_.waitSeconds(0.6);
    for (unsigned more = 2; more < kTakeovers; ++more) {
      takeOver();
      recorder_.waitSeconds(0.25);
      vesk({"stop", routed_});
      recorder_.waitSeconds(0.25);
    }
    takeOver();
    recorder_.waitSeconds(0.6);
    killService();
    recorder_.waitSeconds(1.0);
    return result();
  }

 private:
  static lab::PlayerSetup player(lab::PlayerKind kind, const char* name, int channel) {
    return {
        .kind = kind, .name = name, .arguments = {"--channel", std::to_string(channel)}, .installAs = name};
  }

  // Runs one command and returns when it was started.
  std::uint64_t vesk(std::vector<std::string> arguments) {
    std::string shown = "vesk";
    for (const auto& word : arguments)
      shown += word.find(' ') == std::string::npos ? " " + word : " \"" + word + "\"";
    arguments.insert(arguments.begin(), lab::builtProgram("vesk"));
    const std::uint64_t started = lab::monotonicNanoseconds();
    const auto done = stack_.run(std::move(arguments), lab::Milliseconds(20'000));
    if (done.status != 0) {
      throw lab::LabError(fmt::format("\"{}\" ended with status {}{}{}", shown, done.status, done.output,
                                      lab::fileTail(stack_.log("vesk"), 6)));
    }
    narrator_.command(shown, done.output);
    events_.push_back({shown, started});
    return started;
  }

  void takeOver() {
    const std::uint64_t command = vesk({"gain", routed_, "40%"});
    timeline_.takeovers.push_back({command, requestAfter(command)});
  }

  [[nodiscard]] std::uint64_t requestAfter(std::uint64_t time) const {
    for (const auto& request : watch_.requests()) {
      if (request.nanoseconds >= time) return request.nanoseconds;
    }
    throw lab::LabError("no request for a gain was seen on the bus");
  }

  void killService() {
    const auto pid = ownerOf(stack_.busAddress(), lab::kServiceName);
    if (!pid) throw lab::LabError("the audio service does not run while a program is routed");
    timeline_.killed = lab::monotonicNanoseconds();
    ::kill(*pid, SIGKILL);
    events_.push_back({"kill -9 of the service", timeline_.killed});
    narrator_.command(fmt::format("kill -9 {}", *pid), "");
  }

  Demonstration result() {
    Demonstration result;
    result.recording = recorder_.recording(recordingStart_);
    result.routedName = routed_;
    result.otherName = routed_ == kMusic ? kTalk : kMusic;
    result.routedChannel = routed_ == kMusic ? 0 : 1;
    result.otherChannel = 1 - result.routedChannel;
    result.figures = measure(result.recording, timeline_, result.routedChannel, result.otherChannel);
    std::erase_if(events_, [](const Event& event) { return event.label == "vesk apps"; });
    result.events = events_;
    result.takeover = {"request to the service", timeline_.takeovers.front().request};
    result.killed = {"kill -9", timeline_.killed};
    return result;
  }

  const Narrator& narrator_;
  lab::PrivateStack stack_;
  std::string routed_;
  lab::Player music_, talk_;
  BusWatch watch_;
  lab::Recorder recorder_;
  std::size_t recordingStart_ = 0;
  Timeline timeline_;
  std::vector<Event> events_;
};

}  // namespace

Demonstration runDemonstration(const DemonstrationOptions& options, const Narrator& narrator) {
  return Stage(options, narrator).play();
}

}  // namespace monitor::demo
