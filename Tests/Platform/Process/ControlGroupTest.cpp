// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ControlGroup.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace monitor::platform {
namespace {

using Ids = std::vector<std::string>;

TEST(ControlGroupPathTest, IsTheUnifiedHierarchys) {
  EXPECT_EQ(controlGroupPath("0::/user.slice/a.scope\n"), "/user.slice/a.scope");
  EXPECT_EQ(controlGroupPath("12:pids:/x\n1:name=systemd:/y\n0::/z\n"), "/z");
  EXPECT_EQ(controlGroupPath("0::/"), "/");
  EXPECT_FALSE(controlGroupPath("1:name=systemd:/y\n"));
  EXPECT_FALSE(controlGroupPath(""));
}

TEST(UnitTest, IsTheInnermostScopeOrService) {
  EXPECT_EQ(unitOf("/user.slice/user-1000.slice/user@1000.service/app.slice/app-gnome-firefox-12.scope"),
            "app-gnome-firefox-12.scope");
  EXPECT_EQ(
      unitOf("/user.slice/user@1000.service/app.slice/app-org.gnome.Terminal.slice/vte-spawn-1-2.scope"),
      "vte-spawn-1-2.scope");
  EXPECT_EQ(unitOf("/user.slice/user@1000.service/app.slice/app-a@b.service/inner/groups"),
            "app-a@b.service");
  EXPECT_EQ(unitOf("/system.slice"), "");
  EXPECT_EQ(unitOf("/"), "");
  EXPECT_EQ(unitOf(""), "");
  EXPECT_EQ(unitOf("a.scope"), "a.scope");
}

TEST(UnitTest, TerminalsAndSessionsAreCommandLines) {
  for (const char* unit : {"vte-spawn-6f1d.scope", "tmux-spawn-1.scope", "session-3.scope", "run-u12.scope",
                           "run-r6f1d.service"}) {
    EXPECT_TRUE(isCommandLineUnit(unit)) << unit;
  }
  for (const char* unit : {"app-vte-spawn-1.scope", "app-session-1.scope", "runner.service", ""}) {
    EXPECT_FALSE(isCommandLineUnit(unit)) << unit;
  }
}

TEST(ApplicationIdsTest, ScopeIsLauncherIdAndRandomPart) {
  EXPECT_EQ(applicationIdsOf("app-gnome-firefox-2315.scope").front(), "firefox");
  EXPECT_EQ(applicationIdsOf("app-org.kde.konsole-6f1d.scope"), Ids{"org.kde.konsole"});
  EXPECT_EQ(applicationIdsOf("app-flatpak-org.mozilla.firefox-12.scope").front(), "org.mozilla.firefox");
}

TEST(ApplicationIdsTest, ServiceIsLauncherIdAndInstance) {
  EXPECT_EQ(applicationIdsOf("app-org.kde.kate@6f1d.service"), Ids{"org.kde.kate"});
  EXPECT_EQ(applicationIdsOf("app-gnome-org.gnome.Evolution\\x2dalarm\\x2dnotify@autostart.service").front(),
            "org.gnome.Evolution-alarm-notify");
  EXPECT_EQ(applicationIdsOf("app-firefox.service"), Ids{"firefox"});
}

TEST(ApplicationIdsTest, EscapesAreUndone) {
  EXPECT_EQ(applicationIdsOf("app-gnome-google\\x2dchrome-77.scope").front(), "google-chrome");
  EXPECT_EQ(applicationIdsOf("app-a\\x20b-1.scope"), Ids{"a b"});
  EXPECT_EQ(applicationIdsOf("app-a\\x2-1.scope"), Ids{"a\\x2"}) << "no escape without two digits";
  EXPECT_EQ(applicationIdsOf("app-a\\x2G-1.scope"), Ids{"a\\x2G"});
}

TEST(ApplicationIdsTest, DashesThatALauncherLeftInGiveFurtherChoices) {
  EXPECT_EQ(applicationIdsOf("app-google-chrome-77.scope"), (Ids{"chrome", "google-chrome"}));
  EXPECT_EQ(applicationIdsOf("app-gnome-visual-studio-code-77.scope"),
            (Ids{"visual-studio-code", "gnome-visual-studio-code", "code"}));
}

TEST(ApplicationIdsTest, SuffixOfTheEntryIsNoPartOfTheId) {
  EXPECT_EQ(applicationIdsOf("app-firefox.desktop-9.scope"), Ids{"firefox"});
}

TEST(ApplicationIdsTest, ScopeWithoutARandomPartIsTheIdItself) {
  EXPECT_EQ(applicationIdsOf("app-firefox.scope"), Ids{"firefox"});
}

TEST(ApplicationIdsTest, OtherUnitsAndUnusableNamesHaveNone) {
  for (const char* unit :
       {"firefox.scope", "app-.scope", "app--.scope", "app-@x.service", "app-a-1.slice", "app-",
        "app-\\x00-1.scope", "app-\\xff-1.scope", "app-\\x0a-1.scope", "app-\\x2f-1.scope", ""}) {
    EXPECT_TRUE(applicationIdsOf(unit).empty()) << unit;
  }
}

TEST(SnapTest, UnitNamesSnapAndApplication) {
  EXPECT_EQ(snapApplicationOfUnit("snap.firefox.firefox-6f1d0c1a-1111-2222-3333-444455556666.scope"),
            "firefox_firefox");
  EXPECT_EQ(
      snapApplicationOfUnit("snap.snap-store.ubuntu-software-6f1d0c1a-1111-2222-3333-444455556666.scope"),
      "snap-store_ubuntu-software");
  EXPECT_EQ(snapApplicationOfUnit("snap.vlc.vlc.6f1d0c1a-1111-2222-3333-444455556666.scope"), "vlc_vlc");
  EXPECT_EQ(snapApplicationOfUnit("snap.lxd.daemon.service"), "lxd_daemon");
}

TEST(SnapTest, OtherUnitsAreNoSnaps) {
  for (const char* unit : {"snapd.service", "snap.service", "snap.firefox.scope", "snap..x.scope",
                           "snap.a..scope", "app-snap.a.b-1.scope", "snap.a.b.slice", ""}) {
    EXPECT_FALSE(snapApplicationOfUnit(unit)) << unit;
  }
}

TEST(SnapTest, LabelNamesSnapAndApplication) {
  EXPECT_EQ(snapApplicationOfLabel("snap.firefox.firefox (enforce)\n"), "firefox_firefox");
  EXPECT_EQ(snapApplicationOfLabel("snap.firefox.geckodriver"), "firefox_geckodriver");
  EXPECT_FALSE(snapApplicationOfLabel("unconfined\n"));
  EXPECT_FALSE(snapApplicationOfLabel("snap.firefox (enforce)"));
  EXPECT_FALSE(snapApplicationOfLabel(""));
}

TEST(IdentifierTest, IsShortWellFormedTextWithoutSlashes) {
  EXPECT_TRUE(isUsableIdentifier("org.example.App"));
  EXPECT_TRUE(isUsableIdentifier("größe"));
  EXPECT_TRUE(isUsableIdentifier(std::string(255, 'a')));
  EXPECT_FALSE(isUsableIdentifier(std::string(256, 'a')));
  EXPECT_FALSE(isUsableIdentifier(""));
  EXPECT_FALSE(isUsableIdentifier("a/b"));
  EXPECT_FALSE(isUsableIdentifier("a\nb"));
  EXPECT_FALSE(isUsableIdentifier("a\x7f"));
  EXPECT_FALSE(isUsableIdentifier("a\xff"));
  EXPECT_FALSE(isUsableIdentifier(std::string("a\0b", 3)));
}

}  // namespace
}  // namespace monitor::platform
