// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/AudioProperties.h"

#include <gmock/gmock.h>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "Tests/Fakes/FakeAudioHardware.h"

namespace monitor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AudioPropertiesTest : public testing::Test {
 protected:
  std::vector<AudioObjectID> list() {
    return readObjectList(*view_, audio::kSystemObject, audio::kProcessObjectList);
  }

  fakes::FakeAudioHardware hardware_;
  std::shared_ptr<AudioHardware> view_ = hardware_.openView();
};

TEST_F(AudioPropertiesTest, AListIsASizeQueryAndARead) {
  const AudioObjectID first = hardware_.addProcess(1);
  const AudioObjectID second = hardware_.addProcess(2);
  EXPECT_THAT(list(), ElementsAre(first, second));
  EXPECT_THAT(hardware_.callTexts(), ElementsAre("propertyDataSize 1 prs#", "propertyData 1 prs#"));
}

TEST_F(AudioPropertiesTest, AListOfTheLargestSizeIsRead) {
  const AudioObjectID process = hardware_.addProcess(1);
  hardware_.announcedListSize = 131'072;
  EXPECT_THAT(list(), ElementsAre(process)) << "only what the read filled counts";
}

TEST_F(AudioPropertiesTest, AListAboveTheLargestSizeIsNotRead) {
  hardware_.announcedListSize = 131'073;
  try {
    (void)list();
    FAIL();
  } catch (const AudioRouteError& error) {
    EXPECT_EQ(error, AudioRouteError::invalidFormat());
    EXPECT_EQ(error.cause().text, "the list \"prs#\" has 131073 bytes, expected at most 131072");
  }
  EXPECT_THAT(hardware_.callTexts(), ElementsAre("propertyDataSize 1 prs#"));
}

TEST_F(AudioPropertiesTest, ASizeThatHoldsNoIdIsAnEmptyList) {
  hardware_.addProcess(1);
  for (const std::uint32_t size : {0U, 3U}) {
    hardware_.forgetCalls();
    hardware_.announcedListSize = size;
    EXPECT_THAT(list(), IsEmpty());
    EXPECT_THAT(hardware_.callTexts(), ElementsAre("propertyDataSize 1 prs#"));
  }
}

TEST_F(AudioPropertiesTest, ASizeOfFourToSevenBytesHoldsOneId) {
  const AudioObjectID process = hardware_.addProcess(1);
  hardware_.addProcess(2);
  for (const std::uint32_t size : {4U, 7U}) {
    hardware_.announcedListSize = size;
    EXPECT_THAT(list(), ElementsAre(process));
  }
}

TEST_F(AudioPropertiesTest, AListThatShrinksBetweenTheCallsIsRead) {
  const AudioObjectID first = hardware_.addProcess(1);
  const AudioObjectID second = hardware_.addProcess(2);
  hardware_.beforeCall = [&](const std::string& text) {
    if (text == "propertyData 1 prs#") hardware_.removeProcess(second);
  };
  EXPECT_THAT(list(), ElementsAre(first));
}

TEST_F(AudioPropertiesTest, AStatusBecomesASystemErrorWithItsCause) {
  hardware_.addProcess(1);
  hardware_.failureText = "out of patience";
  for (const std::size_t call : {1U, 2U}) {
    hardware_.failCall(call, -110);
    try {
      (void)list();
      FAIL();
    } catch (const AudioRouteError& error) {
      EXPECT_EQ(error, AudioRouteError::system(-110));
      EXPECT_EQ(error.cause().code, -110);
      EXPECT_THAT(error.cause().text, testing::HasSubstr("out of patience"));
    }
  }
}

TEST_F(AudioPropertiesTest, ANullStringIsAnInvalidFormat) {
  const AudioObjectID device = hardware_.defaultOutput();
  EXPECT_EQ(readString(*view_, device, audio::kDeviceUID), "speakers");
  hardware_.device(device).uid = "";
  EXPECT_EQ(readString(*view_, device, audio::kDeviceUID), "") << "an empty text is a text";
  hardware_.device(device).uid.reset();
  try {
    (void)readString(*view_, device, audio::kDeviceUID);
    FAIL();
  } catch (const AudioRouteError& error) {
    EXPECT_EQ(error, AudioRouteError::invalidFormat());
    EXPECT_EQ(error.cause().text,
              "property \"uid \" of audio object " + std::to_string(device) + " has no text");
  }
}

TEST_F(AudioPropertiesTest, CodesAreShownAsCharacters) {
  EXPECT_EQ(characterCodeText(audio::kFormatLinearPCM), "lpcm");
  EXPECT_EQ(characterCodeText(0x61'00'FF'20), "a?? ");
}

}  // namespace
}  // namespace monitor
