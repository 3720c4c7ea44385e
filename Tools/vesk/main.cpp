// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "MonitorCore/MonitorHistoryStore.h"
#include "Tools/vesk/CommandLine.h"

int main(int argc, char** argv) {
  using namespace monitor::vesk;
  std::ios::sync_with_stdio(false);
  monitor::configureStorageEngine();
  const Console console{std::cout, std::cerr, terminalOf(STDOUT_FILENO), terminalOf(STDERR_FILENO)};
  CommandLine commandLine;
  return static_cast<int>(commandLine.run(std::vector<std::string>(argv + 1, argv + argc), console));
}
