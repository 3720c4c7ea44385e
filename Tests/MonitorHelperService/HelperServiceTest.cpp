// SPDX-License-Identifier: MIT
#include "MonitorHelperService/HelperService.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/AdvancedSample.h"
#include "MonitorCore/MonitorServiceIdentity.h"
#include "Tests/Fakes/FakeProcessTable.h"
#include "Tests/Fakes/FakeServiceConnections.h"
#include "Tests/Fakes/FakeToolRunner.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor {
namespace {

constexpr std::uint64_t kStart = 1'731'700'000'000'000;

std::string task(std::int32_t pid) {
  return "<dict><key>pid</key><integer>" + std::to_string(pid) +
         "</integer><key>energy_impact</key><real>2.5</real></dict>";
}

// The whole helper but for its transport and its tool.
class HelperServiceTest : public ::testing::Test {
 protected:
  HelperServiceTest() {
    processes.add({7, kStart}, "/bin/anna", 1000);
    processes.add({8, kStart}, "/bin/bert", 1001);
    runner.results = {{ToolResult::Outcome::Exited, 0, ""},
                      {ToolResult::Outcome::Exited, 0,
                       "<plist version=\"1.0\"><dict><key>processor</key><dict><key>combined_power</key>"
                       "<integer>12345</integer></dict><key>tasks</key><array>" +
                           task(7) + task(8) + "</array></dict></plist>"}};
    status = runHelper(
        service,
        {runner, processes, wallClock, "/opt/tool", queues, clock, [](std::uint32_t) { return true; }},
        [this] { return connections; });
  }
  // The keys that one client of `user` is told.
  std::vector<std::string> keysFor(std::uint32_t user) {
    connections->nextUser = user;
    const auto connection = connections->makeConnection(MonitorServiceIdentity::helper, true);
    connection->resume();
    std::optional<Data> answer;
    connection->remoteObjectProxy()->collect([&](const auto& data, const auto&) { answer = data; });
    time.advance(1.0);
    std::vector<std::string> keys;
    for (const auto& process : decodeAdvancedSample(answer.value_or("")).processes) {
      keys.push_back(process.key.id());
    }
    return keys;
  }

  fakes::VirtualTime time;
  fakes::FakeClock clock{time};
  fakes::FakeWallClock wallClock{time};
  fakes::FakeQueueFactory queues{time};
  fakes::FakeToolRunner runner;
  fakes::FakeProcessTable processes;
  std::shared_ptr<fakes::FakeServiceConnections<MonitorHelperProtocol>> connections =
      std::make_shared<fakes::FakeServiceConnections<MonitorHelperProtocol>>(time.makeQueue("transport"));
  HelperService service;
  int status = -1;
};

TEST_F(HelperServiceTest, DemandsTheClientsSignatureThenServes) {
  EXPECT_EQ(connections->listenerCalls, (std::vector<std::string>{"requirement", "delegate", "resume"}));
  EXPECT_EQ(connections->listenerRequirement, MonitorServiceIdentity::clientRequirement);
  EXPECT_EQ(status, 0);
}

TEST_F(HelperServiceTest, UsesAQueueForItsRulesAndAnotherForTheToolThatBlocks) {
  ASSERT_EQ(queues.made.size(), 2U);
  EXPECT_EQ(queues.made[0],
            std::pair(std::string("app.vesk.monitor.helper"), QualityOfService::UserInitiated));
  EXPECT_EQ(queues.made[1], std::pair(std::string("app.vesk.monitor.helper.run"), QualityOfService::Utility));
}

TEST_F(HelperServiceTest, EachUserIsToldOfItsOwnProcessesOnly) {
  EXPECT_EQ(keysFor(1000), (std::vector<std::string>{"7:1731700000000000"}));
  EXPECT_EQ(runner.runs.at(0).executable, "/opt/tool");
  runner.runs.clear();
  EXPECT_EQ(keysFor(1001), (std::vector<std::string>{"8:1731700000000000"}));
  runner.runs.clear();
  EXPECT_EQ(keysFor(1002), std::vector<std::string>());
}

}  // namespace
}  // namespace monitor
