// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopView.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include "Tools/vesk/History/MetricText.h"
#include "Tools/vesk/Monitor/FigureText.h"
#include "Tools/vesk/TextWidth.h"
#include "Tools/vesk/TimeText.h"
#include "Tools/vesk/Top/TopTable.h"

namespace monitor::vesk {
namespace {

// Below these many rows the screen has no room for more than the table and a line about the machine.
constexpr std::size_t kRowsForMeters = 12;
constexpr std::size_t kRowsForExtras = 16;
constexpr std::size_t kBarCells = 20;

struct Line {
  std::string text;
  Colour colour = Colour::Plain;
};
using Lines = std::vector<Line>;

std::size_t usable(ScreenSize size) {
  return size.columns > 0 ? size.columns - 1 : 0;
}

// As many of the facts as fit side by side; a fact is never cut unless it is the first.
std::string packed(const std::vector<std::string>& facts, std::size_t width, std::string_view gap = "  ") {
  std::string line;
  for (const std::string& fact : facts) {
    if (fact.empty()) continue;
    const std::string candidate = line.empty() ? fact : line + std::string(gap) + fact;
    if (line.empty() || textWidth(candidate) <= width) line = candidate;
  }
  return shortened(line, width);
}

const MetricReading* find(const TopState& state, MetricID metric) {
  if (!state.data) return nullptr;
  const auto found = state.data->snapshot.readings.find(metric);
  return found == state.data->snapshot.readings.end() ? nullptr : &found->second;
}

std::optional<double> value(const TopState& state, MetricID metric) {
  const MetricReading* reading = find(state, metric);
  return reading != nullptr && reading->state == MetricState::Available ? reading->value : std::nullopt;
}

// "read 1.20 MiB/s"; empty where the machine has no such reading.
std::string fact(const TopState& state, const char* label, MetricID metric) {
  const MetricReading* reading = find(state, metric);
  return reading == nullptr ? std::string() : fmt::format("{} {}", label, readingText(*reading));
}

std::string bar(double share) {
  const double held = std::isfinite(share) ? std::clamp(share, 0.0, 1.0) : 0.0;
  const auto full = static_cast<std::size_t>(std::lround(held * static_cast<double>(kBarCells)));
  return '[' + std::string(full, '#') + std::string(kBarCells - full, '.') + ']';
}

std::string uptimeText(double seconds) {
  if (!(seconds >= 0.0 && seconds < 1e10)) return {};
  const auto minutes = static_cast<long long>(seconds) / 60;
  return fmt::format("up {} d {:02}:{:02}", minutes / 1440, minutes / 60 % 24, minutes % 60);
}

std::string titleLine(const TopState& state, std::size_t width, const TimeZone& zone) {
  std::vector<std::string> facts{"vesk top"};
  if (state.paused) facts.emplace_back("paused");
  if (state.data) {
    facts.push_back(timeText(state.data->snapshot.timestamp, zone));
    facts.push_back(uptimeText(state.data->snapshot.uptime));
  }
  facts.push_back(fmt::format("every {:g} s", state.every));
  return packed(facts, width);
}

std::optional<double> memoryShare(const TopState& state) {
  const auto used = value(state, MetricID::MemoryUsed);
  const auto total = value(state, MetricID::MemoryTotal);
  if (!used || !total || *total <= 0.0) return std::nullopt;
  return *used / *total;
}

std::string memoryText(const TopState& state) {
  const auto used = value(state, MetricID::MemoryUsed);
  const auto total = value(state, MetricID::MemoryTotal);
  if (!total) return used ? bytesText(used) : "-";
  return used ? fmt::format("{} of {}", bytesText(used), bytesText(total)) : bytesText(total);
}

std::string cpuLine(const TopState& state, std::size_t width) {
  const auto cpu = value(state, MetricID::Cpu);
  return packed({"CPU     " + bar(cpu.value_or(0.0) / 100.0),
                 find(state, MetricID::Cpu) != nullptr ? readingText(*find(state, MetricID::Cpu)) : "-",
                 fact(state, "user", MetricID::CpuUser), fact(state, "system", MetricID::CpuSystem)},
                width);
}

std::string memoryLine(const TopState& state, std::size_t width) {
  return packed({"Memory  " + bar(memoryShare(state).value_or(0.0)), memoryText(state),
                 fact(state, "pressure", MetricID::MemoryPressure)},
                width);
}

std::string trafficLine(const TopState& state, std::size_t width) {
  return packed({fact(state, "Disk    read", MetricID::DiskRead), fact(state, "write", MetricID::DiskWrite),
                 fact(state, "Net down", MetricID::Download), fact(state, "up", MetricID::Upload)},
                width);
}

// What only some machines have.
std::string extraLine(const TopState& state, std::size_t width) {
  return packed(
      {fact(state, "Free", MetricID::DiskFree), fact(state, "Battery", MetricID::Battery),
       fact(state, "left", MetricID::BatteryMinutes), fact(state, "GPU", MetricID::Gpu),
       fact(state, "CPU at", MetricID::CpuTemperature), fact(state, "GPU at", MetricID::GpuTemperature),
       fact(state, "Fan", MetricID::FanRPM), fact(state, "Power", MetricID::PowerWatts)},
      width);
}

// All of the machine in one line, for small screens.
std::string shortLine(const TopState& state, std::size_t width) {
  return packed({fact(state, "CPU", MetricID::Cpu), "Memory " + memoryText(state),
                 fact(state, "Read", MetricID::DiskRead), fact(state, "Write", MetricID::DiskWrite),
                 fact(state, "Down", MetricID::Download), fact(state, "Up", MetricID::Upload)},
                width);
}

void addNote(Lines& lines, const std::string& text, std::size_t width) {
  if (!text.empty()) lines.push_back({shortened(printable(text), width), Colour::Dim});
}

// What stands above the table.
Lines head(const TopState& state, ScreenSize size, const TimeZone& zone) {
  const std::size_t width = usable(size);
  Lines lines;
  if (size.rows < 4) return lines;
  lines.push_back({titleLine(state, width, zone), Colour::Bold});
  if (size.rows < kRowsForMeters) {
    lines.push_back({shortLine(state, width)});
    return lines;
  }
  lines.push_back({cpuLine(state, width)});
  lines.push_back({memoryLine(state, width)});
  lines.push_back({trafficLine(state, width)});
  if (size.rows < kRowsForExtras) return lines;
  if (std::string extra = extraLine(state, width); !extra.empty()) lines.push_back({std::move(extra)});
  if (state.data) {
    addNote(lines, state.data->audioProblem, width);
    addNote(lines, state.data->helperStatus, width);
  }
  lines.push_back({});
  return lines;
}

std::string keysLine(const TopState& state, std::size_t width) {
  return packed({"q quit", "c CPU", "m memory", "d disk", state.projects ? "p apps" : "p projects",
                 state.paused ? "space go on" : "space pause", "arrows scroll", "h help"},
                width);
}

Lines helpLines(std::size_t width) {
  constexpr std::array kTexts{
      "Keys",
      "  q              quit, as does Ctrl-C",
      "  c  m  d        sort by CPU, memory, disk",
      "  p              projects instead of apps, and back",
      "  space          stop looking, and go on",
      "  arrows, j k    scroll; page up and down, home and end too",
      "  Ctrl-L         draw the screen anew",
      "  h or ?         this help, and back",
      "",
      "CPU % is of one core. VOLUME is that of a program that plays;",
      "in parentheses it is held for one that is silent now.",
      "A figure that is not known is -.",
  };
  Lines lines;
  for (const char* text : kTexts) lines.push_back({shortened(text, width)});
  lines.front().colour = Colour::Bold;
  return lines;
}

std::string emptyText(const TopState& state) {
  if (!state.data || (state.projects && !state.data->withProjects)) return "Looking ...";
  return state.projects ? "No project listens on a port." : "No apps.";
}

// Header and rows of the table.
Lines body(const TopState& state, ScreenSize size) {
  const std::size_t width = usable(size);
  const std::vector<TopRow> rows = topRows(state);
  const std::size_t visible = tableRows(state, size);
  const std::size_t first = std::min(state.firstRow, rows.size() > visible ? rows.size() - visible : 0);
  if (rows.empty()) return {{shortened(emptyText(state), width)}};
  const TopTable table = makeTopTable(state, rows, first, visible, width);
  Lines lines;
  lines.push_back({table.header, Colour::Bold});
  for (std::size_t index = 0; index < table.lines.size(); ++index) {
    const auto& playing = rows[first + index].playing;
    lines.push_back({table.lines[index], playing && playing->sounding ? Colour::Green : Colour::Plain});
  }
  return lines;
}

std::size_t headRows(const TopState& state, ScreenSize size) {
  static const TimeZone utc = TimeZone::named("UTC");  // the number of lines is the same everywhere
  return head(state, size, utc).size();
}

}  // namespace

std::size_t tableRows(const TopState& state, ScreenSize size) {
  const std::size_t keys = size.rows >= 2 ? 1 : 0;
  const std::size_t taken = headRows(state, size) + keys + 1;  // and the table's header
  return size.rows > taken ? size.rows - taken : 0;
}

std::vector<std::string> renderTop(const TopState& state, ScreenSize size, const Terminal& terminal,
                                   const TimeZone& zone) {
  const std::size_t width = usable(size);
  Lines lines = head(state, size, zone);
  const Lines more = state.help ? helpLines(width) : body(state, size);
  lines.insert(lines.end(), more.begin(), more.end());
  const std::size_t keys = size.rows >= 2 ? 1 : 0;
  lines.resize(size.rows - std::min(size.rows, keys));
  if (keys > 0) lines.push_back({keysLine(state, width), Colour::Dim});
  std::vector<std::string> texts;
  for (const Line& line : lines) {
    texts.push_back(line.text.empty() ? std::string()
                                      : coloured(terminal, line.colour, shortened(line.text, width)));
  }
  return texts;
}

}  // namespace monitor::vesk
