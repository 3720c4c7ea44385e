// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/DesktopApplicationBundles.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "Tests/Platform/Process/ProcTree.h"

namespace monitor::platform {
namespace {

constexpr const char* kAppSlice = "/user.slice/user-1000.slice/user@1000.service/app.slice/";

class DesktopApplicationBundlesTest : public testing::Test {
 protected:
  ProcTree tree;
  DesktopApplicationBundles bundles{tree.proc(), {tree.path("entries")}, "de_DE.UTF-8"};

  // A process in a unit of the user's applications.
  void start(std::int32_t pid, const std::string& unit, const ProcEntry& entry = {}) {
    tree.process(pid, entry).controlGroup(pid, kAppSlice + unit);
  }

  std::optional<std::string> identifierOf(std::int32_t pid,
                                          const std::string& executable = "/usr/bin/program") {
    const auto bundle = bundles.bundleOfProcess(pid, executable);
    return bundle ? bundle->identifier : std::nullopt;
  }
};

TEST_F(DesktopApplicationBundlesTest, ScopeGivesTheIdAndTheEntryTheNames) {
  start(42, "app-gnome-org.example.Player-2315.scope");
  tree.file("entries/org.example.Player.desktop", "[Desktop Entry]\nName=Player\nName[de]=Abspieler\n");
  const auto bundle = bundles.bundleOfProcess(42, "/usr/bin/player");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->identifier, "org.example.Player");
  EXPECT_EQ(bundle->displayName, "Abspieler");
  EXPECT_EQ(bundle->name, "Player");
  EXPECT_EQ(bundle->path, tree.path("entries/org.example.Player.desktop"));
}

TEST_F(DesktopApplicationBundlesTest, IdWithoutAnEntryHasNoNames) {
  start(42, "app-org.example.Player@6f1d.service");
  const auto bundle = bundles.bundleOfProcess(42, "/usr/bin/player");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->identifier, "org.example.Player");
  EXPECT_FALSE(bundle->displayName);
  EXPECT_FALSE(bundle->name);
  EXPECT_FALSE(bundle->path);
}

TEST_F(DesktopApplicationBundlesTest, EntryDecidesBetweenWhatAUnitsNameMayMean) {
  start(42, "app-google-chrome-77.scope");
  EXPECT_EQ(identifierOf(42), "chrome");
  tree.file("entries/google-chrome.desktop", "[Desktop Entry]\nName=Chrome\n");
  EXPECT_EQ(identifierOf(42), "google-chrome");
}

TEST_F(DesktopApplicationBundlesTest, HelpersInTheSameScopeBelongToTheApplication) {
  start(42, "app-gnome-browser-1.scope");
  start(43, "app-gnome-browser-1.scope/renderer", {.parent = 42});
  EXPECT_EQ(identifierOf(42), "browser");
  EXPECT_EQ(identifierOf(43, "/usr/lib/browser/helper"), "browser");
}

TEST_F(DesktopApplicationBundlesTest, CommandLinesHaveNone) {
  for (const char* unit : {"app-org.gnome.Terminal.slice/vte-spawn-6f1d.scope", "tmux-spawn-6f1d.scope",
                           "session-3.scope", "run-u12.scope", "run-r12.service"}) {
    start(42, unit);
    EXPECT_FALSE(bundles.bundleOfProcess(42, "/usr/bin/mpv")) << unit;
  }
}

