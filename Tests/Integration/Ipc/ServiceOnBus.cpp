// SPDX-License-Identifier: MIT
#include "Tests/Integration/Ipc/ServiceOnBus.h"

#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

#include "MonitorAudioEngine/AudioRouteError.h"

namespace monitor::tests {
namespace {

using lab::Milliseconds;
using SteadyClock = std::chrono::steady_clock;

lab::ChildProcess startService(const PrivateBus& bus, std::vector<std::string> arguments) {
  lab::SpawnOptions spawn;
  spawn.command = {fakeServiceProgram()};
  spawn.command.insert(spawn.command.end(), arguments.begin(), arguments.end());
  spawn.environment = bus.environment();
  spawn.log = bus.directory() / "service.log";
  spawn.talk = true;
  return lab::ChildProcess(spawn);
}

}  // namespace

std::string changedProcessText() {
  return AudioRouteError::changedProcess().what();
}

std::string selection(int program) {
  return "[{\"pid\":" + std::to_string(100'000 + program) + ",\"start\":1700000000000000}]";
}

std::string fakeServiceProgram() {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vesk-test-audio-service").string();
}

ServiceOnBus::ServiceOnBus(std::vector<std::string> arguments, const PrivateBus::Options& options)
    : bus(options), process(startService(bus, std::move(arguments))) {
  const auto end = SteadyClock::now() + std::chrono::seconds(20);
  while (bus.ownerOf(kServiceName) == 0) {
    if (SteadyClock::now() > end || !process.running()) throw std::runtime_error("no service: " + log());
    std::this_thread::sleep_for(Milliseconds(2));
  }
}

std::string ServiceOnBus::status(const std::string& expected) {
  std::string last;
  const auto end = SteadyClock::now() + std::chrono::seconds(20);
  do {
    process.signal(SIGUSR1);
    last = process.receive(Milliseconds(5000)).value_or("no answer");
    if (last == expected) break;
    std::this_thread::sleep_for(Milliseconds(5));
  } while (SteadyClock::now() < end);
  return last;
}

std::size_t ServiceOnBus::threads() const {
  const auto tasks = std::filesystem::directory_iterator("/proc/" + std::to_string(process.pid()) + "/task");
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

std::optional<int> ServiceOnBus::exitStatus() {
  const auto status = process.wait(Milliseconds(20'000));
  if (!status) return std::nullopt;
  return WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status);
}

std::string ServiceOnBus::log() const {
  return lab::fileTail(bus.directory() / "service.log", 20);
}

std::string ServiceOnBus::call(const std::string& method, std::vector<std::string> arguments) const {
  std::vector<std::string> command = {"sh",
                                      "-c",
                                      "exec busctl --json=short \"$@\" 2>&1",
                                      "sh",
                                      "--address=" + bus.address(),
                                      "--",
                                      "call",
                                      kServiceName,
                                      kServicePath,
                                      kServiceInterface,
                                      method};
  command.insert(command.end(), arguments.begin(), arguments.end());
  auto output = bus.run(std::move(command)).output;
  while (!output.empty() && output.back() == '\n') output.pop_back();
  return output;
}

std::vector<std::string> bytesForBusctl(const std::string& data) {
  std::vector<std::string> result = {std::to_string(data.size())};
  for (const char c : data) result.push_back(std::to_string(static_cast<unsigned char>(c)));
  return result;
}

}  // namespace monitor::tests
