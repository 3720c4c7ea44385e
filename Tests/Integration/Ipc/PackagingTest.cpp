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

std::string contents(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// A user unit as it is installed. Its program is replaced by one that is surely there, since the check
// demands one.
class UnitTest : public testing::TestWithParam<const char*> {
 protected:
  UnitTest() {
    const std::string text = contents(std::string(VESK_BUILT_PACKAGING "/") + GetParam());
    const auto begin = text.find("ExecStart=");
    if (begin == std::string::npos) throw std::runtime_error("no ExecStart");
    std::ofstream(unit) << text.substr(0, begin) << "ExecStart=/bin/true"
                        << text.substr(text.find('\n', begin));
  }
  [[nodiscard]] lab::CommandResult run(const std::string& command) const {
    return bus.run({"sh", "-c", command + " " + unit + " 2>&1"});
  }
  PrivateBus bus;
  const std::string unit = (bus.directory() / GetParam()).string();
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
  // What is left needs namespaces or privileges that a user's service manager does not have.
  EXPECT_LE(level, 6.3) << output;
}

INSTANTIATE_TEST_SUITE_P(Units, UnitTest, testing::Values("vesk-monitor-audio.service", "vesk-agent.service"),
                         [](const auto& test) {
                           return std::string(test.param) == "vesk-agent.service" ? "Agent" : "AudioService";
                         });

TEST(ActivationFile, NamesTheProgramAndTheUnit) {
  const auto text = contents(VESK_BUILT_PACKAGING "/app.vesk.native.monitor-audio.service");
  EXPECT_THAT(text, HasSubstr("Name=app.vesk.native.monitor-audio\n"));
  EXPECT_THAT(text, HasSubstr("Exec=" VESK_LIBEXEC "/vesk-monitor-audio\n"));
  EXPECT_THAT(text, HasSubstr("SystemdService=vesk-monitor-audio.service\n"));
}

}  // namespace
}  // namespace monitor::tests
