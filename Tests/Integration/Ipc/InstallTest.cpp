// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "Tests/Integration/Ipc/ServiceOnBus.h"
#include "Tests/Platform/Ipc/PrivateBus.h"

namespace monitor::tests {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr auto kLong = lab::Milliseconds(100'000);

// The bus's own folder holds the prefix.
lab::CommandResult run(const PrivateBus& bus, const std::string& command) {
  return bus.run({"sh", "-c", command + " 2>&1"}, kLong);
}

void expectEverything(const fs::path& root) {
  for (const char* file :
       {"bin/vesk", "libexec/vesk-monitor-audio", "libexec/vesk-powermetrics",
        "share/dbus-1/services/app.vesk.native.monitor-audio.service",
        "share/dbus-1/services/app.vesk.native.agent.service", "lib/systemd/user/vesk-monitor-audio.service",
        "lib/systemd/user/vesk-agent.service", "include/vesk-monitor/MonitorCore/ProcessKey.h",
        "include/vesk-monitor/MonitorAudioEngine/MonitorGain.h", "lib/libMonitorGain.so",
        "lib/cmake/VeskMonitor/VeskMonitorTargets.cmake"}) {
    EXPECT_TRUE(fs::exists(root / file)) << file;
  }
}

TEST(Install, PutsEverythingBelowThePrefixWhereTheServiceIsActivatedAndAConsumerBuilds) {
  const PrivateBus place;
  const auto prefix = place.directory() / "prefix";
  const auto installed = run(place, "cmake --install " VESK_BUILD " --prefix " + prefix.string());
  ASSERT_EQ(installed.status, 0) << installed.output;
  expectEverything(prefix);

  // Nothing but the installed files makes the bus know the service.
  const PrivateBus bus({.serviceFolders = {prefix / "share/dbus-1/services"}});
  const auto called = run(bus, "busctl --address=" + bus.address() + " call " + kServiceName + " " +
                                   kServicePath + " " + kServiceInterface + " Stop");
  EXPECT_EQ(called.status, 0) << called.output;
  const auto pid = bus.ownerOf(kServiceName);
  ASSERT_NE(pid, 0);
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(pid) + "/exe"), prefix / "libexec/vesk-monitor-audio");

  const auto built =
      run(place, "cmake -G Ninja -S " VESK_CONSUMER " -B " + (place.directory() / "consumer").string() +
                     " -DCMAKE_PREFIX_PATH=" + prefix.string() +
                     " '-DCMAKE_C_FLAGS=" VESK_FLAGS "' '-DCMAKE_CXX_FLAGS=" VESK_FLAGS "' && cmake --build " +
                     (place.directory() / "consumer").string());
  ASSERT_EQ(built.status, 0) << built.output;
  const auto ran = run(place, (place.directory() / "consumer/consumer").string());
  EXPECT_EQ(ran.output, "process:812:5000\n");
  EXPECT_EQ(ran.status, 0);
  const auto scaled = run(place, (place.directory() / "consumer/gain_consumer").string());
  EXPECT_EQ(scaled.output, "0.40\n");
  EXPECT_EQ(scaled.status, 0);
}

TEST(Install, StagesForAPackageAndKeepsTheFinalPaths) {
  const PrivateBus place;
  const auto stage = place.directory() / "stage";
  const auto installed =
      run(place, "DESTDIR=" + stage.string() + " cmake --install " VESK_BUILD " --prefix /opt/vesk");
  ASSERT_EQ(installed.status, 0) << installed.output;
  expectEverything(stage / "opt/vesk");
  const auto file =
      run(place, "cat " + (stage / "opt/vesk/share/dbus-1/services").string() + "/*monitor-audio*");
  EXPECT_THAT(file.output, HasSubstr("Exec=/opt/vesk/libexec/vesk-monitor-audio\n"));
  const auto unit = run(place, "cat " + (stage / "opt/vesk/lib/systemd/system/vesk-helper.service").string());
  EXPECT_THAT(unit.output, HasSubstr("ExecStart=/opt/vesk/libexec/vesk-helper\n"));
}

}  // namespace
}  // namespace monitor::tests
