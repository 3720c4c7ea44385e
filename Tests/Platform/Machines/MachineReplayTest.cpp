// SPDX-License-Identifier: MIT
// Machines of different shape, from their files to the snapshots that the collector makes of them.
//
// After a change that is meant, VESK_WRITE_GOLDEN=1 writes the expected texts anew; read the difference
// before it is committed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "Tests/Platform/Machines/Replay.h"
#include "Tests/Platform/Machines/SnapshotText.h"

namespace monitor::platform {
namespace {

class MachineReplayTest : public testing::TestWithParam<const char*> {};

TEST_P(MachineReplayTest, SnapshotsAreTheExpectedOnes) {
  const std::string base = std::string(VESK_FIXTURES "/machines/") + GetParam();
  std::ifstream text(base + ".machine");
  ASSERT_TRUE(text) << base;
  Replay replay(text);
  std::string snapshots;
  while (replay.machine().next()) snapshots += snapshotText(replay.sample());
  if (std::getenv("VESK_WRITE_GOLDEN") != nullptr) std::ofstream(base + ".golden") << snapshots;
  std::ifstream golden(base + ".golden");
  std::ostringstream expected;
  expected << golden.rdbuf();
  EXPECT_EQ(snapshots, expected.str());
}

INSTANTIATE_TEST_SUITE_P(Machines, MachineReplayTest,
                         testing::Values("laptop", "server", "board", "desktop", "suspended"),
                         [](const auto& machine) { return std::string(machine.param); });

}  // namespace
}  // namespace monitor::platform
