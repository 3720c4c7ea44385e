// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/MonitorSnapshot.h"
#include "MonitorCore/ProcessKey.h"
#include "MonitorCore/ProjectActivityTracker.h"
#include "MonitorCore/ProjectGrouper.h"

// What `vesk top` shows, as plain values: nothing here draws, reads or waits.
namespace monitor::vesk {

// A program that plays, or whose volume is held.
struct PlayingProgram {
  std::string id;                     // as the audio service calls it
  std::vector<ProcessKey> processes;  // where they are known
  double gain = 1.0;                  // 0…1
  bool sounding = false;              // produces sound now

  friend bool operator==(const PlayingProgram&, const PlayingProgram&) = default;
};

// One look at the machine.
struct TopData {
  MonitorSnapshot snapshot;
  bool withProjects = false;  // whether projects were looked for
  std::vector<MonitorProject> projects;
  ProjectActivityTracker::Seconds idle;  // of their servers
  std::vector<PlayingProgram> playing;
  std::string audioProblem;  // why `playing` is not known; empty when it is
  std::string helperStatus;
};

enum class TopSort : std::uint8_t { Cpu, Memory, Disk };

struct TopState {
  std::optional<TopData> data;  // nothing before the first look
  TopSort sort = TopSort::Cpu;
  bool projects = false;
  bool paused = false;
  bool help = false;
  std::size_t firstRow = 0;  // of the table; held to what there is when it is drawn
  double every = 2.0;        // seconds
};

// One line of the table.
struct TopRow {
  std::string name;  // printable
  std::string id;    // printable
  std::optional<double> cpu;
  std::uint64_t memory = 0;
  std::optional<double> diskRead;
  std::optional<double> diskWrite;
  std::optional<double> download;
  std::optional<double> upload;
  std::optional<double> energy;
  std::size_t processes = 0;
  std::string ports;                      // of a project
  std::optional<double> idleSeconds;      // of a project: its least idle server's
  std::optional<PlayingProgram> playing;  // of an app

  friend bool operator==(const TopRow&, const TopRow&) = default;
};

// The rows in the order they are shown in: most first, what is not known last, equal ones by name.
[[nodiscard]] std::vector<TopRow> topRows(const TopState& state);

}  // namespace monitor::vesk
