// SPDX-License-Identifier: MIT
#include "Tests/Tools/PrivateBus.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Tools/AudioLab/Cleanup.h"
#include "Tools/AudioLab/StackFiles.h"

namespace monitor::vesk {
namespace {

namespace fs = std::filesystem;

constexpr lab::Milliseconds kPatience(20'000);

fs::path makeDirectory() {
  std::string pattern = (fs::temp_directory_path() / "vesk-bus-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
  return pattern;
}

lab::StackOptions busOnly() {
  lab::StackOptions options;
  options.bus = true;
  return options;
}

std::string contents(const fs::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

PrivateBus::PrivateBus() : directory_(makeDirectory()) {
  const lab::StackOptions options = busOnly();
  lab::writeStackFiles(directory_, options);
  environment_ = lab::stackEnvironment(directory_, options);
  lab::SpawnOptions spawn;
  spawn.command = {"dbus-daemon", "--config-file=" + (directory_ / "bus.conf").string(), "--nofork",
                   "--nopidfile", "--print-address=1"};
  spawn.environment = environment_;
  spawn.log = directory_ / "log/dbus-daemon.log";
  spawn.talk = true;
  daemon_ = lab::ChildProcess(spawn);
  if (!daemon_.receive(kPatience))
    throw std::runtime_error("dbus-daemon did not start: " + contents(spawn.log));
}

PrivateBus::~PrivateBus() {
  daemon_.kill();
  // What the bus started writes to the bus's log; a report of a sanitizer there is seen by nobody else.
  const std::string log = contents(directory_ / "log/dbus-daemon.log");
  if (log.find("Sanitizer") != std::string::npos || log.find("runtime error") != std::string::npos) {
    ADD_FAILURE() << log;
  }
  lab::removeStack(directory_);
}

void PrivateBus::activate(const std::string& name, const std::string& command) {
  std::ofstream(directory_ / "services" / (name + ".service"))
      << "[D-BUS Service]\nName=" << name << "\nExec=" << command << '\n';
  const platform::Bus bus = connect();
  checked(sd_bus_call_method(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "ReloadConfig", nullptr, nullptr, nullptr),
          "reloading the bus's configuration");
}

platform::Bus PrivateBus::connect() const {
  sd_bus* raw = nullptr;
  checked(sd_bus_new(&raw), "making a bus");
  platform::Bus bus(raw);
  checked(sd_bus_set_address(raw, environment_.at("DBUS_SESSION_BUS_ADDRESS").c_str()),
          "setting the address");
  checked(sd_bus_set_bus_client(raw, 1), "becoming a client");
  checked(sd_bus_start(raw), "connecting");
  return bus;
}

PrivateBus::Run PrivateBus::run(std::vector<std::string> command) {
  lab::SpawnOptions spawn;
  spawn.command = std::move(command);
  spawn.environment = environment_;
  spawn.log = directory_ / "log" / ("run-" + std::to_string(++runs_) + ".log");
  const lab::CommandResult result = lab::runCommand(spawn, kPatience);
  return {result.status, result.output, contents(spawn.log)};
}

lab::ChildProcess PrivateBus::spawn(std::vector<std::string> command, bool talk) {
  lab::SpawnOptions spawn;
  spawn.command = std::move(command);
  spawn.environment = environment_;
  spawn.log = directory_ / "log/spawned.log";
  spawn.talk = talk;
  return lab::ChildProcess(spawn);
}

std::string PrivateBus::spawnLog() const {
  return contents(directory_ / "log/spawned.log");
}

}  // namespace monitor::vesk
