// SPDX-License-Identifier: MIT
#include "Tools/vesk/ApplicationChoice.h"

#include <gmock/gmock.h>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::vector<AudioApplication>& programs() {
  static const std::vector<AudioApplication> list = {
      {"org.example.Music", "Music", "org.example.Music", {{100, 1}, {101, 2}}, 1.0, true},
      {"org.example.Musical", "Musical Chairs", "org.example.Musical", {{200, 3}}, 1.0, false},
      {"process:300:7", "player", std::nullopt, {{300, 7}}, 1.0, true},
      {"process:301:8", "player", std::nullopt, {{301, 8}}, 1.0, true},
      {"process:302:9", "4711", std::nullopt, {{302, 9}}, 1.0, true},
      {"org.example.Cafe", "Café Müller", "org.example.Cafe", {{400, 1}}, 1.0, true},
  };
  return list;
}

std::string chosen(std::string_view text) {
  return chooseApplication(programs(), text, "program").id;
}

std::string refusal(const std::vector<AudioApplication>& list, std::string_view text) {
  try {
    ADD_FAILURE() << text << " chose " << chooseApplication(list, text, "program").id;
    return {};
  } catch (const CommandError& error) {
    EXPECT_EQ(error.code(), ExitCode::NoMatch);
    return error.what();
  }
}

TEST(ApplicationChoice, FindsByIdAndBundleIdentifier) {
  EXPECT_EQ(chosen("org.example.Music"), "org.example.Music");
  EXPECT_EQ(chosen("process:301:8"), "process:301:8");
  EXPECT_EQ(chosen("ORG.EXAMPLE.MUSIC"), "org.example.Music");
}

TEST(ApplicationChoice, FindsByThePidOfAnyProcess) {
  EXPECT_EQ(chosen("100"), "org.example.Music");
  EXPECT_EQ(chosen("101"), "org.example.Music");
  EXPECT_EQ(chosen("301"), "process:301:8");
}

TEST(ApplicationChoice, TakesDigitsForANameWhereNoProcessHasThatPid) {
  EXPECT_EQ(chosen("4711"), "process:302:9");
}

TEST(ApplicationChoice, FindsByNameWithoutRegardToCase) {
  EXPECT_EQ(chosen("music"), "org.example.Music");
  EXPECT_EQ(chosen("CAFÉ MÜLLER"), "org.example.Cafe");
  EXPECT_EQ(chosen("cafe\u0301 mu\u0308ller"), "org.example.Cafe");
}

TEST(ApplicationChoice, FindsByTheStartOfANameWhenItIsUnique) {
  EXPECT_EQ(chosen("musical"), "org.example.Musical");
  EXPECT_EQ(chosen("caf"), "org.example.Cafe");
}

TEST(ApplicationChoice, PrefersAWholeNameToTheStartOfAnother) {
  EXPECT_EQ(chosen("Music"), "org.example.Music");
}

TEST(ApplicationChoice, ListsTheCandidatesOfAnAmbiguousName) {
  const std::string names = refusal(programs(), "player");
  EXPECT_EQ(names,
            "\"player\" is more than one program. Give an id or a pid:\n"
            "  player  (process:300:7, pid 300)\n"
            "  player  (process:301:8, pid 301)");
  const std::string starts = refusal(programs(), "mus");
  EXPECT_THAT(starts, HasSubstr("Musical Chairs"));
  EXPECT_THAT(starts, Not(HasSubstr("player")));
}

TEST(ApplicationChoice, ListsEverythingWhereNothingMatches) {
  const std::string text = refusal(programs(), "nothing");
  EXPECT_THAT(text,
              HasSubstr("\"nothing\" is no program. There is:\n  Music  (org.example.Music, pid 100)\n"));
  EXPECT_THAT(text, HasSubstr("Café Müller"));
}

TEST(ApplicationChoice, SaysThatThereIsNothingToChooseFrom) {
  EXPECT_EQ(refusal({}, "music"), "There is no program.");
}

TEST(ApplicationChoice, TheEmptyTextNamesNothing) {
  EXPECT_THAT(refusal(programs(), ""), HasSubstr("is no program"));
}

TEST(ApplicationChoice, CandidatesCannotRewriteTheScreen) {
  const std::vector<AudioApplication> list = {
      {"process:1:1", "a\x1b[2Jb", std::nullopt, {{1, 1}}, 1.0, true}};
  EXPECT_THAT(refusal(list, "x"), Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace monitor::vesk
