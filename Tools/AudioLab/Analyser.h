// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// What a recording of the counter signal tells, in frames and without a clock. All functions are pure and
// take one channel.
//
// Programs that are to be told apart in one recording play on different channels (option --channel of the
// players): the sum of two saws on one channel could be separated only under assumptions on their gains,
// which are what is measured. With a channel each, every frame of a program is seen exactly, and sound that
// strays to the other channel shows up as a fault there. Each program is stereo all the same, so that both
// channels of a route are at work.
namespace monitor::lab {

using Channel = std::span<const float>;

enum class StretchKind {
  Silence,   // exact zeros, which the signal never has
  Steady,    // the signal, frame after frame, at one gain
  Changing,  // anything else: a ramp, another sound, less than kShortestSteady frames of the signal
};

inline constexpr std::size_t kShortestSteady = 32;

struct Stretch {
  StretchKind kind = StretchKind::Silence;
  std::size_t first = 0;  // frame of the recording
  std::size_t frames = 0;
  double gain = 0.0;        // Steady: recorded over played, averaged (about 8 digits)
  std::uint32_t phase = 0;  // Steady: the program's frame minus the recording's, modulo 4096

  [[nodiscard]] std::size_t end() const { return first + frames; }
};

// The recording cut into stretches, in order and without holes. A Steady stretch has no lost or repeated
// frame in it.
[[nodiscard]] std::vector<Stretch> findStretches(Channel channel);

// What lies between two neighbouring Steady stretches.
struct Joint {
  Stretch before, after;
  std::size_t silentFrames = 0;  // exact zeros: the gap
  std::size_t rampFrames =
      0;  // the last of them is the first at the new gain; 0 for a change from frame to frame
  bool linearRamp = false;  // equal steps, and nothing but the ramp between the two
  // How many frames later (positive: added latency, negative: frames of the program never heard) the program
  // is heard than before; known modulo 4096, taken as small as possible.
  long delayedFrames = 0;
};

// The same for any two Steady stretches, whatever lies between them.
[[nodiscard]] Joint describeJoint(Channel channel, const Stretch& before, const Stretch& after);

[[nodiscard]] std::vector<Joint> findJoints(Channel channel, const std::vector<Stretch>& stretches);

// How a program sounded in frames [first, end).
struct Steadiness {
  double gain = 0.0;    // of all Steady frames; 0 if there are none
  double lowest = 0.0;  // of the stretches
  double highest = 0.0;
  std::size_t steadyFrames = 0;
  std::size_t silentFrames = 0;
  std::size_t otherFrames = 0;
  long delayedFrames = 0;  // from the first Steady stretch to the last
};

[[nodiscard]] Steadiness measureSteadiness(const std::vector<Stretch>& stretches, std::size_t first,
                                           std::size_t end);

// The first Steady stretch that ends after `from`, plays at `gain` (within `tolerance`) and lasts at least
// `shortest` frames after `from`; null if there is none.
[[nodiscard]] const Stretch* findSteady(const std::vector<Stretch>& stretches, double gain, double tolerance,
                                        std::size_t from, std::size_t shortest = kShortestSteady);

// The level over time relative to what the program plays, one value for each `block` frames (the last may be
// short): 1 is unchanged, 0 is silence. For plots; Changing frames are estimated by the phase next to them.
[[nodiscard]] std::vector<double> levelCurve(Channel channel, const std::vector<Stretch>& stretches,
                                             std::size_t block);

// The root of the mean square, of any signal. For the level of one of which no frame is exact.
[[nodiscard]] double effectiveLevel(Channel channel);

// Frames of the recording for one period of the saw, averaged over all whole periods: 4096 at the right
// pitch, whatever the gain. Also for a resampled signal, of which no frame is exact. 0 if there is no whole
// period.
[[nodiscard]] double sawPeriod(Channel channel);

}  // namespace monitor::lab
