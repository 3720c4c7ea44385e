// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ClientProcess.h"

#include <gtest/gtest.h>

#include <map>

namespace monitor::platform::test {
namespace {

class FakeProcesses final : public ProcessSource {
 public:
  struct Process {
    ProcessStatus status;
    ProcessDetails details;
  };
  std::map<std::int32_t, Process> processes;
  mutable int walks = 0;

  [[nodiscard]] std::vector<std::int32_t> pids() const override {
    ++walks;
    std::vector<std::int32_t> result;
    for (const auto& [pid, process] : processes) result.push_back(pid);
    return result;
  }
  [[nodiscard]] std::optional<ProcessStatus> status(std::int32_t pid) const override {
    const auto found = processes.find(pid);
    return found == processes.end() ? std::nullopt : std::optional{found->second.status};
  }
  [[nodiscard]] std::optional<ProcessDetails> details(std::int32_t pid) const override {
    const auto found = processes.find(pid);
    return found == processes.end() ? std::nullopt : std::optional{found->second.details};
  }
  [[nodiscard]] std::uint32_t ownUser() const override { return 1000; }
};

GraphClient pulseClient(const std::string& claim, const std::string& binary = "player") {
  GraphClient client;
  client.properties = {{"client.api", "pipewire-pulse"},
                       {"pipewire.sec.pid", "7"},
                       {"application.process.id", claim},
                       {"application.process.binary", binary}};
  client.seenAt = 50.0;
  return client;
}

constexpr const char* kFlatpakScope = "/user.slice/app.slice/app-flatpak-org.example.Player-77.scope";

TEST(ClientProcess, NativeClientIsTheProcessThatTheServerSaw) {
  GraphClient client;
  client.properties = {{"pipewire.sec.pid", "812"}, {"application.process.id", "5"}};
  EXPECT_EQ(processOfClient(client, FakeProcesses{}), 812);
  client.properties = {{"application.process.id", "5"}};
  EXPECT_EQ(processOfClient(client, FakeProcesses{}), std::nullopt);
}

TEST(ClientProcess, ClaimOfTheUsersOlderProcessInOurNamespaceCounts) {
  FakeProcesses processes;
  processes.processes[812] = {{1000, {812}}, {49.9, "/", "player"}};
  EXPECT_EQ(processOfClient(pulseClient("812"), processes), 812);
  EXPECT_EQ(processes.walks, 0) << "the usual case needs no walk over all processes";
}

TEST(ClientProcess, ClaimWithAnotherProgramNameCountsWhenNobodyElseAnswersToThePid) {
  FakeProcesses processes;
  processes.processes[812] = {{1000, {812}}, {10.0, "/", "wrapper"}};
  EXPECT_EQ(processOfClient(pulseClient("812"), processes), 812);
}

TEST(ClientProcess, ClaimOfAnotherUsersProcessDoesNotCount) {
  FakeProcesses processes;
  processes.processes[812] = {{0, {812}}, {10.0, "/", "player"}};
  EXPECT_EQ(processOfClient(pulseClient("812"), processes), std::nullopt);
}

TEST(ClientProcess, ClaimOfAYoungerProcessDoesNotCount) {
  FakeProcesses processes;
  processes.processes[812] = {{1000, {812}}, {50.1, "/", "player"}};
  EXPECT_EQ(processOfClient(pulseClient("812"), processes), std::nullopt);
  processes.processes[812].details.startedAt = 50.0;
  EXPECT_EQ(processOfClient(pulseClient("812"), processes), 812);
}

TEST(ClientProcess, ClaimOfAProcessInAnInnerNamespaceDoesNotCount) {
  FakeProcesses processes;
  processes.processes[812] = {{1000, {812, 3}}, {10.0, "/", "player"}};
  EXPECT_EQ(processOfClient(pulseClient("812"), processes), std::nullopt);
}

TEST(ClientProcess, SandboxedClaimFindsTheMemberOfItsScopeWithThatInnerPid) {
  FakeProcesses processes;
  processes.processes[3] = {{1000, {3}}, {1.0, "/", "player"}};  // ours, by chance with that pid
  processes.processes[900] = {{1000, {900, 3}}, {20.0, kFlatpakScope, "player"}};
  processes.processes[901] = {{1000, {901, 3}}, {20.0, "/app-flatpak-org.other.App-1.scope", "player"}};
  GraphClient client = pulseClient("3");
  client.properties["pipewire.access.portal.app_id"] = "org.example.Player";
  EXPECT_EQ(processOfClient(client, processes), 900);
  processes.processes.erase(900);
  EXPECT_EQ(processOfClient(client, processes), std::nullopt);
}

TEST(ClientProcess, InnerPidIsLookedForAmongAllWhenTheClientNamesNoSandbox) {
  FakeProcesses processes;
  processes.processes[900] = {{1000, {900, 40, 3}}, {20.0, "/", "player"}};
  processes.processes[901] = {{1000, {901, 3, 41}}, {20.0, "/", "player"}};
  processes.processes[902] = {{0, {902, 3}}, {20.0, "/", "player"}};
  processes.processes[903] = {{1000, {903, 3}}, {60.0, "/", "player"}};
  EXPECT_EQ(processOfClient(pulseClient("3"), processes), 900);
}

TEST(ClientProcess, SeveralProcessesWithThatPidAreToldApartByTheirProgram) {
  FakeProcesses processes;
  processes.processes[1] = {{1000, {1}}, {0.0, "/", "init"}};
  processes.processes[900] = {{1000, {900, 1}}, {20.0, "/", "player"}};
  EXPECT_EQ(processOfClient(pulseClient("1"), processes), 900);
  processes.processes[901] = {{1000, {901, 1}}, {20.0, "/", "player"}};
  EXPECT_EQ(processOfClient(pulseClient("1"), processes), 1) << "the claim itself, when nothing else decides";
  processes.processes.erase(1);
  EXPECT_EQ(processOfClient(pulseClient("1"), processes), std::nullopt);
}

TEST(ClientProcess, NonsenseClaimsFindNobody) {
  FakeProcesses processes;
  processes.processes[0] = {{1000, {0}}, {0.0, "/", "player"}};
  for (const char* claim : {"", "0", "-1", "4294967295", "2147483648", "x"}) {
    EXPECT_EQ(processOfClient(pulseClient(claim), processes), std::nullopt) << claim;
  }
}

TEST(ClientProcess, ScopeNamesAreMatchedEscapedAndPlain) {
  EXPECT_TRUE(isScopeOfApplication(kFlatpakScope, "org.example.Player"));
  EXPECT_TRUE(isScopeOfApplication("/a/flatpak-org.example.Player-12.scope", "org.example.Player"));
  EXPECT_TRUE(isScopeOfApplication("/a/app-flatpak-org.my\\x2dapp.App-1.scope", "org.my-app.App"));
  EXPECT_FALSE(isScopeOfApplication(kFlatpakScope, "org.example.Play"));
  EXPECT_FALSE(isScopeOfApplication("/app-flatpak-org.example.Player-1.service", "org.example.Player"));
  EXPECT_FALSE(isScopeOfApplication("/app-flatpak-org.example.Player-1.scope/inner", "org.example.Player"));
  EXPECT_FALSE(isScopeOfApplication("", "org.example.Player"));
}

}  // namespace
}  // namespace monitor::platform::test
