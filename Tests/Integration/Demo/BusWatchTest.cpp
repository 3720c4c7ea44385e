// SPDX-License-Identifier: MIT
#include "Tools/Demo/BusWatch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/PrivateStack.h"
#include "Tools/AudioLab/Recorder.h"

namespace monitor::demo {
namespace {

class BusWatchTest : public testing::Test {
 protected:
  // To a service that cannot start: the request passes the bus all the same.
  void request(const std::string& gain) {
    static_cast<void>(stack.run({"busctl", "--user", "call", "app.vesk.native.monitor-audio",
                                 "/app/vesk/native/monitor_audio", "app.vesk.native.MonitorAudio", "SetGain",
                                 "day", gain, "2", "91", "93"}));
  }
  lab::PrivateStack stack{{.bus = true, .activations = {{"app.vesk.native.monitor-audio", "/bin/false"}}}};
};

TEST_F(BusWatchTest, NotesWhenAGainIsAskedFor) {
  const BusWatch watch(stack.busAddress());
  const std::uint64_t before = lab::monotonicNanoseconds();
  request("0.4");
  request("0.8");
  for (int i = 0; i < 500 && watch.requests().size() < 2; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const auto requests = watch.requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].gain, 0.4);
  EXPECT_EQ(requests[1].gain, 0.8);
  EXPECT_GE(requests[0].nanoseconds, before);
  EXPECT_GT(requests[1].nanoseconds, requests[0].nanoseconds);
  EXPECT_LE(requests[1].nanoseconds, lab::monotonicNanoseconds());
}

TEST_F(BusWatchTest, FindsTheOwnerOfAName) {
  EXPECT_EQ(ownerOf(stack.busAddress(), "org.freedesktop.DBus"), stack.pid(lab::Daemon::Bus));
  EXPECT_FALSE(ownerOf(stack.busAddress(), "app.vesk.native.monitor-audio").has_value());
}

TEST_F(BusWatchTest, SurvivesTheEndOfTheBus) {
  const BusWatch watch(stack.busAddress());
  stack.kill(lab::Daemon::Bus);
  EXPECT_TRUE(watch.requests().empty());
  EXPECT_THROW(BusWatch(stack.busAddress()), lab::LabError);
}

}  // namespace
}  // namespace monitor::demo
