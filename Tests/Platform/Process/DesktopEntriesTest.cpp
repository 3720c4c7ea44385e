// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/DesktopEntries.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Tests/Platform/Process/ProcTree.h"

namespace monitor::platform {
namespace {

std::string entryNamed(const std::string& name) {
  return "[Desktop Entry]\nName=" + name + '\n';
}

class DesktopEntriesTest : public testing::Test {
 protected:
  ProcTree tree;
  DesktopEntries entries{{tree.path("user"), tree.path("system")}, "de_DE.UTF-8"};

  std::optional<std::string> nameOf(const std::string& id) {
    const auto found = entries.find(id);
    return found ? found->entry.localizedName : std::nullopt;
  }
};

TEST_F(DesktopEntriesTest, EntryIsTheFileOfThatName) {
  tree.file("system/org.example.App.desktop", entryNamed("App"));
  const auto found = entries.find("org.example.App");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->entry.name, "App");
  EXPECT_EQ(found->path, tree.path("system/org.example.App.desktop"));
  EXPECT_FALSE(entries.find("org.example.Other"));
}

TEST_F(DesktopEntriesTest, FirstFolderWins) {
  tree.file("system/app.desktop", entryNamed("System's")).file("user/app.desktop", entryNamed("User's"));
  EXPECT_EQ(nameOf("app"), "User's");
}

TEST_F(DesktopEntriesTest, DashMayStandForAFolder) {
  tree.file("system/kde/kate.desktop", entryNamed("Kate"));
  EXPECT_EQ(nameOf("kde-kate"), "Kate");
  EXPECT_FALSE(nameOf("kate"));
}

TEST_F(DesktopEntriesTest, IdNeverLeadsOutOfTheFolder) {
  tree.file("outside.desktop", entryNamed("Outside")).file("system/here.desktop", entryNamed("Here"));
  EXPECT_FALSE(nameOf("..-outside"));
  EXPECT_FALSE(nameOf(".-here"));
  EXPECT_FALSE(nameOf("-here"));
  EXPECT_FALSE(nameOf("here-"));
}

TEST_F(DesktopEntriesTest, HiddenEntryStandsForNone) {
  tree.file("system/app.desktop", entryNamed("App"))
      .file("user/app.desktop", "[Desktop Entry]\nHidden=true\n");
  EXPECT_FALSE(nameOf("app"));
}

TEST_F(DesktopEntriesTest, FileThatIsNoEntryIsPassedOver) {
  tree.file("user/app.desktop", "something else").file("system/app.desktop", entryNamed("App"));
  EXPECT_EQ(nameOf("app"), "App");
}

TEST_F(DesktopEntriesTest, EntryOfMoreThanAMebibyteIsPassedOver) {
  const std::string head = entryNamed("App") + '#';
  tree.file("system/fits.desktop", head + std::string((1U << 20U) - head.size(), 'x'));
  tree.file("system/large.desktop", head + std::string((1U << 20U) - head.size() + 1, 'x'));
  EXPECT_EQ(nameOf("fits"), "App");
  EXPECT_FALSE(nameOf("large"));
}

TEST_F(DesktopEntriesTest, EntryIsReadAgainWhenItsFileChanges) {
  tree.file("system/app.desktop", entryNamed("Old"));
  EXPECT_EQ(nameOf("app"), "Old");
  tree.file("system/app.desktop", entryNamed("New one"));
  EXPECT_EQ(nameOf("app"), "New one");
}

TEST_F(DesktopEntriesTest, EntryIsFoundAfterItWasInstalledAndGoneAfterItWasRemoved) {
  EXPECT_FALSE(nameOf("app"));
  tree.file("user/app.desktop", entryNamed("App"));
  EXPECT_EQ(nameOf("app"), "App");
  std::filesystem::remove(tree.path("user/app.desktop"));
  EXPECT_FALSE(nameOf("app"));
}

TEST_F(DesktopEntriesTest, BetterFolderIsNoticedWhenItGetsTheEntry) {
  tree.file("system/app.desktop", entryNamed("System's")).file("user/other.desktop", entryNamed("Other"));
  EXPECT_EQ(nameOf("app"), "System's");
  tree.file("user/app.desktop", entryNamed("User's"));
  // What the file system does on its own, told apart from the change before by more than its clock's step.
  std::filesystem::last_write_time(tree.path("user"),
                                   std::filesystem::file_time_type::clock::now() + std::chrono::seconds(2));
  EXPECT_EQ(nameOf("app"), "User's");
}

TEST_F(DesktopEntriesTest, ManyThreadsMayAsk) {
  tree.file("system/app.desktop", "[Desktop Entry]\nName=App\nName[de]=Programm\n");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(nameOf("app"), "Programm");
        EXPECT_FALSE(nameOf("none" + std::to_string(round)));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// Sets variables for as long as it lives.
class Environment {
 public:
  Environment& set(const char* name, const char* value) {
    const char* before = ::getenv(name);
    before_.emplace_back(name, before != nullptr ? std::optional<std::string>(before) : std::nullopt);
    ::setenv(name, value, 1);
    return *this;
  }
  ~Environment() {
    for (const auto& [name, value] : before_) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
  }

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> before_;
};

TEST(DesktopEntryFoldersTest, UsersComeBeforeTheSystemsAndNoneTwice) {
  Environment environment;
  environment.set("XDG_DATA_HOME", "/home/someone/data/");
  environment.set("XDG_DATA_DIRS",
                  "/opt/share/:relative:/usr/share:/opt/share:/var/lib/flatpak/exports/share");
  EXPECT_EQ(desktopEntryFolders(),
            (std::vector<std::string>{
                "/home/someone/data/applications", "/home/someone/data/flatpak/exports/share/applications",
                "/opt/share/applications", "/usr/share/applications",
                "/var/lib/flatpak/exports/share/applications", "/var/lib/snapd/desktop/applications"}));
}

TEST(DesktopEntryFoldersTest, EmptyListMeansTheUsualPlaces) {
  Environment environment;
  environment.set("XDG_DATA_HOME", "/d").set("XDG_DATA_DIRS", "");
  const std::vector<std::string> folders = desktopEntryFolders();
  ASSERT_EQ(folders.size(), 6U);
  EXPECT_EQ(folders[2], "/usr/local/share/applications");
  EXPECT_EQ(folders[3], "/usr/share/applications");
}

TEST(MessagesLocaleTest, FirstVariableThatIsSetDecides) {
  Environment environment;
  environment.set("LC_ALL", "").set("LC_MESSAGES", "fr_FR").set("LANG", "de_DE");
  EXPECT_EQ(messagesLocale(), "fr_FR");
  environment.set("LC_ALL", "it_IT");
  EXPECT_EQ(messagesLocale(), "it_IT");
}

}  // namespace
}  // namespace monitor::platform
