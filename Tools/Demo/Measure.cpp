// SPDX-License-Identifier: MIT
#include "Tools/Demo/Measure.h"

#include <string>
#include <vector>

#include "Tools/AudioLab/Analyser.h"
#include "Tools/AudioLab/LabError.h"

namespace monitor::demo {
namespace {

using lab::Stretch;

// Wide enough for a wrong gain to be found and then judged, instead of being called missing.
constexpr double kNear = 0.01;

class Reader {
 public:
  Reader(const lab::Recording& recording, std::size_t channel)
      : recording_(recording),
        channel_(recording.channels.at(channel)),
        stretches_(lab::findStretches(channel_)) {}

  // The level over the last quarter of a second before `time`.
  [[nodiscard]] double levelBefore(std::uint64_t time) const {
    const std::size_t end = recording_.frameAt(time);
    const std::size_t window = recording_.rate / 4;
    return lab::measureSteadiness(stretches_, end > window ? end - window : 0, end).gain;
  }

  [[nodiscard]] const Stretch& lastSteadyBefore(std::size_t frame) const {
    const Stretch* result = nullptr;
    for (const auto& stretch : stretches_) {
      if (stretch.first >= frame) break;
      if (stretch.kind == lab::StretchKind::Steady) result = &stretch;
    }
    if (result == nullptr) throw lab::LabError("the recording begins without sound");
    return *result;
  }

  // The first stretch from `time` on at that gain which is no mere flicker.
  [[nodiscard]] const Stretch& reaches(double gain, std::uint64_t time, const std::string& what) const {
    const auto* found =
        lab::findSteady(stretches_, gain, kNear, recording_.frameAt(time), recording_.rate / 50);
    if (found == nullptr) throw lab::LabError("the recording shows no " + what);
    return *found;
  }

  [[nodiscard]] const Stretch* findLater(double gain, std::size_t frame) const {
    return lab::findSteady(stretches_, gain, kNear, frame, recording_.rate / 50);
  }

  [[nodiscard]] lab::Joint joint(const Stretch& before, const Stretch& after) const {
    return lab::describeJoint(channel_, before, after);
  }

  [[nodiscard]] std::size_t silence(std::size_t first, std::size_t end) const {
    return lab::measureSteadiness(stretches_, first, end).silentFrames;
  }

  [[nodiscard]] lab::Steadiness between(std::size_t first, std::size_t end) const {
    return lab::measureSteadiness(stretches_, first, end);
  }

  // Milliseconds from `time` to the cycle in which the frame was played.
  [[nodiscard]] double millisecondsTo(std::size_t frame, std::uint64_t time) const {
    const auto played = recording_.timeOf(frame);
    return played ? (static_cast<double>(*played) - static_cast<double>(time)) / 1e6 : 0.0;
  }

 private:
  const lab::Recording& recording_;
  lab::Channel channel_;
  std::vector<Stretch> stretches_;
};

Takeover measureTakeover(const lab::Recording& recording, const Reader& reader,
                         const Timeline::Request& request) {
  Takeover takeover;
  const auto& after = reader.reaches(0.4, request.request, "level of 40 % after the request");
  const std::size_t asked = recording.frameAt(request.request);
  const auto joint = reader.joint(reader.lastSteadyBefore(asked), after);
  takeover.milliseconds = reader.millisecondsTo(after.first, request.request);
  takeover.commandMs = reader.millisecondsTo(after.first, request.command);
  takeover.gapFrames = joint.silentFrames;
  takeover.addedLatencyFrames = joint.delayedFrames;
  takeover.rampFrames = joint.rampFrames;
  const std::size_t length = after.first > asked ? after.first - asked : 0;
  takeover.controlGapFrames = reader.silence(asked > length ? asked - length : 0, asked);
  return takeover;
}

void measureChangeAndRelease(const lab::Recording& recording, const Reader& reader, const Timeline& timeline,
                             Figures& figures) {
  const auto& changed = reader.reaches(0.8, timeline.changeCommand, "change to 80 %");
  const auto change = reader.joint(reader.lastSteadyBefore(changed.first), changed);
  figures.levelChanged = reader.levelBefore(timeline.stopCommand);
  figures.rampFrames = change.rampFrames;
  figures.rampLinear = change.linearRamp;
  const auto& released = reader.reaches(1.0, timeline.stopCommand, "normal playback after the stop");
  const auto& routed = reader.lastSteadyBefore(recording.frameAt(timeline.stopCommand));
  figures.releaseGapFrames = reader.joint(routed, released).silentFrames;
  figures.levelAfter = reader.levelBefore(timeline.takeovers.at(1).command);
}

void measureKill(const lab::Recording& recording, const Reader& reader, const Timeline& timeline,
                 Figures& figures) {
  const auto& normal = reader.reaches(1.0, timeline.killed, "normal playback after the kill");
  const auto& routed = reader.lastSteadyBefore(recording.frameAt(timeline.killed));
  figures.killedMs = reader.millisecondsTo(normal.first, timeline.killed);
  figures.killedGapFrames = reader.joint(routed, normal).silentFrames;
  if (const auto* reset = reader.findLater(0.4, normal.end())) {
    figures.resetMs = reader.millisecondsTo(reset->first, timeline.killed);
  }
}

}  // namespace

Figures measure(const lab::Recording& recording, const Timeline& timeline, std::size_t routedChannel,
                std::size_t otherChannel) {
  Figures figures;
  figures.rate = recording.rate;
  if (!recording.cycles.empty()) figures.quantum = recording.cycles.back().frames;
  figures.missedFrames = recording.missedFrames(recording.frameAt(timeline.killed));
  const Reader routed(recording, routedChannel);
  figures.levelBefore = routed.levelBefore(timeline.takeovers.at(0).command);
  figures.levelDuring = routed.levelBefore(timeline.changeCommand);
  for (const auto& request : timeline.takeovers) {
    figures.takeovers.push_back(measureTakeover(recording, routed, request));
  }
  measureChangeAndRelease(recording, routed, timeline, figures);
  measureKill(recording, routed, timeline, figures);
  figures.loudest = routed.between(0, recording.frames()).highest;
  // Until the kill: a process of the graph that dies in the middle of a cycle costs everyone that cycle.
  const Reader other(recording, otherChannel);
  const std::size_t killed = recording.frameAt(timeline.killed);
  const auto untouched = other.between(0, killed);
  figures.otherLowest = untouched.lowest;
  figures.otherHighest = untouched.highest;
  figures.otherDisturbedFrames = untouched.silentFrames + untouched.otherFrames;
  figures.otherDelayedFrames = untouched.delayedFrames;
  figures.otherKilledGapFrames = other.between(killed, recording.frames()).silentFrames;
  return figures;
}

}  // namespace monitor::demo
