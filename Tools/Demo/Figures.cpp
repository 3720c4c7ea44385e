// SPDX-License-Identifier: MIT
#include "Tools/Demo/Figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace monitor::demo {
namespace {

constexpr double kWantedRatio = 0.4;
constexpr double kChangedRatio = 0.8;
constexpr double kTakeoverMs = 20.0;
// Noticing the death takes the server one wake-up, going back takes the session manager a few cycles.
constexpr double kKilledMs = 100.0;

// Equal to six digits after the point.
bool sameToSixDigits(double left, double right) {
  return std::abs(left - right) < 0.5e-6;
}

std::string digits(double value) {
  return fmt::format("{:.6f}", value);
}
std::string milliseconds(double value) {
  return fmt::format("{:.1f} ms", value);
}

std::string frames(const Figures& figures, std::size_t count) {
  if (count == 0) return "0 frames";
  return fmt::format("{} frames ({:.2f} ms)", count, 1000.0 * static_cast<double>(count) / figures.rate);
}

// 0 of none; of an even number the greater of the two in the middle.
template <class Value>
Value medianOf(const std::vector<Takeover>& takeovers, Value (*valueOf)(const Takeover&)) {
  std::vector<Value> values;
  values.reserve(takeovers.size());
  for (const auto& takeover : takeovers) values.push_back(valueOf(takeover));
  if (values.empty()) return {};
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::string eachTakeover(const Figures& figures) {
  std::string text;
  for (const auto& takeover : figures.takeovers) {
    text += fmt::format("{}{:.1f}", text.empty() ? "" : ", ", takeover.milliseconds);
  }
  return text + " ms";
}

class Judge {
 public:
  Judge(const Figures& figures, double patience) : figures_(figures), patience_(patience) {}

  void level(const char* key, const char* title, double measured, double wanted) {
    add(key, title, digits(measured), digits(wanted), sameToSixDigits(measured, wanted));
  }
  void time(const char* key, const char* title, double measured, double most) {
    add(key, title, milliseconds(measured), "at most " + milliseconds(most * patience_),
        measured <= most * patience_);
  }
  void gap(const char* key, const char* title, std::size_t measured) {
    add(key, title, frames(figures_, measured), fmt::format("at most {} frames", figures_.quantum),
        measured <= figures_.quantum);
  }
  void exact(const char* key, const char* title, long measured, long wanted) {
    add(key, title, fmt::format("{} frames", measured), fmt::format("{} frames", wanted), measured == wanted);
  }
  void note(const char* key, const char* title, std::string measured) {
    add(key, title, std::move(measured), {}, true);
  }
  void add(const char* key, const char* title, std::string measured, std::string bound, bool within) {
    verdicts.push_back({key, title, std::move(measured), std::move(bound), within});
  }
  std::vector<Verdict> verdicts;

 private:
  const Figures& figures_;
  double patience_;
};

}  // namespace

double Figures::takeoverMs() const {
  return medianOf<double>(takeovers, [](const Takeover& each) { return each.milliseconds; });
}
double Figures::commandMs() const {
  return medianOf<double>(takeovers, [](const Takeover& each) { return each.commandMs; });
}
std::size_t Figures::ownGapFrames() const {
  return medianOf<std::size_t>(takeovers, [](const Takeover& each) { return each.ownGapFrames(); });
}
long Figures::addedLatencyFrames() const {
  return medianOf<long>(takeovers, [](const Takeover& each) { return each.addedLatencyFrames; });
}

std::vector<Verdict> judge(const Figures& figures, double patience) {
  Judge judge(figures, patience);
  judge.level("levelBefore", "Level before", figures.levelBefore, 1.0);
  judge.level("levelDuring", "Level at 40 %", figures.levelDuring, kWantedRatio);
  judge.level("levelAfter", "Level after", figures.levelAfter, 1.0);
  judge.level("ratio", "Ratio of the routed program", figures.ratio(), kWantedRatio);
  judge.time("takeoverMs", "Takeover (median)", figures.takeoverMs(), kTakeoverMs);
  judge.note("takeovers", "Each, from the request", eachTakeover(figures));
  judge.note("commandMs", "From the command (median)", milliseconds(figures.commandMs()));
  judge.gap("gapFrames", "Gap at the takeover (median)", figures.ownGapFrames());
  judge.exact("addedLatencyFrames", "Added latency (median)", figures.addedLatencyFrames(), 0);
  judge.level("levelChanged", "Level changed to 80 %", figures.levelChanged, kChangedRatio);
  judge.add("rampFrames", "Ramp of that change",
            fmt::format("{}, {}", frames(figures, figures.rampFrames),
                        figures.rampLinear ? "linear" : "not linear"),
            fmt::format("{} frames, linear", figures.quantum),
            figures.rampLinear && figures.rampFrames == figures.quantum);
  judge.note("releaseGapFrames", "Gap at the release", frames(figures, figures.releaseGapFrames));
  judge.add("loudest", "Loudest moment", digits(figures.loudest), "at most " + digits(1.0),
            figures.loudest < 1.0 || sameToSixDigits(figures.loudest, 1.0));
  judge.add("otherLevel", "Other program's level",
            figures.otherLowest == figures.otherHighest
                ? digits(figures.otherHighest)
                : digits(figures.otherLowest) + " to " + digits(figures.otherHighest),
            digits(1.0),
            sameToSixDigits(figures.otherLowest, 1.0) && sameToSixDigits(figures.otherHighest, 1.0));
  judge.exact("otherDisturbedFrames", "Other program's faults",
              static_cast<long>(figures.otherDisturbedFrames), 0);
  judge.exact("otherDelayedFrames", "Other program's added latency", figures.otherDelayedFrames, 0);
  judge.time("killedMs", "Normal again after kill -9", figures.killedMs, kKilledMs);
  judge.note("killedGapFrames", "Gap after kill -9", frames(figures, figures.killedGapFrames));
  judge.note("otherKilledGapFrames", "Other program's gap then",
             frames(figures, figures.otherKilledGapFrames));
  if (figures.resetMs) judge.note("resetMs", "Set again by the agent after", milliseconds(*figures.resetMs));
  judge.exact("missedFrames", "Missed by the recorder", static_cast<long>(figures.missedFrames), 0);
  return judge.verdicts;
}

bool allWithin(const std::vector<Verdict>& verdicts) {
  return std::all_of(verdicts.begin(), verdicts.end(), [](const Verdict& verdict) { return verdict.within; });
}

namespace {

json::Writer toJson(const std::vector<Takeover>& takeovers) {
  auto list = json::Writer::array();
  for (const auto& takeover : takeovers) {
    auto entry = json::Writer::object();
    entry.set("milliseconds", takeover.milliseconds);
    entry.set("commandMs", takeover.commandMs);
    entry.set("gapFrames", takeover.gapFrames);
    entry.set("controlGapFrames", takeover.controlGapFrames);
    entry.set("addedLatencyFrames", takeover.addedLatencyFrames);
    entry.set("rampFrames", takeover.rampFrames);
    list.append(std::move(entry));
  }
  return list;
}

}  // namespace

json::Writer toJson(const Figures& figures, const std::vector<Verdict>& verdicts) {
  auto result = json::Writer::object();
  result.set("quantum", figures.quantum);
  result.set("rate", figures.rate);
  result.set("levelBefore", figures.levelBefore);
  result.set("levelDuring", figures.levelDuring);
  result.set("levelAfter", figures.levelAfter);
  result.set("ratio", figures.ratio());
  result.set("takeoverMs", figures.takeoverMs());
  result.set("commandMs", figures.commandMs());
  result.set("gapFrames", figures.ownGapFrames());
  result.set("addedLatencyFrames", figures.addedLatencyFrames());
  result.set("takeovers", toJson(figures.takeovers));
  result.set("levelChanged", figures.levelChanged);
  result.set("rampFrames", figures.rampFrames);
  result.set("rampLinear", figures.rampLinear);
  result.set("releaseGapFrames", figures.releaseGapFrames);
  result.set("loudest", figures.loudest);
  result.set("otherLowest", figures.otherLowest);
  result.set("otherHighest", figures.otherHighest);
  result.set("otherDisturbedFrames", figures.otherDisturbedFrames);
  result.set("otherDelayedFrames", figures.otherDelayedFrames);
  result.set("killedMs", figures.killedMs);
  result.set("killedGapFrames", figures.killedGapFrames);
  result.set("otherKilledGapFrames", figures.otherKilledGapFrames);
  if (figures.resetMs) result.set("resetMs", *figures.resetMs);
  result.set("missedFrames", figures.missedFrames);
  auto outOfBounds = json::Writer::array();
  for (const auto& verdict : verdicts) {
    if (!verdict.within) outOfBounds.append(verdict.key);
  }
  result.set("outOfBounds", std::move(outOfBounds));
  return result;
}

}  // namespace monitor::demo
