// SPDX-License-Identifier: MIT
// The audio service's process on Linux. The bus starts it when a client calls; it leaves after an idle
// minute.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "Platform/Linux/Service/AudioServiceMain.h"

int main(int argc, char** argv) {
  CLI::App app(
      "Lists the programs that play sound and sets the volume of single ones, for clients on the session "
      "bus.",
      "vesk-monitor-audio");
  app.set_version_flag("--version", "vesk-monitor-audio " VESK_VERSION);
  app.footer(
      "Started by the session bus. Exit status: 0 idle or told to end, 1 the bus was lost, 2 wrong usage.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError& error) {
    (void)app.exit(error);
    return 2;
  }
  try {
    return monitor::platform::audioServiceMain();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vesk-monitor-audio: %s\n", error.what());
    return 1;
  }
}