TEST_F(DesktopApplicationBundlesTest, ProcessWithAControllingTerminalHasNone) {
  start(42, "app-gnome-terminal-1.scope", {.terminal = 34'816});
  EXPECT_FALSE(bundles.bundleOfProcess(42, "/usr/bin/mpv"));
  start(42, "app-gnome-terminal-1.scope");
  EXPECT_TRUE(bundles.bundleOfProcess(42, "/usr/bin/mpv"));
}

TEST_F(DesktopApplicationBundlesTest, ProcessOutsideOfAllGroupsHasNone) {
  tree.process(42).controlGroup(42, "/");
  EXPECT_FALSE(bundles.bundleOfProcess(42, "/usr/bin/player"));
  tree.process(43);  // no such file at all
  EXPECT_FALSE(bundles.bundleOfProcess(43, "/usr/bin/player"));
  tree.process(44).file(ProcTree::name(44, "cgroup"), "1:name=systemd:/user.slice/app-a-1.scope\n");
  EXPECT_FALSE(bundles.bundleOfProcess(44, "/usr/bin/player"));
}

TEST_F(DesktopApplicationBundlesTest, ServiceThatIsNoApplicationHasNone) {
  start(42, "pipewire.service");
  EXPECT_FALSE(bundles.bundleOfProcess(42, "/usr/bin/pipewire"));
  EXPECT_FALSE(bundles.bundleOfProcess(4711, "/usr/bin/gone"));
}

TEST_F(DesktopApplicationBundlesTest, FlatpakSaysItselfWhatItIs) {
  start(42, "app-flatpak-org.example.Player-12.scope");
  tree.file(ProcTree::name(42, "root/.flatpak-info"),
            "[Instance]\nname=no\n[Application]\nname=org.example.Real\n");
  EXPECT_EQ(identifierOf(42), "org.example.Real");
}

TEST_F(DesktopApplicationBundlesTest, FlatpakWithoutItsFileIsKnownByItsScope) {
  start(42, "app-flatpak-org.example.Player-12.scope");
  EXPECT_EQ(identifierOf(42), "org.example.Player");
}

TEST_F(DesktopApplicationBundlesTest, FlatpakStartedInATerminalHasNone) {
  start(42, "vte-spawn-1.scope");
  tree.file(ProcTree::name(42, "root/.flatpak-info"), "[Application]\nname=org.example.Real\n");
  EXPECT_FALSE(bundles.bundleOfProcess(42, "/app/bin/player"));
}

TEST_F(DesktopApplicationBundlesTest, FlatpakFileThatIsALinkOrTooLongIsNotRead) {
  start(42, "dbus.service");
  tree.file("elsewhere", "[Application]\nname=org.example.Other\n")
      .link(ProcTree::name(42, "root/.flatpak-info"), tree.path("elsewhere"));
  EXPECT_FALSE(identifierOf(42));
  start(43, "dbus.service");
  const std::string information = "[Application]\nname=org.example.Player\n";
  tree.file(ProcTree::name(43, "root/.flatpak-info"), information + std::string((256U << 10U), '#'));
  EXPECT_FALSE(identifierOf(43));
  tree.file(ProcTree::name(43, "root/.flatpak-info"), information);
  EXPECT_EQ(identifierOf(43), "org.example.Player");
}

TEST_F(DesktopApplicationBundlesTest, SnapIsKnownByUnitAndByLabel) {
  tree.process(42).controlGroup(
      42, std::string(kAppSlice) + "snap.firefox.firefox-6f1d0c1a-1111-2222-3333-444455556666.scope");
  tree.file("entries/firefox_firefox.desktop", "[Desktop Entry]\nName=Firefox\n");
  const auto bundle = bundles.bundleOfProcess(42, "/snap/firefox/1/usr/lib/firefox/firefox");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->identifier, "firefox_firefox");
  EXPECT_EQ(bundle->displayName, "Firefox");
  start(43, "dbus.service");
  tree.file(ProcTree::name(43, "attr/current"), "snap.firefox.firefox (enforce)\n");
  EXPECT_EQ(identifierOf(43), "firefox_firefox");
}

TEST_F(DesktopApplicationBundlesTest, FolderOfTheExecutableGoesBeforeTheDesktop) {
  start(42, "app-gnome-other-1.scope");
  tree.file(
      "opt/Player.app/Contents/Info.plist",
      "<?xml version=\"1.0\"?><plist><dict><key>CFBundleIdentifier</key><string>org.example.Player</string>"
      "<key>CFBundleDisplayName</key><string>The Player</string></dict></plist>");
  const auto bundle = bundles.bundleOfProcess(42, tree.path("opt/Player.app/bin/Inner.app/player"));
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->identifier, "org.example.Player");
  EXPECT_EQ(bundle->displayName, "The Player");
  EXPECT_FALSE(bundle->name);
  EXPECT_EQ(bundle->path, tree.path("opt/Player.app"));
}

