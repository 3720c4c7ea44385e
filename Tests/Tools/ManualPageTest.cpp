// SPDX-License-Identifier: MIT
#include "Tools/vesk/ManualPage.h"

#include <gmock/gmock.h>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {
namespace {

using testing::HasSubstr;
using testing::Not;

class ManualPageTest : public testing::Test {
 protected:
  ManualPageTest() {
    CLI::App* read = app_.add_subcommand("read", "Read a file");
    read->add_option("FILE", text_, ".hidden files and C:\\ paths too")->required();
    read->add_flag("--dry-run", flag_, "Only look");
    read->add_option("--every", number_, "Seconds");
    read->footer(std::string("More to say.\n\n") + kExitCodesHelp);
    app_.add_subcommand("secret", "Not for the manual")->group("");
    CLI::App* history = app_.add_subcommand("history", "The past");
    history->add_subcommand("query", "Ask the past");
  }

  CLI::App app_{"Test.", "vesk"};
  std::string text_;
  bool flag_ = false;
  int number_ = 0;
};

TEST_F(ManualPageTest, ShowsEveryCommandWithItsArguments) {
  const std::string page = manualPage(app_, "1.2");
  EXPECT_THAT(page, HasSubstr(".TH VESK 1 \"\" \"vesk 1.2\""));
  EXPECT_THAT(page, HasSubstr(".SS vesk read FILE [\\-\\-dry\\-run] [\\-\\-every INT]\nRead a file.\n"));
  EXPECT_THAT(page, HasSubstr(".B \\-\\-every INT\nSeconds\n"));
  EXPECT_THAT(page, HasSubstr(".PP\nMore to say.\n"));
  EXPECT_THAT(page, HasSubstr(".SS vesk history query\nAsk the past.\n"));
}

TEST_F(ManualPageTest, LeavesOutHiddenCommands) {
  EXPECT_THAT(manualPage(app_, "1.2"), Not(HasSubstr("secret")));
}

TEST_F(ManualPageTest, EscapesWhatRoffWouldRead) {
  EXPECT_THAT(manualPage(app_, "1.2"), HasSubstr("\n\\&.hidden files and C:\\e paths too\n"));
}

TEST_F(ManualPageTest, PrintsTheExitCodesOnce) {
  const std::string page = manualPage(app_, "1.2");
  const std::size_t first = page.find("wrong usage");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(page.find("wrong usage", first + 1), std::string::npos);
}

}  // namespace
}  // namespace monitor::vesk
