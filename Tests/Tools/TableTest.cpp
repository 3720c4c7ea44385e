// SPDX-License-Identifier: MIT
#include "Tools/vesk/Table.h"

#include <gtest/gtest.h>

namespace monitor::vesk {
namespace {

Table people() {
  Table table({{"NAME", Align::Left, true}, {"GAIN", Align::Right}, {"ID"}});
  table.add({"Music", "40 %", "org.example.music"});
  table.add({"音楽プレーヤー", "100 %", "process:812:5000"});
  return table;
}

TEST(Table, AlignsColumnsByTheCellsTheirTextsTake) {
  EXPECT_EQ(people().text({}),
            "NAME             GAIN  ID\n"
            "Music            40 %  org.example.music\n"
            "音楽プレーヤー  100 %  process:812:5000\n");
}

TEST(Table, ShrinksTheColumnsThatMayToTheTerminalsWidth) {
  EXPECT_EQ(people().text({true, false, 34}),
            "NAME       GAIN  ID\n"
            "Music      40 %  org.example.music\n"
            "音楽プ…   100 %  process:812:5000\n");
}

TEST(Table, LeavesColumnsWholeThatMayNotShrink) {
  EXPECT_EQ(people().text({true, false, 10}),
            "NAME   GAIN  ID\n"
            "Mus…   40 %  org.example.music\n"
            "音…   100 %  process:812:5000\n");
}

TEST(Table, KeepsEveryCellWholeOutsideATerminal) {
  Table table({{"NAME", Align::Left, true}});
  const std::string longName(400, 'x');
  table.add({longName});
  EXPECT_EQ(table.text({}), "NAME\n" + longName + "\n");
}

TEST(Table, MakesCellsPrintable) {
  Table table({{"NAME"}});
  table.add({"evil\x1b[2J\nname"});
  EXPECT_EQ(table.text({}), "NAME\nevil\xEF\xBF\xBD[2J\xEF\xBF\xBDname\n");
}

TEST(Table, PrintsTheHeaderInBoldWhereColoursAreShown) {
  Table table({{"NAME"}});
  table.add({"Music"});
  EXPECT_EQ(table.text({true, true, 80}), "\x1b[1mNAME\x1b[0m\nMusic\n");
}

}  // namespace
}  // namespace monitor::vesk
