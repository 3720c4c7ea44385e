// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ProcessSource.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace monitor::platform::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class ProcessSourceTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "vesk-proc-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    root = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(root); }
  void write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories((root / name).parent_path());
    std::ofstream{root / name} << text;
  }

  std::filesystem::path root;
};

TEST_F(ProcessSourceTest, ListsFoldersWithPositiveNumbersOnly) {
  for (const char* name : {"1", "812", "self", "0", "12x", "-4"}) write(std::string{name} + "/stat", "");
  EXPECT_THAT(ProcProcessSource{root}.pids(), UnorderedElementsAre(1, 812));
}

TEST_F(ProcessSourceTest, StatusGivesTheRealUserAndThePidInEveryNamespace) {
  write("812/status", "Name:\tUid: 5\nUid:\t1000\t0\t0\t0\nNSpid:\t812\t40\t3\n");
  const auto status = ProcProcessSource{root}.status(812);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->owner, 1000U);
  EXPECT_THAT(status->nsPids, ElementsAre(812, 40, 3));
}

TEST_F(ProcessSourceTest, KernelWithoutNamespacesGivesThePidItself) {
  write("812/status", "Uid:\t1000\t0\t0\t0\n");
  EXPECT_THAT(ProcProcessSource{root}.status(812)->nsPids, ElementsAre(812));
}

TEST_F(ProcessSourceTest, StartIsCountedBehindTheLastBracketOfTheName) {
  const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
  write("812/stat", "812 (a) b (c) S 1 812 812 0 -1 0 0 0 0 0 1 2 3 4 20 0 1 0 " +
                        std::to_string(static_cast<long>(ticks * 30)) + " 99 98\n");
  write("812/cgroup", "4:memory:/x\n0::/user.slice/app-x.scope\n");
  std::filesystem::create_symlink("/usr/bin/player (deleted)", root / "812/exe");
  const auto details = ProcProcessSource{root}.details(812);
  ASSERT_TRUE(details);
  EXPECT_EQ(details->startedAt, 30.0);
  EXPECT_EQ(details->cgroup, "/user.slice/app-x.scope");
  EXPECT_EQ(details->executable, "player");
}

TEST_F(ProcessSourceTest, BrokenFilesAreNoProcess) {
  write("1/status", "Uid:\n");
  write("2/stat", "2 (short) S 1");
  write("3/stat", "no brackets");
  const ProcProcessSource source{root};
  EXPECT_FALSE(source.status(1));
  EXPECT_FALSE(source.details(2));
  EXPECT_FALSE(source.details(3));
  EXPECT_FALSE(source.status(4));
  EXPECT_FALSE(source.details(4));
  EXPECT_TRUE(ProcProcessSource{root / "missing"}.pids().empty());
}

TEST(ProcessSource, ReadsThisVeryProcess) {
  const ProcProcessSource source;
  EXPECT_THAT(source.pids(), Contains(getpid()));
  EXPECT_EQ(source.status(getpid())->owner, source.ownUser());
  const auto details = source.details(getpid());
  ASSERT_TRUE(details);
  EXPECT_GT(details->startedAt, 0.0);
  EXPECT_LE(details->startedAt, secondsSinceBoot());
  EXPECT_EQ(details->executable, "linux_audio_tests");
}

}  // namespace
}  // namespace monitor::platform::test
