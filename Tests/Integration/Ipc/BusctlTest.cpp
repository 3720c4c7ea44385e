// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "Tests/Integration/Ipc/ServiceOnBus.h"

namespace monitor::tests {
namespace {

using testing::HasSubstr;

std::vector<std::string> gainArguments(const std::string& gain, const std::string& processes) {
  std::vector<std::string> arguments = {"day", gain};
  for (auto& word : bytesForBusctl(processes)) arguments.push_back(std::move(word));
  return arguments;
}

std::string asReply(const std::string& text) {
  return "{\"type\":\"s\",\"data\":[\"" + text + "\"]}";
}

// What another tool sees and gets. Each call is a client of its own that leaves at once.
class BusctlTest : public testing::Test {
 protected:
  [[nodiscard]] std::string interfaces(const std::string& source) const {
    const auto result = service.bus.run({"sh", "-c", source + " | python3 " VESK_IPC_TESTS "/interfaces.py"});
    EXPECT_EQ(result.status, 0);
    return result.output;
  }
  [[nodiscard]] std::string setGain(const std::string& gain, const std::string& processes) const {
    return service.call("SetGain", gainArguments(gain, processes));
  }
  ServiceOnBus service;
};

TEST_F(BusctlTest, IntrospectsJustWhatThePackageDeclares) {
  const auto live = interfaces("busctl --address=" + service.bus.address() + " introspect --xml-interface " +
                               kServiceName + " " + kServicePath);
  EXPECT_EQ(live,
            "app.vesk.native.MonitorAudio\n"
            "app.vesk.native.MonitorAudio method Applications(out ay data, out s message)\n"
            "app.vesk.native.MonitorAudio method SetGain(in d gain, in ay processes, out s error)\n"
            "app.vesk.native.MonitorAudio method Stop()\n"
            "app.vesk.native.MonitorAudio.Diagnostics\n"
            "app.vesk.native.MonitorAudio.Diagnostics method LastCause(out i code, out s text)\n");
  EXPECT_EQ(interfaces("cat " VESK_PACKAGING "/app.vesk.native.MonitorAudio.xml"), live);
}

TEST_F(BusctlTest, ListsThePrograms) {
  const std::string list =
      "[{\"id\":\"process:100001:1700000000000000\",\"name\":\"program-1\",\"processes\":[{\"pid\":100001,"
      "\"start\":1700000000000000}],\"gain\":1.0,\"running\":false},";
  const auto reply = service.call("Applications");
  // Bytes as numbers; the message is empty.
  EXPECT_THAT(reply, testing::StartsWith("{\"type\":\"ays\",\"data\":[["));
  EXPECT_THAT(reply, testing::EndsWith("],\"\"]}"));
  std::string numbers;
  for (const auto& word : bytesForBusctl(list)) numbers += word + ",";
  const auto bytes = numbers.substr(numbers.find(',') + 1);
  EXPECT_THAT(reply, HasSubstr("[[" + bytes));
}

TEST_F(BusctlTest, AnswersEveryMistakeWithTheServicesOwnText) {
  const auto changed = asReply(changedProcessText());
  const auto invalid = asReply(kInvalidSelection);
  EXPECT_EQ(setGain("0.4", selection(1)), asReply(""));
  EXPECT_EQ(setGain("1.0", selection(1)), asReply(""));
  EXPECT_EQ(setGain("0.4", "[]"), changed);
  EXPECT_EQ(setGain("1.5", selection(1)), changed);
  EXPECT_EQ(setGain("-0.1", selection(1)), changed);
  EXPECT_EQ(setGain("nan", selection(1)), changed);
  EXPECT_EQ(setGain("0.4", selection(99)), changed);
  EXPECT_EQ(setGain("0.4", ""), invalid);
  EXPECT_EQ(setGain("0.4", "[{}]"), invalid);
  EXPECT_EQ(service.call("Stop"), "");
  EXPECT_THAT(service.call("Play"), HasSubstr("Unknown method Play"));
  EXPECT_THAT(service.call("SetGain", {"d", "0.4"}), HasSubstr("Invalid arguments"));
}

TEST_F(BusctlTest, LeavesNormalPlaybackAfterAOneShotGain) {
  EXPECT_EQ(setGain("0.4", selection(2)), asReply(""));
  EXPECT_EQ(service.status(kNothingLeft), kNothingLeft);
}

}  // namespace
}  // namespace monitor::tests
