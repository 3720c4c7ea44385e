// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Player.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "Tools/AudioLab/LabError.h"

namespace monitor::lab {
namespace {

constexpr Milliseconds kDeadline(10'000);

std::string executableOf(const PrivateStack& stack, const PlayerSetup& setup) {
  const auto program =
      builtProgram(setup.kind == PlayerKind::Native ? "vesk-lab-player" : "vesk-lab-pulse-player");
  if (setup.installAs.empty()) return program;
  const auto copy = stack.directory() / "programs" / setup.installAs;
  std::filesystem::create_directories(copy.parent_path());
  std::filesystem::copy_file(program, copy, std::filesystem::copy_options::skip_existing);
  return copy.string();
}

std::vector<std::string> commandOf(const PrivateStack& stack, const PlayerSetup& setup) {
  std::vector<std::string> command;
  if (setup.ownPidNamespace) {
    command = {"unshare", "--pid", "--fork", "--kill-child"};
    if (::geteuid() != 0) command.insert(command.begin() + 1, {"--user", "--map-current-user"});
  }
  command.push_back(executableOf(stack, setup));
  command.insert(command.end(), {"--name", setup.name, "--streams", std::to_string(setup.streams)});
  command.insert(command.end(), setup.arguments.begin(), setup.arguments.end());
  return command;
}

pid_t onlyChildOf(pid_t pid) {
  const std::string number = std::to_string(pid);
  std::ifstream stream("/proc/" + number + "/task/" + number + "/children");
  pid_t child = 0;
  stream >> child;
  return child;
}

}  // namespace

Player::Player(const PrivateStack& stack, PlayerSetup setup)
    : name_(setup.name),
      log_(stack.log("player")),
      child_(stack.spawn("player", commandOf(stack, setup), true)) {
  if (!waitUntil([&] { return ownPid_ != 0; }, kDeadline)) {
    throw LabError("the player \"" + name_ + "\" does not start" + fileTail(log_, 8));
  }
  pid_ = setup.ownPidNamespace ? onlyChildOf(child_.pid()) : child_.pid();
  while (opened_ < setup.streams) indices_.push_back(opened_++);
  waitForStateOfAll("streaming");
}

std::size_t Player::open(bool wait) {
  command("open");
  indices_.push_back(opened_);
  if (wait && !waitForState(opened_, "streaming", kDeadline)) {
    throw LabError("stream " + std::to_string(opened_) + " of \"" + name_ + "\" does not play");
  }
  return opened_++;
}

void Player::close() {
  command("close");
  if (!indices_.empty()) indices_.pop_back();
}

void Player::pause() {
  command("pause");
  waitForStateOfAll("paused");
}

void Player::resume() {
  command("resume");
  waitForStateOfAll("streaming");
}

void Player::quit() {
  child_.send("quit");
  if (!child_.wait(kDeadline)) throw LabError("\"" + name_ + "\" does not quit");
}

void Player::kill() {
  child_.kill();
}

bool Player::waitForState(std::size_t stream, const std::string& state, Milliseconds deadline) {
  return waitUntil([&] { return states_[stream] == state; }, deadline);
}

void Player::waitForStateOfAll(const std::string& state) {
  for (const auto stream : indices_) {
    if (waitForState(stream, state, kDeadline)) continue;
    throw LabError("stream " + std::to_string(stream) + " of \"" + name_ + "\" is " + states_[stream] +
                   ", not " + state + fileTail(log_, 8));
  }
}

std::string Player::waitForError(Milliseconds deadline) {
  if (!waitUntil([&] { return !errors_.empty(); }, deadline)) return {};
  std::string error = std::move(errors_.front());
  errors_.erase(errors_.begin());
  return error;
}

void Player::command(const std::string& text) {
  obeyed_.clear();
  child_.send(text);
  if (!waitUntil([&] { return obeyed_ == text; }, kDeadline)) {
    throw LabError("\"" + name_ + "\" does not " + text + fileTail(log_, 8));
  }
}

bool Player::waitUntil(const std::function<bool()>& condition, Milliseconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  // What has been reported already counts first, so that a state is the latest one.
  while (auto line = child_.receive(Milliseconds(0))) take(*line);
  while (!condition()) {
    const auto left = std::chrono::ceil<Milliseconds>(end - std::chrono::steady_clock::now());
    const auto line = child_.receive(std::max(left, Milliseconds(0)));
    if (!line) return false;
    take(*line);
  }
  return true;
}

void Player::take(const std::string& line) {
  std::istringstream words(line);
  std::string kind;
  words >> kind;
  if (kind == "ready") words >> ownPid_;
  if (kind == "obeyed") words >> obeyed_;
  if (kind == "error") errors_.push_back(line);
  std::size_t stream = 0;
  if (kind == "state" && words >> stream) words >> states_[stream];
}

}  // namespace monitor::lab
