// SPDX-License-Identifier: MIT
#include "Tools/vesk/Terminal.h"

#include <gtest/gtest.h>

namespace monitor::vesk {
namespace {

TerminalFacts screen() {
  TerminalFacts facts;
  facts.isTerminal = true;
  facts.windowColumns = 120;
  facts.term = "xterm-256color";
  return facts;
}

TEST(Terminal, ShowsColoursOnATerminal) {
  EXPECT_EQ(describeTerminal(screen()), (Terminal{true, true, 120}));
}

TEST(Terminal, ShowsNoneInAFileOrPipe) {
  TerminalFacts facts = screen();
  facts.isTerminal = false;
  EXPECT_EQ(describeTerminal(facts), Terminal{});
}

TEST(Terminal, ShowsNoneWhereNoColorIsSetToAnything) {
  TerminalFacts facts = screen();
  facts.noColor = "0";
  EXPECT_FALSE(describeTerminal(facts).colours);
  facts.noColor = "";
  EXPECT_TRUE(describeTerminal(facts).colours);
}

TEST(Terminal, CanDoNothingWhenDumb) {
  TerminalFacts facts = screen();
  facts.term = "dumb";
  EXPECT_EQ(describeTerminal(facts), (Terminal{false, false, 120}));
}

TEST(Terminal, TakesTheWidthFromColumnsWhereTheWindowDoesNotTell) {
  TerminalFacts facts = screen();
  facts.windowColumns = 0;
  facts.columns = "132";
  EXPECT_EQ(describeTerminal(facts).columns, 132U);
  for (const char* nonsense : {"", "0", "-1", "12x", "99999999999999999999"}) {
    facts.columns = nonsense;
    EXPECT_EQ(describeTerminal(facts).columns, 80U) << nonsense;
  }
}

TEST(Terminal, ColoursTextOnlyWhereColoursAreShown) {
  EXPECT_EQ(coloured({true, true, 80}, Colour::Red, "no"), "\x1b[31mno\x1b[0m");
  EXPECT_EQ(coloured({true, true, 80}, Colour::Plain, "no"), "no");
  EXPECT_EQ(coloured({true, false, 80}, Colour::Red, "no"), "no");
}

}  // namespace
}  // namespace monitor::vesk
