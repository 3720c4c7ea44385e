// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/AudioRouteError.h"

#include <gtest/gtest.h>

#include <limits>

namespace monitor {
namespace {

std::string systemText(const std::string& code) {
  return "Audio access or routing failed (macOS " + code +
         "). Normal playback has been restored. Check System Settings \xE2\x86\x92 Privacy & Security "
         "\xE2\x86\x92 "
         "Screen & System Audio Recording.";
}

TEST(AudioRouteError, SystemPrintsTheStatusAsASignedNumber) {
  EXPECT_EQ(AudioRouteError::system(-50).what(), systemText("-50"));
  EXPECT_EQ(AudioRouteError::system(560'947'818).what(), systemText("560947818"))
      << "four characters are a number";
  EXPECT_EQ(AudioRouteError::system(std::numeric_limits<std::int32_t>::min()).what(),
            systemText("-2147483648"));
  EXPECT_EQ(AudioRouteError::system(-50).status(), -50);
}

TEST(AudioRouteError, EveryOtherCaseHasItsText) {
  EXPECT_STREQ(AudioRouteError::invalidFormat().what(),
               "This output format is not supported for app volume. Use a stereo output. Normal playback is "
               "unchanged.");
  EXPECT_STREQ(AudioRouteError::changedProcess().what(),
               "This audio app changed or closed. Refresh the app list.");
  EXPECT_STREQ(AudioRouteError::timedOut().what(),
               "Audio routing stopped responding. Normal playback has been restored.");
  EXPECT_STREQ(AudioRouteError::unavailable().what(), "App Volume requires macOS 14.2 or later.");
}

TEST(AudioRouteError, TheCauseTakesNoPartInTextAndEquality) {
  const auto plain = AudioRouteError::system(-5);
  const auto told = AudioRouteError::system(-5, {-32, "The server is gone."});
  EXPECT_EQ(plain, told);
  EXPECT_STREQ(plain.what(), told.what());
  EXPECT_EQ(told.cause(), (AudioFailure{-32, "The server is gone."}));
  EXPECT_EQ(AudioRouteError::timedOut("stalled").cause(), (AudioFailure{0, "stalled"}));
  EXPECT_NE(plain, AudioRouteError::system(-6));
  EXPECT_NE(AudioRouteError::invalidFormat(), AudioRouteError::changedProcess());
}

}  // namespace
}  // namespace monitor
