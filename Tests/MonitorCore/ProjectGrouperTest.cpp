// SPDX-License-Identifier: MIT
#include "MonitorCore/ProjectGrouper.h"

#include <gtest/gtest.h>

#include "Tests/MonitorCore/Support/CpuTime.h"
#include "Tests/MonitorCore/Support/Describe.h"
#include "Tests/MonitorCore/Support/NaiveGrouping.h"
#include "Tests/MonitorCore/Support/RandomProcesses.h"

namespace monitor {
namespace {

using Pids = std::vector<std::int32_t>;

ProcessSample process(std::int32_t pid, std::uint64_t start, std::int32_t parent) {
  ProcessSample sample;
  sample.key = {pid, start};
  sample.parentPID = parent;
  sample.owner = 501;
  return sample;
}

ProcessSample listener(std::int32_t pid, std::uint64_t start, std::int32_t parent,
                       std::optional<std::string> directory) {
  ProcessSample sample = process(pid, start, parent);
  sample.directory = std::move(directory);
  sample.ports = {3000};
  return sample;
}

Pids pids(const std::vector<ProcessSample>& samples) {
  Pids list;
  for (const ProcessSample& sample : samples) list.push_back(sample.key.pid);
  return list;
}

TEST(ProjectGrouperTest, NothingListensAndThereAreNoProjects) {
  EXPECT_TRUE(ProjectGrouper::groups({}).empty());
  ProcessSample withFolder = process(10, 1, 1);
  withFolder.directory = "/src/app";
  EXPECT_TRUE(ProjectGrouper::groups({withFolder}).empty());
}

TEST(ProjectGrouperTest, ListenerAndItsChildrenAreOneProject) {
  const auto projects = ProjectGrouper::groups(
      {process(12, 3, 10), listener(10, 1, 1, "/src/app"), process(11, 2, 10), process(13, 3, 1)});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(projects[0].id, "/src/app");
  EXPECT_EQ(projects[0].folder, "/src/app");
  EXPECT_EQ(pids(projects[0].roots), (Pids{10}));
  EXPECT_EQ(pids(projects[0].processes), (Pids{10, 11, 12}));
}

TEST(ProjectGrouperTest, ListeningChildBelongsToTheOuterListener) {
  const auto projects = ProjectGrouper::groups(
      {listener(10, 1, 1, "/src/a"), listener(11, 2, 10, "/src/b"), process(12, 3, 11)});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(projects[0].id, "/src/a");
  EXPECT_EQ(pids(projects[0].processes), (Pids{10, 11, 12}));
}

TEST(ProjectGrouperTest, ListeningGrandchildBelongsToTheOuterListener) {
  const auto projects = ProjectGrouper::groups(
      {listener(10, 1, 1, "/src/a"), process(11, 2, 10), listener(12, 3, 11, "/src/a")});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(pids(projects[0].roots), (Pids{10}));
}

TEST(ProjectGrouperTest, ListeningChildOfAnotherUserIsARoot) {
  std::vector<ProcessSample> processes{listener(10, 1, 1, "/src/a"), listener(11, 2, 10, "/src/b")};
  processes[1].owner = 502;
  const auto projects = ProjectGrouper::groups(processes);
  ASSERT_EQ(projects.size(), 2U);
  EXPECT_EQ(pids(projects[0].processes), (Pids{10}));
  EXPECT_EQ(pids(projects[1].processes), (Pids{11}));
}

TEST(ProjectGrouperTest, ListeningChildThatStartedEarlierIsARoot) {
  EXPECT_EQ(ProjectGrouper::groups({listener(10, 2, 1, "/src/a"), listener(11, 1, 10, "/src/b")}).size(), 2U);
  EXPECT_EQ(ProjectGrouper::groups({listener(10, 2, 1, "/src/a"), listener(11, 2, 10, "/src/b")}).size(), 1U);
}

TEST(ProjectGrouperTest, UnrelatedListenersOfOneFolderShareAProject) {
  const auto projects =
      ProjectGrouper::groups({listener(20, 5, 1, "/src/app"), listener(10, 1, 1, "/src/app"),
                              process(11, 6, 10), process(21, 6, 20)});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(projects[0].folder, "/src/app");
  EXPECT_EQ(pids(projects[0].roots), (Pids{20, 10}));
  EXPECT_EQ(pids(projects[0].processes), (Pids{10, 11, 20, 21}));
}

TEST(ProjectGrouperTest, ListenerWithoutFolderIsNamedAfterItsProcess) {
  const auto projects = ProjectGrouper::groups({listener(812, 5000, 1, std::nullopt)});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(projects[0].id, "process:812:5000");
  EXPECT_EQ(projects[0].folder, std::nullopt);
}

TEST(ProjectGrouperTest, EmptyFolderCountsAsPresent) {
  const auto projects = ProjectGrouper::groups({listener(812, 5000, 1, "")});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(projects[0].id, "");
  EXPECT_EQ(projects[0].folder, "");
}

TEST(ProjectGrouperTest, FirstRootDecidesTheFolderWhereKeysCoincide) {
  const auto projects =
      ProjectGrouper::groups({listener(7, 1, 1, std::nullopt), listener(8, 1, 1, "process:7:1")});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(projects[0].folder, std::nullopt);
  EXPECT_EQ(pids(projects[0].roots), (Pids{7, 8}));
}

TEST(ProjectGrouperTest, ProjectsComeById) {
  const auto projects =
      ProjectGrouper::groups({listener(10, 1, 1, "/src/b"), listener(11, 1, 1, "/src/a"),
                              listener(12, 1, 1, std::nullopt), listener(13, 1, 1, "/src/B")});
  ASSERT_EQ(projects.size(), 4U);
  EXPECT_EQ(projects[0].id, "/src/B");
  EXPECT_EQ(projects[1].id, "/src/a");
  EXPECT_EQ(projects[2].id, "/src/b");
  EXPECT_EQ(projects[3].id, "process:12:1");
}

TEST(ProjectGrouperTest, ListenersOnACycleHideOneAnother) {
  EXPECT_TRUE(ProjectGrouper::groups({listener(10, 1, 11, "/src/a"), listener(11, 1, 10, "/src/b")}).empty());
  const auto projects = ProjectGrouper::groups({listener(10, 1, 11, "/src/a"), process(11, 1, 10)});
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(pids(projects[0].processes), (Pids{10, 11}));
}

TEST(ProjectGrouperTest, RepeatedKeyCanBeInTwoProjects) {
  // The first process 10 does not listen and hangs under 20; its repeat listens and hangs under nothing. The
  // child of pid 10 descends from both roots.
  const auto projects = ProjectGrouper::groups(
      {process(10, 1, 20), listener(20, 1, 1, "/src/a"), listener(10, 1, 99, "/src/b"), process(11, 2, 10)});
  ASSERT_EQ(projects.size(), 2U);
  EXPECT_EQ(pids(projects[0].processes), (Pids{10, 11, 20}));
  EXPECT_EQ(pids(projects[1].processes), (Pids{10, 10, 11}));
}

TEST(ProjectGrouperTest, AgreesWithTheNaiveGroupingOnRandomForests) {
  testing::Chance chance(20240102);
  for (int round = 0; round < testing::rounds(1500); ++round) {
    const auto processes = testing::anyProcesses(chance, 1 + chance.below(24));
    ASSERT_EQ(testing::describe(ProjectGrouper::groups(processes)),
              testing::describe(testing::naiveProjects(processes)))
        << "round " << round;
  }
}

TEST(ProjectGrouperTest, ChainOfTenThousandListenersIsGroupedWithinASecond) {
  auto chain = testing::processChain(10'000);
  for (ProcessSample& link : chain) link.ports = {80};
  std::vector<MonitorProject> projects;
  EXPECT_LT(testing::cpuSeconds([&] { projects = ProjectGrouper::groups(chain); }), 1.0);
  ASSERT_EQ(projects.size(), 1U);
  EXPECT_EQ(projects[0].roots.size(), 1U);
  EXPECT_EQ(projects[0].processes.size(), 10'000U);
}

}  // namespace
}  // namespace monitor
