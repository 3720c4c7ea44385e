// SPDX-License-Identifier: MIT
// The contract of the audio port, held by the real adapter on a real audio server.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "Platform/Linux/Base/Queues.h"
#include "Tests/Contract/AudioHardwareContract.h"
#include "Tests/Integration/Audio/RoutedStack.h"

namespace monitor::contract {
namespace {

using platform::test::eventually;
using platform::test::HardwareView;

// One audio server for the whole suite, because to start one takes longer than most of the tests. It ends
// before main() does: its daemons are killed with the thread that started them.
class SharedStack : public testing::Environment {
 public:
  void TearDown() override { stack.reset(); }
  lab::PrivateStack& get() {
    if (stack == nullptr) stack = std::make_unique<lab::PrivateStack>(lab::StackOptions{.pulse = false});
    return *stack;
  }

 private:
  std::unique_ptr<lab::PrivateStack> stack;
};

SharedStack& sharedStack() {
  static auto* const shared = static_cast<SharedStack*>(testing::AddGlobalTestEnvironment(new SharedStack));
  return *shared;
}

// Registered before the tests run, whichever of them does.
[[maybe_unused]] const SharedStack& registered = sharedStack();

// Players sound on a channel each, so that one recording tells their levels apart.
class PipeWireHarness {
 public:
  static constexpr AudioStatus kBusy = -16;

  // What a test leaves in the server's graph would be the next one's trouble, and breaks the contract.
  ~PipeWireHarness() {
    players_.clear();
    EXPECT_TRUE(eventually([this] { return leftovers() == 0; }, kDeadline))
        << "objects of ours are left in the audio server";
  }

  static std::string unavailable() { return {}; }
  std::shared_ptr<AudioHardware> openView() { return provider_->openView(); }
  std::shared_ptr<SerialQueue> queue() { return queue_; }

  std::int32_t startPlayer() {
    const std::size_t channel = players_.size();
    auto player = std::make_unique<lab::Player>(
        stack_, lab::PlayerSetup{.name = "Player", .arguments = {"--channel", std::to_string(channel)}});
    const std::int32_t pid = player->pid();
    players_[pid] = {channel, std::move(player)};
    EXPECT_TRUE(await([&] { return view_.running(pid); })) << "the player " << pid << " has no object";
    return pid;
  }
  void endPlayer(std::int32_t pid) { players_.at(pid).player->kill(); }
  void pausePlayer(std::int32_t pid) { players_.at(pid).player->pause(); }
  void resumePlayer(std::int32_t pid) { players_.at(pid).player->resume(); }

  void switchOutput() {
    graph_.setDefaultSink(graph_.view().defaultSink() == "lab-sink-a" ? "lab-sink-b" : "lab-sink-a");
  }

  // Of a short stretch from now on; -1 when nothing steady is heard in it.
  double level(std::int32_t pid) {
    const std::size_t from = recorder_.frames();
    recorder_.waitSeconds(0.03);
    const auto recording = recorder_.recording(from);
    const auto& channel = recording.channels.at(players_.at(pid).channel);
    const auto measured = lab::measureSteadiness(lab::findStretches(channel), 0, channel.size());
    return measured.steadyFrames * 10 > channel.size() * 9 ? measured.gain : -1.0;
  }

  bool await(const std::function<bool()>& condition) { return eventually(condition, kDeadline); }
  // A wrong notification or cycle comes within a few cycles of 5 ms; the machine may be slow.
  static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(100)); }

 private:
  static constexpr std::chrono::milliseconds kDeadline{10'000};

  [[nodiscard]] std::size_t leftovers() const {
    const lab::GraphView graph = graph_.view();
    const auto nodes = graph.ofType("Node");
    const auto ours = [](const std::string& text) { return text.starts_with("vesk-monitor."); };
    return static_cast<std::size_t>(
        std::count_if(nodes.begin(), nodes.end(),
                      [&](const auto* node) { return ours(node->property("node.name")); }) +
        std::count_if(graph.metadata.begin(), graph.metadata.end(),
                      [&](const auto& entry) { return ours(entry.second); }));
  }

  struct Playing {
    std::size_t channel = 0;
    std::unique_ptr<lab::Player> player;
  };

  lab::PrivateStack& stack_ = sharedStack().get();
  lab::ScopedEnvironment environment_{stack_.environment()};
  lab::Graph graph_{stack_.remote()};
  lab::Recorder recorder_{stack_.remote()};
  std::unique_ptr<SerialQueueFactory> queues_ = platform::makeSerialQueueFactory();
  std::shared_ptr<SerialQueue> queue_ = queues_->makeSerialQueue("contract", QualityOfService::Unspecified);
  std::shared_ptr<AudioHardwareProvider> provider_ = platform::makeAudioHardwareProvider();
  HardwareView view_{provider_->openView()};
  std::map<std::int32_t, Playing> players_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(PipeWire, AudioHardwareContract, PipeWireHarness);

}  // namespace
}  // namespace monitor::contract
