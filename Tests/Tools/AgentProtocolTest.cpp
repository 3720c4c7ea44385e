// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/AgentProtocol.h"

#include <gmock/gmock.h>

#include <string>

#include "MonitorCore/Json/StrictJson.h"
#include "Tools/vesk/Agent/AgentAnswers.h"
#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk::agent {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

GainKeeper::Status fullStatus() {
  HeldGain music;
  music.app = {"org.example.music", "Müsic", "org.example.music", {{100, 1}}, 0.4, true};
  music.gain = 0.4;
  HeldGain player;
  player.app = {"process:200:7", "player", std::nullopt, {}, 1.0, false};
  player.gain = 0.0;
  player.state = HoldState::Waiting;
  player.trouble = "the program has no audio now";
  GainKeeper::Status status;
  status.held = {music, player};
  status.secondsSinceAnswer = 1.5;
  status.lastError = "Audio access failed.";
  status.lastCause = "No such device.";
  status.events = {{Date{700'000'000.25}, "Something happened."}};
  return status;
}

TEST(AgentProtocol, AStatusSurvivesTheWire) {
  const GainKeeper::Status status = decodeStatus(encodeStatus(fullStatus()));
  ASSERT_THAT(status.held, SizeIs(2));
  EXPECT_EQ(status.held[0].app.id, "org.example.music");
  EXPECT_EQ(status.held[0].app.name, "Müsic");
  EXPECT_EQ(status.held[0].app.bundleID, "org.example.music");
  EXPECT_EQ(status.held[0].app.processes, (std::vector<ProcessKey>{{100, 1}}));
  EXPECT_EQ(status.held[0].gain, 0.4);
  EXPECT_EQ(status.held[0].state, HoldState::Active);
  EXPECT_EQ(status.held[1].app.bundleID, std::nullopt);
  EXPECT_EQ(status.held[1].gain, 0.0);
  EXPECT_EQ(status.held[1].state, HoldState::Waiting);
  EXPECT_EQ(status.held[1].trouble, "the program has no audio now");
  EXPECT_EQ(status.secondsSinceAnswer, 1.5);
  EXPECT_EQ(status.lastError, "Audio access failed.");
  EXPECT_EQ(status.lastCause, "No such device.");
  ASSERT_THAT(status.events, SizeIs(1));
  EXPECT_EQ(status.events[0].time, Date{700'000'000.25});
  EXPECT_EQ(status.events[0].text, "Something happened.");
}

TEST(AgentProtocol, AnEmptyStatusSurvivesTheWire) {
  const GainKeeper::Status status = decodeStatus(encodeStatus({}));
  EXPECT_THAT(status.held, SizeIs(0));
  EXPECT_EQ(status.secondsSinceAnswer, std::nullopt);
}

TEST(AgentProtocol, AStatusThatIsNoneIsRefusedWithThePath) {
  EXPECT_THROW((void)decodeStatus(""), json::DecodeError);
  EXPECT_THROW((void)decodeStatus("[]"), json::DecodeError);
  EXPECT_THROW((void)decodeStatus(R"({"held":[]})"), json::DecodeError);
  std::string text = encodeStatus(fullStatus());
  text.replace(text.find("\"waiting\""), 9, "\"weird\"");
  try {
    (void)decodeStatus(text);
    FAIL() << "an unknown state was taken";
  } catch (const json::DecodeError& error) {
    EXPECT_THAT(error.what(), HasSubstr("held[1].state"));
  }
}

TEST(AgentAnswers, ARefusalIsTheServicesTextWithTheCauseOnASecondLine) {
  try {
    throwIfRefused({"Use a stereo output.", "The sink has six channels."});
    FAIL() << "a refusal was taken for a success";
  } catch (const CommandError& error) {
    EXPECT_EQ(error.code(), ExitCode::Failed);
    EXPECT_STREQ(error.what(), "Use a stereo output.\nThe sink has six channels.");
  }
  EXPECT_NO_THROW(throwIfRefused({}));
}

TEST(AgentAnswers, AListThatFailedIsARefusal) {
  EXPECT_THROW((void)listOrThrow({std::nullopt, "No audio.", ""}), CommandError);
  EXPECT_THROW((void)listOrThrow({std::nullopt, "", ""}), CommandError);
  const ListedApplications listed = listOrThrow({std::vector<AudioApplication>{}, "Standing.", ""});
  EXPECT_EQ(listed.message, "Standing.");
}

}  // namespace
}  // namespace monitor::vesk::agent
