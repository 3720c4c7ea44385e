// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcessStat.h"

#include <gtest/gtest.h>

#include <string>

namespace monitor::platform {
namespace {

std::string statOf(const std::string& command, const std::string& state = "S",
                   const std::string& threads = "3") {
  return "42 (" + command + ") " + state + " 7 42 42 34816 42 4194560 1 2 3 4 11 22 33 44 20 0 " + threads +
         " 0 987654 1000 200 18446744073709551615 1 1 0\n";
}

TEST(ProcessStatTest, FieldsAreThoseOfTheKernelsTable) {
  const auto stat = parseProcessStat(statOf("bash"));
  ASSERT_TRUE(stat);
  EXPECT_EQ(stat->state, 'S');
  EXPECT_EQ(stat->parent, 7);
  EXPECT_EQ(stat->terminal, 34816);
  EXPECT_EQ(stat->userTicks, 11U);
  EXPECT_EQ(stat->systemTicks, 22U);
  EXPECT_EQ(stat->threads, 3);
  EXPECT_EQ(stat->startTicks, 987654U);
  EXPECT_EQ(stat->residentPages, 200U);
  EXPECT_FALSE(stat->kernelThread);
}

TEST(ProcessStatTest, KernelThreadIsToldByItsFlag) {
  const auto stat =
      parseProcessStat("2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0 4 0 0 20 0 1 0 0 0 0 1 0 0 0\n");
  ASSERT_TRUE(stat);
  EXPECT_TRUE(stat->kernelThread);
}

TEST(ProcessStatTest, MarkOfTheProgramChangesWithItsNameAndItsPlace) {
  const auto mark = [](const std::string& text) { return parseProcessStat(text)->program; };
  const std::string bash = statOf("bash");
  EXPECT_EQ(mark(bash), mark(statOf("bash", "R", "1")));
  EXPECT_NE(mark(bash), mark(statOf("make")));
  std::string moved = bash;
  moved.replace(moved.rfind(" 1 1 0"), 6, " 1 2 0");
  EXPECT_NE(mark(bash), mark(moved));
}

TEST(ProcessStatTest, CommandNameMayHoldAnything) {
  for (const std::string name :
       {"", ")", "a) S 9 9 9", "((", "two words", "line\nbreak", "(sd-pam)", "\xff\xfe", ") ("}) {
    const auto stat = parseProcessStat(statOf(name));
    ASSERT_TRUE(stat) << name;
    EXPECT_EQ(stat->parent, 7) << name;
    EXPECT_EQ(stat->startTicks, 987654U) << name;
  }
}

TEST(ProcessStatTest, TextThatIsCutOffIsNothing) {
  const std::string whole = statOf("bash");
  const std::string needed = whole.substr(0, whole.find(" 1000 200"));
  EXPECT_TRUE(parseProcessStat(needed));
  for (std::size_t length = 0; length + 6 < needed.size(); ++length) {
    EXPECT_FALSE(parseProcessStat(needed.substr(0, length))) << length;
  }
}

TEST(ProcessStatTest, FieldsThatAreNoNumbersAreNothing) {
  EXPECT_FALSE(parseProcessStat(statOf("bash", "S", "three")));
  EXPECT_FALSE(parseProcessStat(statOf("bash", "SS")));
  EXPECT_FALSE(parseProcessStat("42 (bash) S -1 42 42 0 42 1 1 2 3 4 11 22 33 44 20 0 1 0 5 6\n"));
  EXPECT_FALSE(parseProcessStat("42 bash S 7"));
  EXPECT_FALSE(parseProcessStat(")("));
}

TEST(ProcessStatTest, EndedIsAZombieWithoutOtherThreads) {
  EXPECT_TRUE(parseProcessStat(statOf("a", "Z", "1"))->ended());
  EXPECT_TRUE(parseProcessStat(statOf("a", "X", "0"))->ended());
  EXPECT_FALSE(parseProcessStat(statOf("a", "Z", "2"))->ended()) << "only its first thread ended";
  EXPECT_FALSE(parseProcessStat(statOf("a", "R", "1"))->ended());
  EXPECT_FALSE(parseProcessStat(statOf("a", "D", "1"))->ended());
}

}  // namespace
}  // namespace monitor::platform
