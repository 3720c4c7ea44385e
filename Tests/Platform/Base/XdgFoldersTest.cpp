// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/XdgFolders.h"

#include <gtest/gtest.h>

namespace monitor::platform {
namespace {

using Text = std::optional<std::string>;

TEST(XdgDataHomeTest, AbsoluteVariableWins) {
  EXPECT_EQ(xdgDataHome("/data/me", "/home/me", "/home/passwd"), Text("/data/me"));
}

TEST(XdgDataHomeTest, RelativeOrEmptyVariableIsIgnored) {
  for (const char* value : {"data", "./data", "~/data", ""}) {
    EXPECT_EQ(xdgDataHome(value, "/home/me", "/home/passwd"), Text("/home/me/.local/share")) << value;
  }
}

TEST(XdgDataHomeTest, WithoutTheVariableItIsBelowHome) {
  EXPECT_EQ(xdgDataHome(std::nullopt, "/home/me", "/home/passwd"), Text("/home/me/.local/share"));
}

TEST(XdgDataHomeTest, WithoutHomeThePasswordDatabaseKnows) {
  EXPECT_EQ(xdgDataHome(std::nullopt, std::nullopt, "/home/passwd"), Text("/home/passwd/.local/share"));
  EXPECT_EQ(xdgDataHome(std::nullopt, "", "/home/passwd"), Text("/home/passwd/.local/share"));
  EXPECT_EQ(xdgDataHome(std::nullopt, "me", "/home/passwd"), Text("/home/passwd/.local/share"));
}

TEST(XdgDataHomeTest, TrailingSlashesGo) {
  EXPECT_EQ(xdgDataHome("/data/me//", std::nullopt, std::nullopt), Text("/data/me"));
  EXPECT_EQ(xdgDataHome(std::nullopt, "/home/me/", std::nullopt), Text("/home/me/.local/share"));
  EXPECT_EQ(xdgDataHome(std::nullopt, "/", std::nullopt), Text("/.local/share"));
}

TEST(XdgDataHomeTest, WithoutAnyOfThemThereIsNone) {
  EXPECT_EQ(xdgDataHome(std::nullopt, std::nullopt, std::nullopt), std::nullopt);
  EXPECT_EQ(xdgDataHome("data", "me", ""), std::nullopt);
}

TEST(XdgDataHomeTest, RunningProcessHasAnAbsoluteOne) {
  const auto folder = xdgDataHomeOfThisProcess();
  ASSERT_TRUE(folder.has_value());
  EXPECT_TRUE(folder->starts_with('/'));
  EXPECT_FALSE(folder->ends_with('/'));
}

TEST(UserHomeTest, IsTheVariableWhenThatIsAbsoluteAndOtherwiseTheDatabasesWord) {
  EXPECT_EQ(userHome("/home/me/", "/home/passwd"), Text("/home/me"));
  EXPECT_EQ(userHome("me", "/home/passwd"), Text("/home/passwd"));
  EXPECT_EQ(userHome(std::nullopt, "/"), Text(""));
  EXPECT_EQ(userHome("", "me"), std::nullopt);
}

}  // namespace
}  // namespace monitor::platform
