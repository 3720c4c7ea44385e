// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/ProcessActivity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {
namespace {

class ProcessActivityTest : public ::testing::Test {
 protected:
  ProcessActivityTest() { link("self/ns/net", "net:[1]"); }

  void process(int pid, std::uint64_t user, std::uint64_t system, std::uint64_t start,
               const std::string& name = "tool", const char* state = "S") {
    const std::string folder = "proc/" + std::to_string(pid);
    tree.file(folder + "/stat", std::to_string(pid) + " (" + name + ") " + state + " 1 1 1 0 -1 0 0 0 0 0 " +
                                    std::to_string(user) + ' ' + std::to_string(system) + " 0 0 20 0 1 0 " +
                                    std::to_string(start) + " 0 0 0\n");
    tree.file(folder + "/comm", name + "\n").folder(folder + "/fd");
    link(std::to_string(pid) + "/ns/net", "net:[1]");
  }
  void link(const std::string& path, const std::string& target) {
    const auto whole = tree.root() / "proc" / path;
    std::filesystem::create_directories(whole.parent_path());
    std::filesystem::remove(whole);
    std::filesystem::create_symlink(target, whole);
  }
  void descriptor(int pid, int number, const std::string& target) {
    link(std::to_string(pid) + "/fd/" + std::to_string(number), target);
  }
  void drmDescriptor(int pid, int number, int client) {
    descriptor(pid, number, "/dev/dri/renderD128");
    tree.file(
        "proc/" + std::to_string(pid) + "/fdinfo/" + std::to_string(number),
        "drm-driver:\ti915\ndrm-client-id:\t" + std::to_string(client) + "\ndrm-engine-render:\t5 ns\n");
  }
  [[nodiscard]] std::vector<ProcessActivity> read(const ActivityLimits& limits = {}) const {
    return readProcessActivity((tree.root() / "proc").string(), limits);
  }

  HostTree tree;
};

TEST_F(ProcessActivityTest, ProcessesComeByPid) {
  process(100, 3, 4, 77);
  process(9, 1, 1, 5);
  tree.folder("proc/sys").file("proc/cpuinfo", "").folder("proc/12x");
  const auto list = read();
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].pid, 9);
  EXPECT_EQ(list[1].pid, 100);
  EXPECT_EQ(list[1].cpuTicks, 7U);
  EXPECT_EQ(list[1].startTicks, 77U);
  EXPECT_TRUE(list[1].socketsKnown);
}

TEST_F(ProcessActivityTest, SocketsAndClientsAreFoundByTheirDescriptors) {
  process(9, 1, 1, 5);
  descriptor(9, 0, "/dev/null");
  descriptor(9, 3, "socket:[4711]");
  descriptor(9, 4, "socket:[-1]");
  descriptor(9, 5, "pipe:[9]");
  drmDescriptor(9, 6, 33);
  drmDescriptor(9, 7, 33);
  const auto list = read();
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].sockets, std::vector<std::uint64_t>{4711});
  ASSERT_EQ(list[0].drmClients.size(), 1U);
  EXPECT_EQ(list[0].drmClients.begin()->first.id, 33U);
}

TEST_F(ProcessActivityTest, EntryThatOnlyWaitsForItsParentIsLeftOut) {
  process(9, 1, 1, 5, "gone", "Z");
  EXPECT_TRUE(read().empty());
}

TEST_F(ProcessActivityTest, ProcessThatEndsMeanwhileIsLeftOut) {
  tree.folder("proc/9/fd");  // the folder is still there, its files are not
  EXPECT_TRUE(read().empty());
}

TEST_F(ProcessActivityTest, SocketsOfAnotherNetworkNamespaceAreUnknown) {
  process(9, 1, 1, 5);
  link("9/ns/net", "net:[2]");
  EXPECT_FALSE(read().at(0).socketsKnown);
}

TEST_F(ProcessActivityTest, WithoutNamespacesSocketsAreUnknown) {
  process(9, 1, 1, 5);
  tree.remove("proc/9/ns");
  tree.remove("proc/self");
  EXPECT_FALSE(read().at(0).socketsKnown);
}

TEST_F(ProcessActivityTest, RefusedDescriptorsAreUnknown) {
  process(9, 1, 1, 5);
  tree.remove("proc/9/fd");
  EXPECT_FALSE(read().at(0).socketsKnown);
}

TEST_F(ProcessActivityTest, ProcessWithTooManyDescriptorsIsKnownByItsTimeAlone) {
  process(9, 1, 1, 5);
  process(10, 1, 1, 5);
  for (int number = 0; number < 5; ++number) drmDescriptor(9, number, number);
  descriptor(10, 3, "socket:[1]");
  const auto list = read({.descriptorsOfAProcess = 4, .descriptors = 100});
  ASSERT_EQ(list.size(), 2U);
  EXPECT_FALSE(list[0].socketsKnown);
  EXPECT_TRUE(list[0].drmClients.empty());
  EXPECT_EQ(list[0].cpuTicks, 2U);
  EXPECT_TRUE(list[1].socketsKnown);
  EXPECT_TRUE(read({.descriptorsOfAProcess = 5, .descriptors = 100})[0].socketsKnown);
}

