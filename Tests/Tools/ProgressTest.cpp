// SPDX-License-Identifier: MIT
#include "Tools/vesk/Progress.h"

#include <gmock/gmock.h>

#include <sstream>

#include "Tests/Fakes/VirtualTime.h"

namespace monitor::vesk {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class ProgressTest : public testing::Test {
 protected:
  fakes::VirtualTime time_;
  fakes::FakeClock clock_{time_};
  std::ostringstream out_;
  std::ostringstream err_;
  Console console_{out_, err_, {}, {true, false, 80}};
};

TEST_F(ProgressTest, ShowsShareAndWipesItselfAtTheEnd) {
  {
    Progress progress(console_, clock_, "reading", 200);
    progress.update(50);
    EXPECT_THAT(err_.str(), HasSubstr("reading  [######..................]  25%"));
  }
  EXPECT_THAT(err_.str(), EndsWith("\r\x1b[K"));
  EXPECT_EQ(out_.str(), "");
}

TEST_F(ProgressTest, DrawsAtMostTenTimesASecond) {
  Progress progress(console_, clock_, "reading", 200);
  progress.update(1);
  const std::string first = err_.str();
  time_.advance(0.09);
  progress.update(2);
  EXPECT_EQ(err_.str(), first);
  time_.advance(0.02);
  progress.update(3);
  EXPECT_NE(err_.str(), first);
}

TEST_F(ProgressTest, CountsWhenTheTotalIsUnknown) {
  Progress progress(console_, clock_, "reading", 0);
  progress.update(12345);
  EXPECT_THAT(err_.str(), HasSubstr("reading  12345"));
}

TEST_F(ProgressTest, NeverExceedsTheBarWhenMoreWasDoneThanPromised) {
  Progress progress(console_, clock_, "reading", 10);
  progress.update(25);
  EXPECT_THAT(err_.str(), HasSubstr("[########################] 100%"));
}

TEST_F(ProgressTest, PrintsNothingWhereNobodyWatches) {
  console_.errTerminal = {};
  {
    Progress progress(console_, clock_, "reading", 200);
    progress.update(50);
  }
  EXPECT_EQ(err_.str(), "");
}

}  // namespace
}  // namespace monitor::vesk