TEST_F(DesktopApplicationBundlesTest, FolderThatNamesNoIdentifierTakesTheDesktops) {
  start(42, "app-gnome-player-1.scope");
  tree.file("opt/Player.app/Contents/Info.plist",
            "<?xml version=\"1.0\"?><plist><dict><key>CFBundleIdentifier</key><string></string>"
            "<key>CFBundleName</key><string>Player</string></dict></plist>");
  const auto bundle = bundles.bundleOfProcess(42, tree.path("opt/Player.app/player"));
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->identifier, "player");
  EXPECT_EQ(bundle->name, "Player");
}

TEST_F(DesktopApplicationBundlesTest, FolderThatOnlyLooksLikeOneIsTheDesktopsMatter) {
  start(42, "app-gnome-player-1.scope");
  EXPECT_EQ(identifierOf(42, "/home/someone/my.app/server"), "player");
  start(43, "session-1.scope");
  EXPECT_FALSE(bundles.bundleOfProcess(43, "/home/someone/my.app/server"));
}

TEST_F(DesktopApplicationBundlesTest, FolderHoldsAlsoForCommandLines) {
  start(42, "vte-spawn-1.scope", {.terminal = 34'816});
  tree.file(
      "opt/Player.app/Contents/Info.plist",
      "<?xml version=\"1.0\"?><plist><dict><key>CFBundleIdentifier</key><string>org.example.Player</string>"
      "</dict></plist>");
  EXPECT_EQ(identifierOf(42, tree.path("opt/Player.app/player")), "org.example.Player");
}

TEST_F(DesktopApplicationBundlesTest, KeyTellsScopesOfOneInterpreterApart) {
  start(42, "app-gnome-first-1.scope");
  start(43, "app-gnome-second-2.scope");
  start(44, "app-gnome-second-2.scope");
  EXPECT_NE(bundles.identityKey(42, "/usr/bin/python3"), bundles.identityKey(43, "/usr/bin/python3"));
  EXPECT_EQ(bundles.identityKey(43, "/usr/bin/python3"), bundles.identityKey(44, "/usr/bin/python3"));
  EXPECT_NE(bundles.identityKey(43, "/usr/bin/python3"), bundles.identityKey(43, "/usr/bin/perl"));
}

TEST_F(DesktopApplicationBundlesTest, KeyChangesWhenAProcessMovesIntoItsScope) {
  start(42, "session-1.scope");
  const std::string before = bundles.identityKey(42, "/usr/bin/player");
  EXPECT_FALSE(identifierOf(42));
  start(42, "app-gnome-player-1.scope");
  EXPECT_NE(bundles.identityKey(42, "/usr/bin/player"), before);
  EXPECT_EQ(identifierOf(42), "player");
}

TEST_F(DesktopApplicationBundlesTest, KeyTellsWhetherThereIsATerminal) {
  start(42, "app-gnome-terminal-1.scope");
  start(43, "app-gnome-terminal-1.scope", {.terminal = 34'816});
  EXPECT_NE(bundles.identityKey(42, "/usr/bin/mpv"), bundles.identityKey(43, "/usr/bin/mpv"));
}

TEST(FlatpakInformationTest, IdIsTheNameOfTheApplication) {
  EXPECT_EQ(flatpakIdentifierIn("[Application]\nname=org.example.App\nruntime=x\n"), "org.example.App");
  EXPECT_EQ(flatpakIdentifierIn("[Instance]\nname=a\n[Application]\nname=b"), "b");
  EXPECT_FALSE(flatpakIdentifierIn("[Runtime]\nname=org.example.Platform\n"));
  EXPECT_FALSE(flatpakIdentifierIn("[Application]\nname=\n"));
  EXPECT_FALSE(flatpakIdentifierIn("name=a\n"));
  EXPECT_FALSE(flatpakIdentifierIn(""));
}

}  // namespace
}  // namespace monitor::platform
