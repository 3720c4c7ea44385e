// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "Tests/Platform/Ipc/PrivateBus.h"

namespace monitor::tests {
namespace {

using testing::HasSubstr;

constexpr const char* kUnit = "vesk-helper.service";

std::string contents(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The unit as it is installed. Its program is replaced by one that is surely there, since the check demands
// one.
class HelperUnit : public testing::Test {
 protected:
  HelperUnit() {
    const auto begin = text.find("ExecStart=");
    if (begin == std::string::npos) throw std::runtime_error("no ExecStart");
    std::ofstream(copy) << text.substr(0, begin) << "ExecStart=/bin/true"
                        << text.substr(text.find('\n', begin));
  }
  [[nodiscard]] lab::CommandResult run(const std::string& command) const {
    return bus.run({"sh", "-c", command + " " + copy + " 2>&1"}, lab::Milliseconds(100'000));
  }
  const std::string text = contents(std::string(VESK_BUILT_PACKAGING "/") + kUnit);
  PrivateBus bus;
  const std::string copy = (bus.directory() / kUnit).string();
};

TEST_F(HelperUnit, IsVerifiedBySystemd) {
  const auto result = run("systemd-analyze --man=no verify");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(result.output, "");
}

TEST_F(HelperUnit, IsHardenedAsFarAsItsReadingsAllow) {
  const auto output = run("systemd-analyze security --offline=true").output;
  const auto found = output.find("exposure level for");
  ASSERT_NE(found, std::string::npos) << output;
  const auto level = std::strtod(output.c_str() + output.find(": ", found) + 2, nullptr);
  EXPECT_GT(level, 0.0);
  // What is left: it is root, sees the host's processes and network, and reads what belongs to others.
  EXPECT_LE(level, 2.4) << output;
}

TEST_F(HelperUnit, RunsTheInstalledProgramUnderItsName) {
  EXPECT_THAT(text, HasSubstr("ExecStart=" VESK_LIBEXEC "/vesk-helper\n"));
  EXPECT_THAT(text, HasSubstr("BusName=app.vesk.native.monitor-helper\n"));
}

TEST_F(HelperUnit, HasTheNameThatTheBusStartsOnlyWhileItIsEnabled) {
  EXPECT_THAT(text, HasSubstr("\n[Install]\n"));
  EXPECT_THAT(text, HasSubstr("\nAlias=dbus-app.vesk.native.monitor-helper.service\n"));
  const auto activation = contents(VESK_PACKAGING "/app.vesk.native.monitor-helper.service");
  EXPECT_THAT(activation, HasSubstr("\nSystemdService=dbus-app.vesk.native.monitor-helper.service\n"));
}

// The service manager's own tool, on a folder in place of the system.
TEST_F(HelperUnit, IsEnabledByTheAliasThatTheBusStartsAndDisabledByTakingItAway) {
  namespace fs = std::filesystem;
  const fs::path root = bus.directory() / "root";
  fs::create_directories(root / "usr/lib/systemd/system");
  fs::copy_file(copy, root / "usr/lib/systemd/system" / kUnit);
  const fs::path alias = root / "etc/systemd/system/dbus-app.vesk.native.monitor-helper.service";
  const auto systemctl = [&](const std::string& verb) {
    return bus
        .run({"sh", "-c", "systemctl --root=" + root.string() + " " + verb + " " + kUnit + " 2>/dev/null"})
        .output;
  };
  EXPECT_EQ(systemctl("is-enabled"), "disabled\n");
  (void)systemctl("enable");
  EXPECT_TRUE(fs::is_symlink(alias));
  EXPECT_EQ(systemctl("is-enabled"), "enabled\n");
  (void)systemctl("disable");
  EXPECT_FALSE(fs::is_symlink(alias));
  (void)systemctl("mask");
  EXPECT_EQ(systemctl("is-enabled"), "masked\n");
}

// Whoever starts it, it is the unit that confines it.
TEST(HelperActivation, IsTheServiceManagersAlone) {
  const auto activation = contents(VESK_PACKAGING "/app.vesk.native.monitor-helper.service");
  EXPECT_THAT(activation, HasSubstr("\nName=app.vesk.native.monitor-helper\n"));
  EXPECT_THAT(activation, HasSubstr("\nExec=/bin/false\n"));
  EXPECT_THAT(activation, HasSubstr("\nUser=root\n"));
}

}  // namespace
}  // namespace monitor::tests
