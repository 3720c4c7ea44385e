// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Json/StrictJson.h"

namespace monitor::demo {

// One takeover: from the program's own playback to 40 %.
struct Takeover {
  double milliseconds = 0.0;         // from the request to the service until the first frame at 40 %
  double commandMs = 0.0;            // the same from the start of the `vesk` command
  std::size_t gapFrames = 0;         // silence in it
  std::size_t controlGapFrames = 0;  // silence in as long a stretch right before it
  long addedLatencyFrames = 0;
  std::size_t rampFrames = 0;

  // What the takeover itself is to blame for.
  [[nodiscard]] std::size_t ownGapFrames() const {
    return gapFrames > controlGapFrames ? gapFrames - controlGapFrames : 0;
  }
};

// What one run of the demonstration measured. Gains are recorded level over played level; frames are the
// device's.
struct Figures {
  unsigned quantum = 256;
  unsigned rate = 48000;

  // The program that is set to 40 %.
  double levelBefore = 0.0;
  double levelDuring = 0.0;
  double levelAfter = 0.0;  // after `vesk stop`

  // In the order of their requests. One takeover depends on where in a cycle its request comes and on what
  // else the machine does, so that they are judged by their medians.
  std::vector<Takeover> takeovers;

  // A change of the gain of a program that is routed already.
  double levelChanged = 0.0;
  std::size_t rampFrames = 0;
  bool rampLinear = false;
  std::size_t releaseGapFrames = 0;  // silence when `vesk stop` gives playback back

  double loudest = 0.0;  // of the routed program at any moment; above 1 it was heard twice

  // The program that nobody touches, until the kill.
  double otherLowest = 0.0;
  double otherHighest = 0.0;
  std::size_t otherDisturbedFrames = 0;  // silent, or anything but its own sound
  long otherDelayedFrames = 0;

  // kill -9 of the service while it routes.
  double killedMs = 0.0;                 // until the first frame of normal playback
  std::size_t killedGapFrames = 0;       // silence meanwhile
  std::size_t otherKilledGapFrames = 0;  // of the other program, which shares the graph's cycles
  std::optional<double> resetMs;  // until the agent has set the gain again, if it did while we listened

  std::size_t missedFrames = 0;  // that the recorder itself did not get, until the kill

  [[nodiscard]] double takeoverMs() const;
  [[nodiscard]] double commandMs() const;
  [[nodiscard]] std::size_t ownGapFrames() const;
  [[nodiscard]] long addedLatencyFrames() const;
  [[nodiscard]] double ratio() const { return levelBefore > 0.0 ? levelDuring / levelBefore : 0.0; }
};

// One line of the result.
struct Verdict {
  std::string key;  // of the JSON form
  std::string title;
  std::string measured;
  std::string bound;  // empty: for information
  bool within = true;
};

// The figures against their bounds, in the order in which they are shown. `patience` multiplies the bounds in
// milliseconds (for builds with sanitizers), never those in frames.
[[nodiscard]] std::vector<Verdict> judge(const Figures& figures, double patience);
[[nodiscard]] bool allWithin(const std::vector<Verdict>& verdicts);
[[nodiscard]] json::Writer toJson(const Figures& figures, const std::vector<Verdict>& verdicts);

}  // namespace monitor::demo
