// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "Tests/Platform/Ipc/PrivateBus.h"

namespace monitor::tests {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string contents(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

struct UserUnit {
  const char* file;
  double exposure;  // at most; docs/platforms.md says what the rest of it is
};

// A user unit as it is installed. Its program is replaced by one that is surely there, since the check
// demands one.
class UnitTest : public testing::TestWithParam<UserUnit> {
 protected:
  UnitTest() {
    const auto begin = text.find("ExecStart=");
    if (begin == std::string::npos) throw std::runtime_error("no ExecStart");
    std::ofstream(unit) << text.substr(0, begin) << "ExecStart=/bin/true"
                        << text.substr(text.find('\n', begin));
  }
  [[nodiscard]] lab::CommandResult run(const std::string& command) const {
    return bus.run({"sh", "-c", command + " " + unit + " 2>&1"});
  }
  PrivateBus bus;
  const std::string text = contents(std::string(VESK_BUILT_PACKAGING "/") + GetParam().file);
  const std::string unit = (bus.directory() / GetParam().file).string();
};

TEST_P(UnitTest, IsVerifiedBySystemd) {
  const auto result = run("systemd-analyze --user --man=no verify");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(result.output, "");
}

TEST_P(UnitTest, IsHardenedAsFarAsAUserUnitCanBe) {
  const auto output = run("systemd-analyze security --offline=true").output;
  const auto found = output.find("exposure level for");
  ASSERT_NE(found, std::string::npos) << output;
  const auto level = std::strtod(output.c_str() + output.find(": ", found) + 2, nullptr);
  EXPECT_GT(level, 0.0);
  EXPECT_LE(level, GetParam().exposure + 0.01) << output;
}

TEST_P(UnitTest, HasNoSettingThatAUserManagerCannotFollow) {
  // With these it does not start, or loses sight of the user's programs, or only seems to be hardened.
  for (const char* setting :
       {"CapabilityBoundingSet", "DeviceAllow", "DevicePolicy", "DynamicUser", "IPAddressDeny", "PrivateDevices",
        "PrivateIPC", "PrivateMounts", "PrivateNetwork", "PrivateTmp", "PrivateUsers", "ProcSubset",
        "ProtectClock", "ProtectControlGroups", "ProtectHome", "ProtectHostname", "ProtectKernelLogs",
        "ProtectKernelModules", "ProtectKernelTunables", "ProtectProc", "ProtectSystem", "RootDirectory",
        "User"}) {
    EXPECT_THAT(text, Not(HasSubstr(std::string("\n") + setting + '='))) << setting;
  }
}

TEST_P(UnitTest, LeavesOutSystemCallsThatTheProgramHasNoUseFor) {
  const auto result = run("systemd-analyze security --offline=true --json=short");
  for (const char* set : {"@clock", "@cpu-emulation", "@debug", "@module", "@mount", "@obsolete", "@privileged",
                          "@raw-io", "@reboot", "@swap"}) {
    EXPECT_THAT(result.output, HasSubstr(std::string(set) + " is not included")) << set;
  }
  EXPECT_THAT(text, HasSubstr("\nSystemCallFilter=~@aio @keyring @privileged @resources\n"));
  EXPECT_THAT(text, HasSubstr("\nKeyringMode=private\n"));
}

INSTANTIATE_TEST_SUITE_P(Units, UnitTest,
                         testing::Values(UserUnit{"vesk-monitor-audio.service", 6.1},
                                         UserUnit{"vesk-agent.service", 5.9}),
                         [](const auto& test) {
                           return std::string(test.param.file) == "vesk-agent.service" ? "Agent" : "AudioService";
                         });

TEST(ActivationFile, NamesTheProgramAndTheUnit) {
  const auto text = contents(VESK_BUILT_PACKAGING "/app.vesk.native.monitor-audio.service");
  EXPECT_THAT(text, HasSubstr("Name=app.vesk.native.monitor-audio\n"));
  EXPECT_THAT(text, HasSubstr("Exec=" VESK_LIBEXEC "/vesk-monitor-audio\n"));
  EXPECT_THAT(text, HasSubstr("SystemdService=vesk-monitor-audio.service\n"));
}

}  // namespace
}  // namespace monitor::tests
