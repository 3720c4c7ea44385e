// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopCommand.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>

#include "Tests/Tools/ScreenModel.h"

namespace monitor::vesk {
namespace {

// A terminal whose both ends are in the test.
class TopCommandTest : public testing::Test {
 protected:
  TopCommandTest() : ours_(::posix_openpt(O_RDWR | O_NOCTTY)) {
    EXPECT_EQ(::grantpt(ours_), 0);
    EXPECT_EQ(::unlockpt(ours_), 0);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has one thread
    theirs_ = ::open(::ptsname(ours_), O_RDWR | O_NOCTTY);
    EXPECT_GE(theirs_, 0);
    before_ = attributes();
  }
  ~TopCommandTest() override {
    ::close(theirs_);
    ::close(ours_);
  }
  [[nodiscard]] termios attributes() const {
    termios found{};
    EXPECT_EQ(::tcgetattr(theirs_, &found), 0);
    return found;
  }
  void type(const std::string& keys) const {
    EXPECT_EQ(::write(ours_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  ExitCode run(TopFeed::Look look) { return runTop(TopState{}, std::move(look), theirs_, theirs_, console_); }
  // What is on the screen when everything has arrived.
  ScreenModel& screen() {
    pollfd entry{ours_, POLLIN, 0};
    std::array<char, 65536> bytes{};
    while (::poll(&entry, 1, 0) == 1) {
      const ssize_t count = ::read(ours_, bytes.data(), bytes.size());
      if (count <= 0) break;
      screen_.feed({bytes.data(), static_cast<std::size_t>(count)});
    }
    return screen_;
  }
  void expectRestored() {
    EXPECT_FALSE(screen().otherScreen);
    EXPECT_TRUE(screen().cursor);
    EXPECT_TRUE(screen().wraps);
    EXPECT_EQ(attributes().c_lflag, before_.c_lflag);
  }

  int ours_;
  int theirs_ = -1;
  termios before_{};
  ScreenModel screen_{24, 80};
  std::ostringstream out_;
  std::ostringstream err_;
  Console console_{out_, err_, {true, false, 80}, {}};
};

TEST_F(TopCommandTest, ALookThatFailsRestoresTheTerminalAndIsTold) {
  try {
    (void)run([](bool) -> TopData { throw std::runtime_error("The machine is gone."); });
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "The machine is gone.");
  }
  expectRestored();
}

TEST_F(TopCommandTest, KeysThatWereTypedAheadAreHeeded) {
  type("mq");
  EXPECT_EQ(run([](bool) { return TopData{}; }), ExitCode::Ok);
  expectRestored();
}

TEST_F(TopCommandTest, AFileIsNoTerminal) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  EXPECT_THROW((void)runTop(
                   TopState{}, [](bool) { return TopData{}; }, pipe[0], pipe[1], console_),
               CommandError);
  EXPECT_THROW((void)runTop(
                   TopState{}, [](bool) { return TopData{}; }, theirs_, pipe[1], console_),
               CommandError);
  for (const int end : pipe) ::close(end);
  expectRestored();
}

}  // namespace
}  // namespace monitor::vesk
