// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopView.h"

#include <gmock/gmock.h>

#include <limits>

#include "Tests/Tools/ScreenModel.h"
#include "Tools/vesk/TextWidth.h"
#include "Tools/vesk/Top/Frame.h"
#include "Tools/vesk/Top/PlayingPrograms.h"
#include "Tools/vesk/Top/TopKeys.h"

namespace monitor::vesk {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr double kMiB = 1'048'576.0;
const Terminal kPlain{true, false, 80};
const Terminal kColoured{true, true, 80};

AppUsage app(std::int32_t pid, const std::string& name, std::optional<double> cpu, std::uint64_t memory,
             std::optional<double> disk = std::nullopt) {
  AppUsage usage;
  ProcessSample process;
  process.key = {pid, 5'000};
  process.name = name;
  usage.id = fallbackIdentity(process.key);
  usage.name = name;
  usage.processes = {process};
  usage.cpu = cpu;
  usage.memory = memory;
  usage.diskRead = disk;
  usage.diskWrite = disk;
  return usage;
}

// A machine with three apps, of which the first one plays at 40 %.
TopState madeUpState() {
  TopState state;
  TopData data;
  data.snapshot.timestamp = Date::since1970(1'731'758'400.0);
  data.snapshot.uptime = 3 * 86'400.0 + 4 * 3'600.0 + 11 * 60.0;
  const auto read = [&data](MetricID metric, double value, MetricUnit unit) {
    data.snapshot.readings.emplace(
        metric, MetricReading(value, unit, "kernel", MetricState::Available, data.snapshot.timestamp, {}));
  };
  read(MetricID::Cpu, 50.0, MetricUnit::Percent);
  read(MetricID::CpuUser, 30.0, MetricUnit::Percent);
  read(MetricID::CpuSystem, 20.0, MetricUnit::Percent);
  read(MetricID::MemoryUsed, 4'096 * kMiB, MetricUnit::Bytes);
  read(MetricID::MemoryTotal, 16'384 * kMiB, MetricUnit::Bytes);
  read(MetricID::MemoryPressure, 0.0, MetricUnit::Level);
  read(MetricID::DiskRead, 1.5 * kMiB, MetricUnit::BytesPerSecond);
  read(MetricID::DiskWrite, 2'048.0, MetricUnit::BytesPerSecond);
  read(MetricID::Download, 1'024.0, MetricUnit::BytesPerSecond);
  read(MetricID::DiskFree, 120 * 1'024 * kMiB, MetricUnit::Bytes);
  data.snapshot.readings.emplace(MetricID::Upload,
                                 MetricReading(std::nullopt, MetricUnit::BytesPerSecond, "kernel",
                                               MetricState::Available, data.snapshot.timestamp, {}));
  data.snapshot.apps = {app(1, "Music", 12.25, 200U << 20U, 4'096.0), app(2, "Editor", 99.5, 100U << 20U),
                        app(3, "Silent", std::nullopt, 300U << 20U, 0.0)};
  data.playing = {{"process:1:5000", {}, 0.4, true}};
  data.helperStatus = "The optional helper is not enabled.";
  state.data = std::move(data);
  return state;
}

std::vector<std::string> render(const TopState& state, ScreenSize size, const Terminal& terminal = kPlain) {
  return renderTop(state, size, terminal, TimeZone::named("UTC"));
}

// Cells of a line without its colours.
std::size_t cells(std::string line) {
  for (std::size_t start = line.find('\x1b'); start != std::string::npos; start = line.find('\x1b')) {
    line.erase(start, line.find('m', start) - start + 1);
  }
  return textWidth(line);
}

void expectFits(const TopState& state, ScreenSize size, const Terminal& terminal = kPlain) {
  const auto lines = render(state, size, terminal);
  EXPECT_EQ(lines.size(), size.rows);
  for (const std::string& line : lines) {
    EXPECT_LT(cells(line), std::max<std::size_t>(size.columns, 1)) << size.columns << ": " << line;
    EXPECT_EQ(line.find('\n'), std::string::npos);
  }
}

// Snapshots

TEST(TopView, EightyByTwentyFour) {
  EXPECT_THAT(render(madeUpState(), {24, 80}),
              ElementsAre("vesk top  2024-11-16 12:00:00  up 3 d 04:11  every 2 s",
                          "CPU     [##########..........]  50.0 %  user 30.0 %  system 20.0 %",
                          "Memory  [#####...............]  4.00 GiB of 16.0 GiB  pressure normal",
                          "Disk    read 1.50 MiB/s  write 2.00 KiB/s  Net down 1.00 KiB/s  up warming up",
                          "Free 120 GiB", "The optional helper is not enabled.", "",
                          "APP                        *CPU %    MEMORY   VOLUME    READ/S   WRITE/S  PROCS",
                          "Editor                       99.5   100 MiB                  -         -      1",
                          "Music                        12.2   200 MiB     40 %  4.00 KiB  4.00 KiB      1",
                          "Silent                          -   300 MiB                0 B       0 B      1",
                          "", "", "", "", "", "", "", "", "", "", "", "",
                          "q quit  c CPU  m memory  d disk  p projects  space pause  arrows scroll  h help"));
}

TEST(TopView, FortyByTenKeepsWhatTellsMost) {
  EXPECT_THAT(render(madeUpState(), {10, 40}),
              ElementsAre("vesk top  2024-11-16 12:00:00", "CPU 50.0 %  Memory 4.00 GiB of 16.0 GiB",
                          "APP           *CPU %    MEMORY   VOLUME", "Editor          99.5   100 MiB",
                          "Music           12.2   200 MiB     40 %", "Silent             -   300 MiB", "", "",
                          "", "q quit  c CPU  m memory  d disk  h help"));
}

TEST(TopView, AVeryWideScreenShowsIdsAndTheHelpersFigures) {
  TopState state = madeUpState();
  state.data->snapshot.apps[1].download = 2'048.0;
  state.data->snapshot.apps[1].energy = 3.5;
  const auto lines = render(state, {24, 240});
  EXPECT_THAT(lines[3], HasSubstr("Disk    read 1.50 MiB/s"));
  EXPECT_THAT(lines[7], testing::EndsWith("*CPU %    MEMORY   VOLUME    READ/S   WRITE/S  PROCS    DOWN/S   "
                                          "ENERGY  ID"));
  EXPECT_THAT(lines[8], StartsWith("Editor  "));
  EXPECT_THAT(lines[8], testing::EndsWith("2.00 KiB      3.5  process:2:5000"));
  EXPECT_THAT(lines[9], testing::EndsWith("-        -  process:1:5000"));
}

TEST(TopView, EverySizeIsFilledAndNeverExceeded) {
  TopState state = madeUpState();
  for (std::int32_t pid = 10; pid < 60; ++pid)
    state.data->snapshot.apps.push_back(app(pid, "程序程序程序程序", 1, 1));
  for (const bool projects : {false, true}) {
    for (const bool help : {false, true}) {
      state.projects = projects;
      state.help = help;
      for (const std::size_t rows : {0U, 1U, 2U, 3U, 4U, 5U, 10U, 11U, 12U, 15U, 16U, 24U, 100U}) {
        for (const std::size_t columns : {0U, 1U, 2U, 5U, 13U, 20U, 39U, 40U, 60U, 80U, 101U, 130U, 500U}) {
          expectFits(state, {rows, columns});
        }
      }
    }
  }
  expectFits(TopState{}, {24, 80});
  expectFits(TopState{}, {1, 1});
}

TEST(TopView, ColoursAreUsedOnlyWhereTheTerminalHasThem) {
  for (const std::string& line : render(madeUpState(), {24, 80}, kPlain)) {
    EXPECT_THAT(line, Not(HasSubstr("\x1b")));
  }
  const auto coloured = render(madeUpState(), {24, 80}, kColoured);
  EXPECT_EQ(coloured[7].substr(0, 4), "\x1b[1m");
  EXPECT_EQ(coloured[9].substr(0, 5), "\x1b[32m") << "what sounds is green";
  expectFits(madeUpState(), {24, 80}, kColoured);
}

// Names

TEST(TopView, WideCharactersKeepTheColumnsInLine) {
  TopState state = madeUpState();
  state.data->snapshot.apps[0].name = "音楽プレーヤー";
  state.data->snapshot.apps[1].name = std::string(40, 'x');
  const auto lines = render(state, {24, 80});
  EXPECT_THAT(lines[8], StartsWith("xxxxxxxxxxxxxxxxxxxxxxxx…    99.5   100 MiB"));
  EXPECT_THAT(lines[9], StartsWith("音楽プレーヤー               12.2   200 MiB"));
  EXPECT_EQ(cells(lines[8]), cells(lines[9]));
}

TEST(TopView, HostileNamesAreHarmless) {
  TopState state = madeUpState();
  state.data->snapshot.apps[0].name =
      "\x1b]0;pwned\x07\x1b[2J\xff\nnext\r\x9b"
      "31m";
  state.data->snapshot.apps[1].id = "\x1b[31m";
  state.data->snapshot.apps[2].name =
      "\xE2\x80\xAE"
      "desrever";  // turns the line around
  state.data->helperStatus = "\x1b[5mblink";
  state.data->audioProblem = "no\nserver";
  for (const std::string& line : render(state, {24, 200})) {
    EXPECT_THAT(line, Not(HasSubstr("\x1b")));
    EXPECT_THAT(line, Not(HasSubstr("\n")));
    EXPECT_THAT(line, Not(HasSubstr("\r")));
    EXPECT_THAT(line, Not(HasSubstr("\x07")));
    EXPECT_THAT(line, Not(HasSubstr("\xE2\x80\xAE")));
  }
  expectFits(state, {24, 200});
}

// Rows

std::vector<std::string> names(const TopState& state) {
  std::vector<std::string> all;
  for (const TopRow& row : topRows(state)) all.push_back(row.name);
  return all;
}

TEST(TopRows, AreSortedByWhatIsAskedForAndWhatIsUnknownComesLast) {
  TopState state = madeUpState();
  EXPECT_THAT(names(state), ElementsAre("Editor", "Music", "Silent"));
  state.sort = TopSort::Memory;
  EXPECT_THAT(names(state), ElementsAre("Silent", "Music", "Editor"));
  state.sort = TopSort::Disk;
  EXPECT_THAT(names(state), ElementsAre("Music", "Silent", "Editor"));
}

TEST(TopRows, EqualOnesKeepTheirPlaces) {
  TopState state = madeUpState();
  for (AppUsage& usage : state.data->snapshot.apps) usage.cpu = 1.0;
  EXPECT_THAT(names(state), ElementsAre("Editor", "Music", "Silent"));
  state.data->snapshot.apps[0].cpu = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(names(state), ElementsAre("Editor", "Silent", "Music"));
}

TEST(TopRows, APlayerWithoutAnIdentityOfItsOwnCountsTowardItsApp) {
  TopState state = madeUpState();
  ProcessSample child;
  child.key = {70, 6'000};
  state.data->snapshot.apps[1].processes.push_back(child);
  state.data->playing = {{"process:70:6000", {}, 0.25, true}};
  EXPECT_EQ(topRows(state)[0].playing->gain, 0.25);
  // Held by the service for an application whose processes are told.
  state.data->playing = {{"org.example.editor", {{2, 5'000}}, 0.5, false}};
  EXPECT_EQ(topRows(state)[0].playing->gain, 0.5);
  EXPECT_FALSE(topRows(state)[1].playing);
}

TEST(TopRows, OfSeveralPlayersTheSoundingOneIsShown) {
  TopState state = madeUpState();
  state.data->playing = {{"process:1:5000", {}, 0.1, false}, {"other", {{1, 5'000}}, 0.9, true}};
  EXPECT_EQ(topRows(state)[1].playing->gain, 0.9);
}

TEST(TopView, AVolumeHeldForASilentProgramIsInParentheses) {
  TopState state = madeUpState();
  state.data->playing[0].sounding = false;
  EXPECT_THAT(render(state, {24, 80})[9], HasSubstr("200 MiB   (40 %)  4.00 KiB"));
}

TEST(TopView, SaysThatVolumesAreNotKnown) {
  TopState state = madeUpState();
  state.data->audioProblem = "Volumes are not known: There is no connection to the audio server.";
  EXPECT_EQ(render(state, {24, 80})[5], state.data->audioProblem);
}

TEST(TopView, BeforeTheFirstLookItSaysSo) {
  EXPECT_THAT(render(TopState{}, {24, 80}), testing::Contains("Looking ..."));
}

// Projects

TopState withProjects() {
  TopState state = madeUpState();
  state.projects = true;
  state.data->withProjects = true;
  ProcessSample server;
  server.key = {10, 1};
  server.name = "server";
  server.cpu = 2.0;
  server.memory = 1U << 20U;
  server.ports = {3000, 8080};
  ProcessSample child = server;
  child.key = {11, 2};
  child.ports = {};
  child.cpu.reset();
  state.data->projects = {{"/home/me/shop", "/home/me/shop", {server}, {server, child}}};
  state.data->idle = {{{10, 1}, 480.0}};
  return state;
}

TEST(TopView, ProjectsShowPortsAndIdleTimes) {
  const auto lines = render(withProjects(), {24, 80});
  EXPECT_EQ(lines[7], "PROJECT             *CPU %    MEMORY  PORTS          READ/S   WRITE/S      IDLE");
  EXPECT_EQ(lines[8], "/home/me/shop          2.0  2.00 MiB  3000 8080           -         -   0:08:00");
  EXPECT_THAT(lines[23], HasSubstr("p apps"));
}

TEST(TopView, ProjectsThatWereNotLookedForAreNotSaidToBeNone) {
  TopState state = madeUpState();
  state.projects = true;
  EXPECT_THAT(render(state, {24, 80}), testing::Contains("Looking ..."));
  state.data->withProjects = true;
  EXPECT_THAT(render(state, {24, 80}), testing::Contains("No project listens on a port."));
}

// Keys

TopState manyApps(std::int32_t count) {
  TopState state = madeUpState();
  state.data->snapshot.apps.clear();
  for (std::int32_t pid = 1; pid <= count; ++pid) {
    state.data->snapshot.apps.push_back(app(pid, "app " + std::to_string(1'000 + pid), 1.0, 1));
  }
  return state;
}

TEST(TopKeys, PlainKeysAndSequencesAreTold) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.feed("cmdp h?qQ\x03\x0c"),
              ElementsAre(TopKey::SortByCpu, TopKey::SortByMemory, TopKey::SortByDisk, TopKey::Projects,
                          TopKey::Pause, TopKey::Help, TopKey::Help, TopKey::Quit, TopKey::Quit, TopKey::Quit,
                          TopKey::Redraw));
  EXPECT_THAT(
      decoder.feed("\x1b[A\x1bOB\x1b[5~\x1b[6~\x1b[H\x1b[F\x1b[1~\x1b[4~kjgG"),
      ElementsAre(TopKey::Up, TopKey::Down, TopKey::PageUp, TopKey::PageDown, TopKey::Home, TopKey::End,
                  TopKey::Home, TopKey::End, TopKey::Up, TopKey::Down, TopKey::Home, TopKey::End));
}

TEST(TopKeys, ASequenceMayArriveInPieces) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.feed("\x1b"), IsEmpty());
  EXPECT_THAT(decoder.feed("["), IsEmpty());
  EXPECT_THAT(decoder.feed("5"), IsEmpty());
  EXPECT_THAT(decoder.feed("~q"), ElementsAre(TopKey::PageUp, TopKey::Quit));
}

TEST(TopKeys, TheEscapeKeySwallowsNothing) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.feed("\x1b"), IsEmpty());
  EXPECT_THAT(decoder.feed("q"), ElementsAre(TopKey::Quit));
  EXPECT_THAT(decoder.feed("\x1b\x1b[A"), ElementsAre(TopKey::Up));
}

TEST(TopKeys, WhatMeansNothingIsDroppedAndBounded) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.feed("xyz\xff\x01\n\x1b[200~\x1b[<0;1;1M\x1b[Z"), IsEmpty());
  EXPECT_THAT(decoder.feed("\x1b[" + std::string(100, '1')), IsEmpty());
  EXPECT_THAT(decoder.feed("q"), ElementsAre(TopKey::Quit)) << "an endless sequence ends";
}

TEST(TopKeys, SortingStartsAtTheTop) {
  TopState state = manyApps(30);
  state.firstRow = 5;
  applyKey(state, TopKey::SortByDisk, 10);
  EXPECT_EQ(state.sort, TopSort::Disk);
  EXPECT_EQ(state.firstRow, 0U);
  applyKey(state, TopKey::SortByMemory, 10);
  EXPECT_EQ(state.sort, TopSort::Memory);
  applyKey(state, TopKey::SortByCpu, 10);
  EXPECT_EQ(state.sort, TopSort::Cpu);
}

TEST(TopKeys, ScrollingStaysWithinTheTable) {
  TopState state = manyApps(30);
  const auto after = [&](TopKey key) {
    applyKey(state, key, 10);
    return state.firstRow;
  };
  EXPECT_EQ(after(TopKey::Up), 0U);
  EXPECT_EQ(after(TopKey::Down), 1U);
  EXPECT_EQ(after(TopKey::PageDown), 11U);
  EXPECT_EQ(after(TopKey::PageDown), 20U);
  EXPECT_EQ(after(TopKey::Down), 20U);
  EXPECT_EQ(after(TopKey::Up), 19U);
  EXPECT_EQ(after(TopKey::PageUp), 9U);
  EXPECT_EQ(after(TopKey::PageUp), 0U);
  EXPECT_EQ(after(TopKey::End), 20U);
  EXPECT_EQ(after(TopKey::Home), 0U);
  state.firstRow = 99;  // apps have ended since
  EXPECT_EQ(after(TopKey::Up), 19U);
}

TEST(TopKeys, ATableThatFitsDoesNotScroll) {
  TopState state = manyApps(3);
  for (const TopKey key : {TopKey::Down, TopKey::PageDown, TopKey::End}) {
    applyKey(state, key, 10);
    EXPECT_EQ(state.firstRow, 0U);
  }
}

TEST(TopView, ScrollingShowsTheRowsFurtherDown) {
  TopState state = manyApps(30);
  const ScreenSize size{24, 80};
  EXPECT_EQ(tableRows(state, size), 15U);
  applyKey(state, TopKey::End, tableRows(state, size));
  const auto lines = render(state, size);
  EXPECT_THAT(lines[8], StartsWith("app 1016"));
  EXPECT_THAT(lines[22], StartsWith("app 1030"));
  state.firstRow = 1'000;
  EXPECT_EQ(render(state, size), lines) << "held to what there is";
}

TEST(TopKeys, PauseHelpAndProjectsToggle) {
  TopState state = madeUpState();
  for (const bool expected : {true, false}) {
    applyKey(state, TopKey::Pause, 10);
    applyKey(state, TopKey::Help, 10);
    applyKey(state, TopKey::Projects, 10);
    EXPECT_EQ(state.paused, expected);
    EXPECT_EQ(state.help, expected);
    EXPECT_EQ(state.projects, expected);
  }
  state.paused = state.help = true;
  EXPECT_THAT(render(state, {24, 80})[0], StartsWith("vesk top  paused  2024"));
  EXPECT_THAT(render(state, {24, 80}), testing::Contains("  q              quit, as does Ctrl-C"));
}

// Frames

TEST(Frame, SendsOnlyTheLinesThatDiffer) {
  ScreenModel screen(3, 20);
  const std::vector<std::string> first{"one", "two two", "three"};
  const std::vector<std::string> second{"one", "2", "three"};
  screen.feed(frameUpdate({}, first));
  EXPECT_EQ(screen.wipes, 1U);
  EXPECT_EQ(screen.lines(), first);
  const std::string update = frameUpdate(first, second);
  EXPECT_EQ(update, "\x1b[2;1H2\x1b[K");
  screen.feed(update);
  EXPECT_EQ(screen.lines(), second);
  EXPECT_EQ(screen.wipes, 1U) << "wiping between frames flickers";
  EXPECT_EQ(frameUpdate(second, second), "");
}

TEST(Frame, LinesThatAreNoMoreAreErased) {
  ScreenModel screen(3, 20);
  screen.feed(frameUpdate({}, {"one", "two", "three"}));
  screen.feed(frameUpdate({"one", "two", "three"}, {"one", ""}));
  EXPECT_THAT(screen.lines(), ElementsAre("one", "", ""));
}

TEST(Frame, AWholeViewArrivesAsItWasDrawn) {
  const ScreenSize size{24, 80};
  ScreenModel screen(size.rows, size.columns);
  const auto lines = render(madeUpState(), size);
  screen.feed(frameUpdate({}, lines));
  EXPECT_EQ(screen.lines(), lines);
  EXPECT_THAT(screen.unknown, IsEmpty());
}

// Who plays

TEST(PlayingPrograms, SoundAtTheVolumeThatIsHeldOrAtFullVolume) {
  const HeldGain held{{"a", "A", "a", {{1, 2}}, 0.4, true}, 0.4, HoldState::Active, "", 0, 0.0, 0.0};
  EXPECT_THAT(playingPrograms({{"a", "A", {}}, {"b", "B", {}}}, {held}),
              ElementsAre(PlayingProgram{"a", {{1, 2}}, 0.4, true}, PlayingProgram{"b", {}, 1.0, true}));
}

TEST(PlayingPrograms, AHeldVolumeOfASilentProgramIsKept) {
  const HeldGain held{{"a", "A", "a", {{1, 2}}, 0.4, true}, 0.4, HoldState::Waiting, "", 0, 0.0, 0.0};
  EXPECT_THAT(playingPrograms({}, {held}), ElementsAre(PlayingProgram{"a", {{1, 2}}, 0.4, false}));
}

TEST(PlayingPrograms, AVolumeThatWasLostIsNotClaimed) {
  const HeldGain held{{"a", "A", "a", {}, 1.0, true}, 0.4, HoldState::Lost, "", 0, 0.0, 0.0};
  EXPECT_THAT(playingPrograms({{"a", "A", {}}}, {held}), ElementsAre(PlayingProgram{"a", {}, 1.0, true}));
}

}  // namespace
}  // namespace monitor::vesk
