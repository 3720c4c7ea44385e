// SPDX-License-Identifier: MIT
#include "Tests/Contract/AudioHardwareContract.h"
#include "Tests/Fakes/FakeAudioHardware.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor::contract {
namespace {

struct FakeHarness {
  static constexpr AudioStatus kBusy = -16;

  fakes::VirtualTime time;
  std::shared_ptr<SerialQueue> listenerQueue = time.makeQueue("listeners");
  fakes::FakeAudioHardware hardware;
  AudioObjectID headphones = hardware.addDevice("headphones", fakes::floatFormat(2, 48'000.0));
  std::int32_t lastPid = 1000;

  static std::string unavailable() { return {}; }
  std::shared_ptr<AudioHardware> openView() { return hardware.openView(); }
  std::shared_ptr<SerialQueue> queue() { return listenerQueue; }
  std::int32_t startPlayer() {
    hardware.addProcess(++lastPid);
    return lastPid;
  }
  void endPlayer(std::int32_t pid) { hardware.removeProcess(hardware.processOf(pid)); }
  void pausePlayer(std::int32_t pid) { hardware.setRunning(hardware.processOf(pid), false); }
  void resumePlayer(std::int32_t pid) { hardware.setRunning(hardware.processOf(pid), true); }
  void switchOutput() {
    const AudioObjectID former = hardware.defaultOutput();
    hardware.setDefaultOutput(headphones);
    headphones = former;
  }
  double level(std::int32_t pid) {
    const AudioObjectID process = hardware.processOf(pid);
    const AudioObjectID device = hardware.routeOf(process);
    const double direct = hardware.isMuted(process) ? 0.0 : 1.0;
    if (device == 0) return direct;
    return direct + hardware.runCycle(device, fakes::StereoBlock{{1.0F}, {1.0F}})->left.front();
  }
  bool await(const std::function<bool()>& condition) {
    for (int step = 0; step < 100; ++step) {
      settle();
      if (condition()) return true;
    }
    return false;
  }
  void settle() {
    hardware.runCycles();
    time.advance(0.01);
  }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, AudioHardwareContract, FakeHarness);

}  // namespace
}  // namespace monitor::contract
