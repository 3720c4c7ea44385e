// SPDX-License-Identifier: MIT
#include "Tests/Platform/Ipc/PrivateBus.h"

#include <cstdlib>
#include <fstream>
#include <system_error>

#include "Tools/AudioLab/BusConfiguration.h"

namespace monitor::tests {
namespace {

namespace fs = std::filesystem;

fs::path temporaryDirectory() {
  std::string name = (fs::temp_directory_path() / "vesk-bus-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
  // Other users have to reach the socket; the daemon decides about them.
  fs::permissions(name, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
  return name;
}

std::string configuration(const fs::path& directory, const PrivateBus::Options& options) {
  lab::BusConfiguration bus{directory / "bus", {directory / "services"}, options.everyUser, options.policy,
                            options.configurations};
  bus.serviceFolders.insert(bus.serviceFolders.end(), options.serviceFolders.begin(),
                            options.serviceFolders.end());
  return lab::busConfigurationText(bus);
}

}  // namespace

PrivateBus::PrivateBus(const Options& options) : directory_(temporaryDirectory()) {
  address_ = "unix:path=" + (directory_ / "bus").string();
  fs::create_directory(directory_ / "services");
  for (const auto& [name, command] : options.activations) {
    std::ofstream(directory_ / "services" / (name + ".service"))
        << "[D-BUS Service]\nName=" << name << "\nExec=" << command << "\n";
  }
  std::ofstream(directory_ / "bus.conf") << configuration(directory_, options);
  lab::SpawnOptions spawn;
  spawn.command = options.through;
  for (const std::string& word :
       {std::string("dbus-daemon"), std::string("--nofork"), std::string("--nopidfile"),
        std::string("--print-address=1"), "--config-file=" + (directory_ / "bus.conf").string()}) {
    spawn.command.push_back(word);
  }
  spawn.environment = environment();
  spawn.log = directory_ / "log";
  spawn.talk = true;
  daemon_ = lab::ChildProcess(spawn);
  if (!daemon_.receive(lab::Milliseconds(10000))) {
    throw std::runtime_error("dbus-daemon does not start: " + lab::fileTail(spawn.log, 5));
  }
}

PrivateBus::~PrivateBus() {
  daemon_.kill();
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

pid_t PrivateBus::ownerOf(const std::string& name) const {
  sd_bus* made = nullptr;
  sd_bus_new(&made);
  const platform::Bus bus(made);
  sd_bus_set_address(made, address_.c_str());
  sd_bus_set_bus_client(made, 1);
  if (sd_bus_start(made) < 0) return 0;
  sd_bus_message* answered = nullptr;
  const int result =
      sd_bus_call_method(made, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "GetConnectionUnixProcessID", nullptr, &answered, "s", name.c_str());
  const platform::Message reply(answered);
  std::uint32_t pid = 0;
  if (result >= 0) sd_bus_message_read_basic(answered, 'u', &pid);
  return static_cast<pid_t>(pid);
}

lab::Environment PrivateBus::environment() const {
  auto result = lab::neutralEnvironment();
  result["DBUS_SESSION_BUS_ADDRESS"] = address_;
  result["DBUS_SYSTEM_BUS_ADDRESS"] = address_;
  result["XDG_RUNTIME_DIR"] = directory_.string();
  result["HOME"] = directory_.string();
  result["LC_ALL"] = "C.UTF-8";
  return result;
}

lab::CommandResult PrivateBus::run(std::vector<std::string> command, lab::Milliseconds deadline) const {
  lab::SpawnOptions spawn;
  spawn.command = std::move(command);
  spawn.environment = environment();
  spawn.log = directory_ / "programs.log";
  return lab::runCommand(spawn, deadline);
}

}  // namespace monitor::tests
