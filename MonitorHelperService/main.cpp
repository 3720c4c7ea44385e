// SPDX-License-Identifier: MIT
// The privileged helper's process on Linux. The system bus starts it when a client calls; it leaves after an
// idle minute.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "Platform/Linux/Helper/HelperMain.h"

int main(int argc, char** argv) {
  CLI::App app("Measures what only root may measure, for clients on the system bus.", "vesk-helper");
  app.set_version_flag("--version", "vesk-helper " VESK_VERSION);
  app.footer(
      "Started by the system bus. Exit status: 0 idle or told to end, 1 the bus was lost, 2 wrong usage.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError& error) {
    (void)app.exit(error);
    return 2;
  }
  try {
    return monitor::platform::helperMain();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vesk-helper: %s\n", error.what());
    return 1;
  }
}
