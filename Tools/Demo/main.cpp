// SPDX-License-Identifier: MIT
// vesk-demo: the main job on a private audio system, measured from the device's own monitor.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "Tools/AudioLab/LabError.h"
#include "Tools/Demo/Demonstration.h"
#include "Tools/Demo/LevelPlot.h"
#include "Tools/vesk/Table.h"
#include "Tools/vesk/Terminal.h"

namespace monitor::demo {
namespace {

struct Options {
  DemonstrationOptions demonstration;
  std::string picture = "vesk-demo.png";
  bool json = false;
  double patience = 1.0;
};

std::string indented(const std::string& text) {
  std::string result;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const auto end = std::min(text.find('\n', begin), text.size());
    result += "    " + text.substr(begin, end - begin) + "\n";
    begin = end + 1;
  }
  return result;
}

Narrator makeNarrator(const Options& options, const vesk::Terminal& terminal) {
  if (options.json) return {[](const auto&, const auto&) {}, [](const auto&, const auto&) {}};
  return {[](const std::string& step, const std::string& result) {
            std::cout << fmt::format("{:<22}{}\n", step, result) << std::flush;
          },
          [terminal](const std::string& command, const std::string& output) {
            std::cout << vesk::coloured(terminal, vesk::Colour::Bold, "$ " + command) << "\n"
                      << indented(output) << std::flush;
          }};
}

void printVerdicts(const std::vector<Verdict>& verdicts, const vesk::Terminal& terminal) {
  vesk::Table table({{.title = "Figure"}, {.title = "Measured"}, {.title = "Bound"}, {.title = ""}});
  for (const auto& verdict : verdicts) {
    const std::string mark = verdict.bound.empty() ? "" : verdict.within ? "ok" : "OUT OF BOUNDS";
    table.add({verdict.title, verdict.measured, verdict.bound, mark});
  }
  std::string text = table.text(terminal);
  for (const auto& [word, colour] :
       {std::pair{"OUT OF BOUNDS", vesk::Colour::Red}, {"  ok\n", vesk::Colour::Green}}) {
    const std::string plain(word);
    const std::string shown = vesk::coloured(terminal, colour, plain);
    for (auto at = text.find(plain); at != std::string::npos; at = text.find(plain, at + shown.size())) {
      text.replace(at, plain.size(), shown);
    }
  }
  std::cout << "\n" << text << std::flush;
}

struct Attempt {
  std::optional<Figures> figures;  // nothing when it failed before there were any
  std::vector<Verdict> verdicts;
  std::string error;
  [[nodiscard]] bool passed() const { return figures && allWithin(verdicts); }
};

Attempt attempt(const Options& options, const vesk::Terminal& terminal) {
  Attempt result;
  try {
    const auto demonstration = runDemonstration(options.demonstration, makeNarrator(options, terminal));
    result.figures = demonstration.figures;
    result.verdicts = judge(demonstration.figures, options.patience);
    drawLevels(demonstration, options.picture);
  } catch (const std::exception& error) {
    result.error = error.what();
  }
  if (options.json) return result;
  if (result.figures) printVerdicts(result.verdicts, terminal);
  if (!result.error.empty()) std::cerr << "vesk-demo: " << result.error << "\n";
  return result;
}

void printJson(const std::vector<Attempt>& attempts, const Options& options) {
  auto list = json::Writer::array();
  for (const auto& each : attempts) {
    auto entry = each.figures ? toJson(*each.figures, each.verdicts) : json::Writer::object();
    if (!each.error.empty()) entry.set("error", each.error);
    list.append(std::move(entry));
  }
  auto result = json::Writer::object();
  result.set("passed", attempts.back().passed());
  result.set("attempts", std::move(list));
  result.set("picture", std::filesystem::absolute(options.picture).string());
  std::cout << result.text(2) << "\n";
}

int run(const Options& options) {
  const auto terminal = vesk::terminalOf(STDOUT_FILENO);
  std::vector<Attempt> attempts{attempt(options, terminal)};
  if (!attempts.back().passed()) {
    if (!options.json)
      std::cout << "\nOnce more, since a busy machine can spoil a measurement.\n\n" << std::flush;
    attempts.push_back(attempt(options, terminal));
  }
  if (options.json) {
    printJson(attempts, options);
  } else if (attempts.back().figures) {
    std::cout << "\nLevel over time: " << std::filesystem::absolute(options.picture).string() << "\n";
  }
  return attempts.back().passed() ? 0 : 1;
}

}  // namespace
}  // namespace monitor::demo

int main(int argc, char** argv) {
  monitor::demo::Options options;
  std::string routed = "native";
  CLI::App app{
      "Sets one of two real programs to 40 % on a private audio system without hardware, and measures from "
      "the\n"
      "recorded device what became of both. Needs no desktop, and leaves the one that runs alone.\n"
      "Exit status: 0 all figures within their bounds, 1 not so twice in a row, 2 wrong usage."};
  app.add_flag("--json", options.json, "print the figures as JSON, and nothing else");
  app.add_option("--png", options.picture, "where the picture of the level over time goes")
      ->capture_default_str();
  app.add_option("--quantum", options.demonstration.quantum, "frames of one cycle of the device")
      ->check(CLI::Range(64, 2048))
      ->capture_default_str();
  app.add_option("--route", routed,
                 "the program that is set to 40 %: native (PipeWire) or pulse (PulseAudio)")
      ->check(CLI::IsMember({"native", "pulse"}))
      ->capture_default_str();
  app.add_option("--patience", options.patience, "multiplies the bounds in milliseconds, for slow builds")
      ->check(CLI::Range(1.0, 100.0))
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (routed == "pulse") options.demonstration.routed = monitor::lab::PlayerKind::Pulse;
  try {
    return monitor::demo::run(options);
  } catch (const std::exception& error) {
    std::cerr << "vesk-demo: " << error.what() << "\n";
    return 1;
  }
}
