// SPDX-License-Identifier: MIT
#include "Benchmarks/Harness/Report.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

namespace monitor::bench {
namespace {

std::string threeDigits(double figure) {
  if (figure < 10.0) return fmt::format("{:.2f}", figure);
  return figure < 100.0 ? fmt::format("{:.1f}", figure) : fmt::format("{:.0f}", figure);
}

std::string figureText(const Result& result, double figure) {
  return result.unit.empty() ? fmt::format("{:.3f}", figure) : threeDigits(figure) + ' ' + result.unit;
}

std::string verdictText(const Result& result) {
  if (!result.bound.has_value()) return "-";
  return result.withinBound() ? "ok" : "MISSED";
}

}  // namespace

std::string durationText(double seconds) {
  constexpr std::array<std::pair<double, const char*>, 4> kUnits{
      {{1.0, "s"}, {1e3, "ms"}, {1e6, "us"}, {1e9, "ns"}}};
  for (const auto& [perSecond, unit] : kUnits) {
    if (seconds * perSecond >= 1.0) return threeDigits(seconds * perSecond) + ' ' + unit;
  }
  return threeDigits(seconds * 1e9) + " ns";
}

std::string headingText(const Machine& machine, const MeasureOptions& options) {
  return fmt::format(
      "processor  {}, {} of them\ncompiler   {}\nbuild      {}\nsamples    {} pairs, product and floors in "
      "turn\n\n"
      "{:<56} {:>9} {:>9}  {:>8}  {:<17} {:>8}  {}\n",
      machine.processor, machine.processors, machine.compiler, machine.buildType, options.pairs,
      "measurement", "product", "floor", "median", "quartiles", "bound", "");
}

std::string rowText(const Result& result) {
  const bool isRatio = result.unit.empty();
  const std::string quartiles = fmt::format("{} .. {}", figureText(result, result.figure.first),
                                            figureText(result, result.figure.third));
  std::string text =
      fmt::format("{:<56} {:>9} {:>9}  {:>8}  {:<17} {:>8}  {}\n", result.subject + '/' + result.name,
                  isRatio ? durationText(result.productSeconds) : "",
                  isRatio ? durationText(result.floorSeconds) : "", figureText(result, result.figure.median),
                  quartiles, result.bound ? figureText(result, *result.bound) : "-", verdictText(result));
  if (isRatio) text += fmt::format("    of {}\n", result.floor);
  return text;
}

std::string jsonText(const Machine& machine, const std::vector<Result>& results) {
  nlohmann::ordered_json document;
  document["machine"] = {{"processor", machine.processor},
                         {"processors", machine.processors},
                         {"compiler", machine.compiler},
                         {"build", machine.buildType}};
  document["results"] = nlohmann::ordered_json::array();
  for (const Result& result : results) {
    nlohmann::ordered_json entry = {{"subject", result.subject},
                                    {"name", result.name},
                                    {"unit", result.unit.empty() ? "ratio" : result.unit},
                                    {"median", result.figure.median},
                                    {"firstQuartile", result.figure.first},
                                    {"thirdQuartile", result.figure.third},
                                    {"samples", result.samples}};
    if (result.unit.empty()) {
      entry["floor"] = result.floor;
      entry["productSeconds"] = result.productSeconds;
      entry["floorSeconds"] = result.floorSeconds;
    }
    if (result.bound.has_value()) {
      entry["bound"] = *result.bound;
      entry["withinBound"] = result.withinBound();
    }
    document["results"].push_back(std::move(entry));
  }
  return document.dump(2);
}

}  // namespace monitor::bench
