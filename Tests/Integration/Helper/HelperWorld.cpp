// SPDX-License-Identifier: MIT
#include "Tests/Integration/Helper/HelperWorld.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace monitor::tests {
namespace {

namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

// Works with what its environment has: nothing but a search path.
constexpr const char* kTool = R"(#!/bin/sh
folder=${0%/*}
case "$*" in *--help*) echo "  smc   sensors"; exit 0;; esac
echo run >> "$folder/runs"
read -r mode < "$folder/mode"
case "$mode" in slow) sleep 5;; fail) exit 1;; *) sleep 0.2;; esac
echo '<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>'
echo '<key>elapsed_ns</key><integer>200000000</integer>'
echo '<key>processor</key><dict><key>combined_power</key><integer>12345</integer></dict><key>tasks</key><array>'
for process in /proc/[0-9]*; do
  echo "<dict><key>pid</key><integer>${process#/proc/}</integer><key>energy_impact</key><real>1</real></dict>"
done
echo '</array></dict></plist>'
)";

fs::path temporaryFolder(const char* pattern) {
  std::string name = (fs::temp_directory_path() / pattern).string();
  if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
  fs::permissions(name, fs::perms(0755));
  return name;
}

// What the command says when one of its patiences has ended: on a busy machine programs start slowly.
bool wasLate(const std::string& output) {
  return output.find("did not return readings") != std::string::npos ||
         output.find("does not say whether the helper is enabled") != std::string::npos;
}

PrivateBus::Options withHelper(PrivateBus::Options options, const Installation& installation) {
  options.everyUser = true;
  options.activations.emplace_back(kHelperName, installation.helper());
  return options;
}

}  // namespace

std::vector<std::string> asUser(uid_t user, std::vector<std::string> command) {
  if (user == ::getuid()) return command;
  const std::string id = std::to_string(user);
  std::vector<std::string> result = {"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"};
  result.insert(result.end(), command.begin(), command.end());
  return result;
}

Installation::Installation() : folder_(temporaryFolder("vesk-helper-XXXXXX")) {
  for (const char* program : {VESK_HELPER_PROGRAM, VESK_PROGRAM}) {
    const fs::path copy = folder_ / fs::path(program).filename();
    fs::copy_file(program, copy);
    fs::permissions(copy, fs::perms(0755));
  }
  const fs::path tool = folder_ / "vesk-powermetrics";
  std::ofstream(tool) << kTool;
  fs::permissions(tool, fs::perms(0755));
  setTool("");
}

Installation::~Installation() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void Installation::setTool(const std::string& mode) const {
  std::ofstream(folder_ / "mode") << mode << '\n';
}

void Installation::removeTool() const {
  fs::remove(folder_ / "vesk-powermetrics");
}

void Installation::useRealTool() const {
  const fs::path tool = folder_ / "vesk-powermetrics";
  fs::copy_file(VESK_POWERMETRICS_PROGRAM, tool, fs::copy_options::overwrite_existing);
  fs::permissions(tool, fs::perms(0755));
}

std::size_t Installation::runs() const {
  std::ifstream file(folder_ / "runs");
  const auto lines = std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n');
  return static_cast<std::size_t>(lines);
}

HelperWorld::HelperWorld(PrivateBus::Options options)
    : bus(withHelper(std::move(options), installation)), manager(bus) {
  manager.setState("vesk-helper.service", "enabled");
}

HelperWorld::Run HelperWorld::vesk(const std::vector<std::string>& arguments, uid_t user) const {
  std::vector<std::string> command = {"sh", "-c", "exec \"$@\" 2>&1", "sh", installation.vesk()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  command = asUser(user, std::move(command));
  for (int attempt = 0;; ++attempt) {
    const auto result = bus.run(command, lab::Milliseconds(100'000));
    if (!wasLate(result.output) || attempt == 5) return {result.status, result.output};
  }
}

AdvancedSample HelperWorld::sample(uid_t user) const {
  const Run run = vesk({"advanced", "--json"}, user);
  constexpr std::string_view kHead = "{\"sample\":";
  const auto end = run.output.rfind(",\"status\":");
  if (run.status != 0 || !run.output.starts_with(kHead) || end == std::string::npos) {
    throw std::runtime_error("no sample: " + run.output);
  }
  return decodeAdvancedSample(std::string_view(run.output).substr(kHead.size(), end - kHead.size()));
}

bool HelperWorld::waitForRuns(std::size_t count) const {
  const auto end = SteadyClock::now() + std::chrono::seconds(60);
  while (installation.runs() < count) {
    if (SteadyClock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

LoginManager::LoginManager() : folder_(temporaryFolder("vesk-login-XXXXXX")) {
  for (const char* kind : {"seats", "users", "sessions"}) fs::create_directory(folder_ / kind);
}

LoginManager::~LoginManager() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

bool LoginManager::works() {
  const LoginManager login;
  lab::SpawnOptions probe;
  probe.command = login.through();
  probe.command.emplace_back("true");
  probe.environment = lab::neutralEnvironment();
  return lab::runCommand(probe, lab::Milliseconds(60'000)).status == 0;
}

void LoginManager::say(uid_t user, const std::string& online, const std::string& active) const {
  const fs::path file = folder_ / "users" / std::to_string(user);
  std::ofstream(file.string() + ".new") << "STATE=active\nSEATS=" << online << "\nONLINE_SEATS=" << online
                                        << "\nACTIVE_SEATS=" << active << "\n";
  fs::rename(file.string() + ".new", file);
}

std::vector<std::string> LoginManager::through() const {
  return {"unshare",
          "--mount",
          "--propagation=private",
          "sh",
          "-c",
          "mount -t tmpfs -o mode=755 tmpfs /run && mkdir /run/systemd && "
          "mount --bind \"$0\" /run/systemd && exec \"$@\"",
          folder_.string()};
}

Users twoUsers() {
  std::vector<uid_t> found;
  // Accounts of the base system that run nothing.
  for (const char* name : {"games", "news", "uucp", "irc", "list", "nobody"}) {
    if (const passwd* entry = ::getpwnam(name)) found.push_back(entry->pw_uid);
  }
  if (found.size() < 2) throw std::runtime_error("the base system has no two users to spare");
  return {found[0], found[1]};
}

lab::ChildProcess sleeperOf(uid_t user, const lab::Environment& environment) {
  lab::SpawnOptions spawn;
  spawn.command = asUser(user, {"sleep", "1000"});
  spawn.environment = environment;
  return lab::ChildProcess(spawn);
}

}  // namespace monitor::tests
