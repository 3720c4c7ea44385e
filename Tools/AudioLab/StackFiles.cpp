// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/StackFiles.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <fstream>
#include <string_view>

#include "Tools/AudioLab/BusConfiguration.h"
#include "Tools/AudioLab/LabError.h"

namespace monitor::lab {
namespace {

namespace fs = std::filesystem;

void write(const fs::path& file, std::string_view text) {
  fs::create_directories(file.parent_path());
  std::ofstream stream(file);
  stream << text;
  if (!stream.flush()) throw LabError("cannot write " + file.string());
}

std::string serverConfiguration(const StackOptions& options) {
  std::string sinks;
  for (const auto& sink : options.sinks) {
    sinks +=
        fmt::format("  {{ factory = adapter args = {{ {} object.linger = true }} }}\n", sinkProperties(sink));
  }
  // Virtual machines get a minimum quantum of 1024 otherwise: by vm.overrides up to 1.0, by a rule from 1.2
  // on.
  return fmt::format(R"(context.properties = {{
  default.clock.rate = {0}
  default.clock.allowed-rates = [ {0} ]
  default.clock.quantum = {1}
  default.clock.min-quantum = 32
  default.clock.max-quantum = 8192
  vm.overrides = {{ default.clock.min-quantum = 32 }}
}}
context.properties.rules = [
  {{ matches = [ {{ cpu.vm.name = !null }} ] actions = {{ update-props = {{ default.clock.min-quantum = 32 }} }} }}
]
context.objects = [
{2}]
)",
                     options.rate, options.quantum, sinks);
}

std::string pulseConfiguration(const StackOptions& options) {
  const auto quantum = fmt::format("{}/{}", options.quantum, options.rate);
  return fmt::format(R"(pulse.properties = {{
  pulse.min.req = {0}
  pulse.min.quantum = {0}
  vm.overrides = {{ pulse.min.quantum = {0} }}
}}
)",
                     quantum);
}

constexpr std::string_view kSessionManager04 = R"(alsa_monitor.enabled = false
v4l2_monitor.enabled = false
libcamera_monitor.enabled = false
default_access.properties["enable-flatpak-portal"] = false
)";

constexpr std::string_view kSessionManager05 = R"(wireplumber.profiles = { main = {
  monitor.alsa = disabled  monitor.alsa-midi = disabled  monitor.alsa.reserve-device = disabled
  monitor.bluez = disabled  monitor.bluez-midi = disabled  monitor.libcamera = disabled  monitor.v4l2 = disabled
  support.portal-permissionstore = disabled  support.reserve-device = disabled  support.logind = disabled
} }
)";

}  // namespace

std::string sinkProperties(const SinkOptions& sink) {
  return fmt::format(
      "factory.name = support.null-audio-sink media.class = Audio/Sink node.name = \"{}\" node.description = "
      "\"{}\" "
      "audio.rate = {} audio.channels = {} audio.position = [ {} ] priority.session = {} priority.driver = "
      "{} "
      "monitor.channel-volumes = false monitor.passthrough = true",
      sink.name, sink.description, sink.rate, sink.positions.size(), fmt::join(sink.positions, " "),
      sink.priority, sink.priority);
}

void writeStackFiles(const fs::path& directory, const StackOptions& options) {
  for (const auto* folder : {"home", "run", "config", "state", "data", "cache", "log", "services"}) {
    fs::create_directories(directory / folder);
  }
  // The XDG rules demand it, and the bus and PulseAudio's client refuse anything wider.
  fs::permissions(directory / "run", fs::perms::owner_all, fs::perm_options::replace);
  write(directory / "config/pipewire/pipewire.conf.d/10-lab.conf", serverConfiguration(options));
  write(directory / "config/pipewire/pipewire-pulse.conf.d/10-lab.conf", pulseConfiguration(options));
  write(directory / "config/wireplumber/main.lua.d/51-lab.lua", kSessionManager04);
  write(directory / "config/wireplumber/bluetooth.lua.d/51-lab.lua", "bluez_monitor.enabled = false\n");
  write(directory / "config/wireplumber/wireplumber.conf.d/51-lab.conf", kSessionManager05);
  if (!options.bus) return;
  // The second folder is where a session's transient services are announced, as on a desktop.
  BusConfiguration bus{directory / "run/bus", {directory / "services", directory / "run/dbus-1/services"}};
  bus.serviceFolders.insert(bus.serviceFolders.end(), options.serviceFolders.begin(),
                            options.serviceFolders.end());
  write(directory / "bus.conf", busConfigurationText(bus));
  for (const auto& activation : options.activations) {
    write(directory / "services" / (activation.name + ".service"),
          fmt::format("[D-BUS Service]\nName={}\nExec={}\n", activation.name, activation.command));
  }
}

Environment stackEnvironment(const fs::path& directory, const StackOptions& options) {
  Environment result = neutralEnvironment();
  const auto set = [&](const char* name, const fs::path& value) { result[name] = value.string(); };
  set(kStackVariable, directory);
  set("HOME", directory / "home");
  set("XDG_RUNTIME_DIR", directory / "run");
  set("XDG_CONFIG_HOME", directory / "config");
  set("XDG_STATE_HOME", directory / "state");
  set("XDG_DATA_HOME", directory / "data");
  set("XDG_CACHE_HOME", directory / "cache");
  set("PIPEWIRE_RUNTIME_DIR", directory / "run");
  set("PULSE_RUNTIME_PATH", directory / "run/pulse");
  set("PULSE_SERVER", "unix:" + (directory / "run/pulse/native").string());
  set("PULSE_COOKIE", directory / "run/cookie");
  set("LC_ALL", "C.UTF-8");
  // An address that nobody listens on keeps libdbus from starting a bus of its own.
  set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (directory / "run/bus").string());
  for (const auto& [name, value] : options.extra) result[name] = value;
  return result;
}

}  // namespace monitor::lab
