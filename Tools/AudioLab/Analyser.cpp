// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Analyser.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "Tools/AudioLab/CounterSignal.h"

namespace monitor::lab {
namespace {

// A scaled frame is rounded to 24 bits, which is 6e-8; the smallest step of a ramp that matters is 1e-4.
constexpr double kTolerance = 1e-6;

double played(std::size_t frame, std::uint32_t phase) {
  return static_cast<double>(counterValue(frame + phase));
}

std::uint32_t wrapped(std::uint64_t frame) {
  return static_cast<std::uint32_t>(frame % kCounterPeriod);
}

bool fits(Channel channel, std::size_t frame, std::uint32_t phase, double gain) {
  const double expected = gain * played(frame, phase);
  return std::abs(static_cast<double>(channel[frame]) - expected) <= kTolerance * std::abs(expected);
}

struct Fit {
  std::uint32_t phase;
  double gain;
};

// Takes frames [first, first + frames) for neighbours in one period: their slope is gain times the counter's
// step, and the value over the slope is the counter.
std::optional<Fit> fitWithoutWrap(Channel channel, std::size_t first, std::size_t frames) {
  const double start = channel[first];
  const double slope =
      (static_cast<double>(channel[first + frames - 1]) - start) / static_cast<double>(frames - 1);
  if (slope == 0.0 || start / slope < 0.5 || start / slope > kCounterPeriod + 0.5) return std::nullopt;
  const auto number = static_cast<std::uint64_t>(std::lround(start / slope)) - 1;
  const auto phase = wrapped(number + kCounterPeriod - wrapped(first));
  return Fit{phase, start / played(first, phase)};
}

// The window's start decides, or its end where the saw falls back within the first half.
std::optional<Fit> fitWindow(Channel channel, std::size_t first) {
  if (first + kShortestSteady > channel.size()) return std::nullopt;
  constexpr std::size_t kHalf = kShortestSteady / 2;
  for (const std::size_t begin : {first, first + kHalf}) {
    const auto fit = fitWithoutWrap(channel, begin, kHalf);
    if (!fit) continue;
    bool all = true;
    for (std::size_t i = first; all && i < first + kShortestSteady; ++i)
      all = fits(channel, i, fit->phase, fit->gain);
    if (all) return fit;
  }
  return std::nullopt;
}

Stretch extendSilence(Channel channel, std::size_t first) {
  std::size_t end = first;
  while (end < channel.size() && channel[end] == 0.0F) ++end;
  return {.kind = StretchKind::Silence, .first = first, .frames = end - first};
}

Stretch extendSteady(Channel channel, std::size_t first, const Fit& fit) {
  double sum = 0.0;
  double gain = fit.gain;
  std::size_t end = first;
  for (; end < channel.size() && fits(channel, end, fit.phase, gain); ++end) {
    sum += static_cast<double>(channel[end]) / played(end, fit.phase);
    // The first estimate rests on one frame; the average of the window is settled.
    if (end - first + 1 == kShortestSteady) gain = sum / static_cast<double>(kShortestSteady);
  }
  const std::size_t frames = end - first;
  return {StretchKind::Steady, first, frames, sum / static_cast<double>(frames), fit.phase};
}

long signedPhase(std::uint32_t difference) {
  const long value = static_cast<long>(difference % kCounterPeriod);
  return value > static_cast<long>(kCounterPeriod / 2) ? value - static_cast<long>(kCounterPeriod) : value;
}

long delay(const Stretch& before, const Stretch& after) {
  return signedPhase(before.phase + kCounterPeriod - after.phase);
}

// The frames right before `joint.after` whose gain lies strictly between the two and comes closer to the new
// one.
std::size_t rampLength(Channel channel, const Joint& joint) {
  const auto ratio = [&](std::size_t frame) {
    return static_cast<double>(channel[frame]) / played(frame, joint.after.phase);
  };
  double nearest = joint.after.gain;
  const double low = std::min(joint.before.gain, joint.after.gain);
  const double high = std::max(joint.before.gain, joint.after.gain);
  std::size_t first = joint.after.first;
  while (first > joint.before.end()) {
    const double next = ratio(first - 1);
    const bool between = next > low && next < high;
    if (!between || std::abs(next - joint.after.gain) <= std::abs(nearest - joint.after.gain)) break;
    nearest = next;
    --first;
  }
  const std::size_t between = joint.after.first - first;
  return between == 0 ? 0 : between + 1;
}

bool isLinear(Channel channel, const Joint& joint) {
  if (joint.rampFrames == 0 || joint.after.first - joint.before.end() + 1 != joint.rampFrames) return false;
  for (std::size_t i = 1; i < joint.rampFrames; ++i) {
    const std::size_t frame = joint.before.end() + i - 1;
    const double share = static_cast<double>(i) / static_cast<double>(joint.rampFrames);
    const double expected = joint.before.gain + (joint.after.gain - joint.before.gain) * share;
    if (std::abs(static_cast<double>(channel[frame]) / played(frame, joint.after.phase) - expected) > 1e-5)
      return false;
  }
  return true;
}

}  // namespace

std::vector<Stretch> findStretches(Channel channel) {
  std::vector<Stretch> result;
  for (std::size_t frame = 0; frame < channel.size();) {
    if (channel[frame] == 0.0F) {
      result.push_back(extendSilence(channel, frame));
    } else if (const auto fit = fitWindow(channel, frame)) {
      result.push_back(extendSteady(channel, frame, *fit));
    } else {
      if (result.empty() || result.back().kind != StretchKind::Changing) {
        result.push_back({.kind = StretchKind::Changing, .first = frame});
      }
      ++result.back().frames;
    }
    frame = result.back().end();
  }
  return result;
}

Joint describeJoint(Channel channel, const Stretch& before, const Stretch& after) {
  Joint joint;
  joint.before = before;
  joint.after = after;
  joint.silentFrames =
      static_cast<std::size_t>(std::count(channel.begin() + static_cast<std::ptrdiff_t>(before.end()),
                                          channel.begin() + static_cast<std::ptrdiff_t>(after.first), 0.0F));
  joint.delayedFrames = delay(before, after);
  joint.rampFrames = rampLength(channel, joint);
  joint.linearRamp = isLinear(channel, joint);
  return joint;
}

std::vector<Joint> findJoints(Channel channel, const std::vector<Stretch>& stretches) {
  std::vector<Joint> result;
  const Stretch* before = nullptr;
  for (const auto& stretch : stretches) {
    if (stretch.kind != StretchKind::Steady) continue;
    if (before != nullptr) result.push_back(describeJoint(channel, *before, stretch));
    before = &stretch;
  }
  return result;
}

Steadiness measureSteadiness(const std::vector<Stretch>& stretches, std::size_t first, std::size_t end) {
  Steadiness result;
  const Stretch* firstSteady = nullptr;
  double sum = 0.0;
  for (const auto& stretch : stretches) {
    const std::size_t from = std::max(first, stretch.first);
    const std::size_t to = std::min(end, stretch.end());
    if (from >= to) continue;
    const std::size_t frames = to - from;
    if (stretch.kind == StretchKind::Silence) result.silentFrames += frames;
    if (stretch.kind == StretchKind::Changing) result.otherFrames += frames;
    if (stretch.kind != StretchKind::Steady) continue;
    if (firstSteady == nullptr) {
      firstSteady = &stretch;
      result.lowest = result.highest = stretch.gain;
    }
    result.lowest = std::min(result.lowest, stretch.gain);
    result.highest = std::max(result.highest, stretch.gain);
    result.delayedFrames = delay(*firstSteady, stretch);
    result.steadyFrames += frames;
    sum += stretch.gain * static_cast<double>(frames);
  }
  if (result.steadyFrames > 0) result.gain = sum / static_cast<double>(result.steadyFrames);
  return result;
}

const Stretch* findSteady(const std::vector<Stretch>& stretches, double gain, double tolerance,
                          std::size_t from, std::size_t shortest) {
  for (const auto& stretch : stretches) {
    if (stretch.kind != StretchKind::Steady || std::abs(stretch.gain - gain) > tolerance) continue;
    const std::size_t begin = std::max(from, stretch.first);
    if (begin < stretch.end() && stretch.end() - begin >= shortest) return &stretch;
  }
  return nullptr;
}

std::vector<double> levelCurve(Channel channel, const std::vector<Stretch>& stretches, std::size_t block) {
  std::vector<double> sums((channel.size() + block - 1) / block, 0.0);
  std::uint32_t phase = 0;
  const auto firstSteady = std::find_if(stretches.begin(), stretches.end(), [](const auto& stretch) {
    return stretch.kind == StretchKind::Steady;
  });
  if (firstSteady != stretches.end()) phase = firstSteady->phase;
  for (const auto& stretch : stretches) {
    if (stretch.kind == StretchKind::Steady) phase = stretch.phase;
    if (stretch.kind == StretchKind::Silence) continue;
    for (std::size_t frame = stretch.first; frame < stretch.end(); ++frame) {
      sums[frame / block] += std::min(static_cast<double>(channel[frame]) / played(frame, phase), 2.0);
    }
  }
  for (std::size_t i = 0; i < sums.size(); ++i) {
    sums[i] /= static_cast<double>(std::min(block, channel.size() - i * block));
  }
  return sums;
}

double effectiveLevel(Channel channel) {
  if (channel.empty()) return 0.0;
  double sum = 0.0;
  for (const float sample : channel) sum += static_cast<double>(sample) * static_cast<double>(sample);
  return std::sqrt(sum / static_cast<double>(channel.size()));
}

double sawPeriod(Channel channel) {
  float peak = 0.0F;
  for (const float sample : channel) peak = std::max(peak, sample);
  std::optional<std::size_t> first;
  std::size_t last = 0;
  std::size_t falls = 0;
  for (std::size_t i = 1; i < channel.size(); ++i) {
    // A resampled fall takes several frames; the middle of it is met once.
    const bool falling = channel[i - 1] >= peak / 2 && channel[i] < peak / 2;
    if (!falling) continue;
    if (!first) {
      first = i;
    } else {
      ++falls;
    }
    last = i;
  }
  return falls == 0 ? 0.0 : static_cast<double>(last - *first) / static_cast<double>(falls);
}

}  // namespace monitor::lab