TEST_F(ProcessActivityTest, DescriptorsOfTheWholeMachineAreBounded) {
  process(9, 1, 1, 5);
  process(10, 1, 1, 5);
  for (int number = 0; number < 5; ++number) descriptor(9, number, "socket:[1]");
  descriptor(10, 3, "socket:[1]");
  const auto all = read({.descriptorsOfAProcess = 10, .descriptors = 6});
  EXPECT_TRUE(all[0].socketsKnown && all[1].socketsKnown);
  const auto cut = read({.descriptorsOfAProcess = 10, .descriptors = 5});
  ASSERT_EQ(cut.size(), 2U);
  EXPECT_TRUE(cut[0].socketsKnown);
  EXPECT_FALSE(cut[1].socketsKnown);
}

TEST_F(ProcessActivityTest, NameIsReducedToWhatEveryReaderPrints) {
  process(9, 1, 1, 5);
  tree.file("proc/9/comm", "a\x1b[31m\n\xff<b>&\n");
  EXPECT_EQ(read().at(0).name,
            "a?[31m?"
            "?<b>&");
}

TEST_F(ProcessActivityTest, NameCannotPretendToBeTheRestOfTheLine) {
  process(9, 7, 1, 5, "x) S 1 1 1 0 -1 0 0 0 0 0 999 999 0 0 20 0 1 0 99 (y");
  EXPECT_EQ(read().at(0).cpuTicks, 8U);
  EXPECT_EQ(read().at(0).startTicks, 5U);
}

TEST_F(ProcessActivityTest, HostileFilesAreNoProcesses) {
  process(9, 1, 1, 5);
  for (const std::string& text :
       {std::string(), std::string("9 (x"), std::string(100'000, '('), std::string("\0\0\0", 3),
        std::string("9 (x) S 1 1 1 0 -1 0 0 0 0 0 -4 1 0 0 20 0 1 0 5 0 0 0")}) {
    tree.file("proc/9/stat", text);
    EXPECT_TRUE(read().empty()) << text.substr(0, 30);
  }
}

TEST_F(ProcessActivityTest, PipeInPlaceOfADescriptionDoesNotHoldUp) {
  process(9, 1, 1, 5);
  descriptor(9, 6, "/dev/dri/card0");
  tree.folder("proc/9/fdinfo");
  ASSERT_EQ(::mkfifo((tree.root() / "proc/9/fdinfo/6").c_str(), 0600), 0);
  EXPECT_TRUE(read().at(0).drmClients.empty());
}

TEST_F(ProcessActivityTest, NoProcNoProcess) {
  EXPECT_TRUE(readProcessActivity("/nonexistent").empty());
}

// Whatever else runs on the machine leaves room for processes with few descriptors.
constexpr ActivityLimits kModest{.descriptorsOfAProcess = 200, .descriptors = 10'000'000};

TEST(LiveProcessActivityTest, ThisProcessIsAmongTheLiveOnes) {
  const auto list = readProcessActivity("/proc", kModest);
  const auto own =
      std::find_if(list.begin(), list.end(), [](const auto& process) { return process.pid == ::getpid(); });
  ASSERT_NE(own, list.end());
  EXPECT_TRUE(own->socketsKnown);
  EXPECT_GT(own->startTicks, 0U);
  EXPECT_FALSE(own->name.empty());
}

// This process and a child with a few hundred descriptors more.
TEST(LiveProcessActivityTest, ProcessWithManyDescriptorsIsNotEvenListed) {
  struct stat status {};
  ASSERT_EQ(::stat("/proc/self/fd", &status), 0);
  if (status.st_size == 0) GTEST_SKIP() << "this kernel does not tell the number of descriptors";
  std::array<int, 2> ready{};
  std::array<int, 2> end{};
  ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(end.data(), O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    for (int count = 0; count < 300; ++count) (void)!::dup(ready[0]);
    (void)!::write(ready[1], "x", 1);
    ::close(end[1]);
    char byte = 0;
    (void)!::read(end[0], &byte, 1);
    ::_exit(0);
  }
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  const auto list = readProcessActivity("/proc", kModest);
  const auto known = [&](pid_t pid) {
    return std::any_of(list.begin(), list.end(),
                       [&](const auto& process) { return process.pid == pid && process.socketsKnown; });
  };
  EXPECT_TRUE(known(::getpid()));
  EXPECT_FALSE(known(child));
  for (const int descriptor : {ready[0], ready[1], end[0], end[1]}) ::close(descriptor);
  ::waitpid(child, nullptr, 0);
}

}  // namespace
}  // namespace monitor::platform
