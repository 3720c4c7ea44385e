// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/InfoPropertyList.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "Tests/Platform/Process/ProcTree.h"

namespace monitor::platform {
namespace {

constexpr const char* kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";

std::string listOf(const std::string& content) {
  return kHead + ("<dict>" + content + "</dict></plist>\n");
}

std::string pair(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

std::string repeated(const std::string& text, std::size_t count) {
  std::string result;
  for (std::size_t index = 0; index < count; ++index) result += text;
  return result;
}

class InfoPropertyListTest : public testing::Test {
 protected:
  ProcTree tree;

  std::optional<BundleInformation> read(const std::string& list) {
    tree.file("Player.app/Contents/Info.plist", list);
    return readBundleInformation(tree.path("Player.app"));
  }
};

TEST_F(InfoPropertyListTest, IdentifierAndNamesAreRead) {
  const auto information =
      read(listOf(pair("CFBundleIdentifier", "org.example.Player") +
                  pair("CFBundleDisplayName", "Pl&#228;yer &amp; more") + pair("CFBundleName", "Player")));
  ASSERT_TRUE(information);
  EXPECT_EQ(information->identifier, "org.example.Player");
  EXPECT_EQ(information->displayName, "Pl\u00e4yer & more");
  EXPECT_EQ(information->name, "Player");
}

TEST_F(InfoPropertyListTest, MissingAndEmptyTextsAreAbsent) {
  const auto information =
      read(listOf(pair("CFBundleIdentifier", "") + "<key>CFBundleName</key><integer>3</integer>"));
  ASSERT_TRUE(information);
  EXPECT_FALSE(information->identifier);
  EXPECT_FALSE(information->displayName);
  EXPECT_FALSE(information->name);
}

TEST_F(InfoPropertyListTest, IdentifierThatCannotServeAsOneIsAbsent) {
  EXPECT_FALSE(read(listOf(pair("CFBundleIdentifier", "a/b")))->identifier);
  EXPECT_FALSE(read(listOf(pair("CFBundleIdentifier", std::string(256, 'a'))))->identifier);
  EXPECT_TRUE(read(listOf(pair("CFBundleIdentifier", std::string(255, 'a'))))->identifier);
  EXPECT_FALSE(read(listOf(pair("CFBundleName", std::string(1'025, 'n'))))->name);
  EXPECT_TRUE(read(listOf(pair("CFBundleName", std::string(1'024, 'n'))))->name);
}

TEST_F(InfoPropertyListTest, ListsInTheResourcesAreReadInOrder) {
  tree.file("Player.app/Resources/Info-b.plist", listOf(pair("CFBundleIdentifier", "b")));
  tree.file("Player.app/Resources/Info-a.plist", listOf(pair("CFBundleIdentifier", "a")));
  tree.file("Player.app/Resources/Other.plist", listOf(pair("CFBundleIdentifier", "other")));
  EXPECT_EQ(readBundleInformation(tree.path("Player.app"))->identifier, "a");
  EXPECT_EQ(read(listOf(pair("CFBundleIdentifier", "contents")))->identifier, "contents");
  tree.file("Player.app/Contents/Info.plist", "{ old = format; }");
  EXPECT_EQ(readBundleInformation(tree.path("Player.app"))->identifier, "a")
      << "the next one that can be read";
}

TEST_F(InfoPropertyListTest, WhatIsNoXmlListIsNothing) {
  EXPECT_FALSE(readBundleInformation(tree.path("Missing.app")));
  EXPECT_FALSE(read(""));
  EXPECT_FALSE(read("bplist00 something"));
  EXPECT_FALSE(read("{ CFBundleIdentifier = \"a\"; }"));
  EXPECT_FALSE(read("<html><body>no</body></html>"));
  EXPECT_FALSE(read(std::string(kHead) + "<array><string>a</string></array></plist>"));
  EXPECT_FALSE(read(std::string(kHead) + "<dict><key>a</key>"));
}

TEST_F(InfoPropertyListTest, ListOfMoreThanAMebibyteIsNothing) {
  const std::string list = listOf(pair("CFBundleIdentifier", "a"));
  EXPECT_TRUE(read(list + std::string((1U << 20U) - list.size(), '\n')));
  EXPECT_FALSE(read(list + std::string((1U << 20U) - list.size() + 1, '\n')));
}

TEST_F(InfoPropertyListTest, PipeInPlaceOfTheListDoesNotHoldUp) {
  tree.file("Player.app/Contents/placeholder", "");
  ASSERT_EQ(::mkfifo(tree.path("Player.app/Contents/Info.plist").c_str(), 0600), 0);
  EXPECT_FALSE(readBundleInformation(tree.path("Player.app")));
}

TEST_F(InfoPropertyListTest, NestingIsBounded) {
  // The list and its dictionary are two levels of their own, the innermost text one more.
  const auto nested = [](std::size_t arrays) {
    return listOf("<key>a</key>" + repeated("<array>", arrays) + "<string>x</string>" +
                  repeated("</array>", arrays));
  };
  EXPECT_TRUE(read(nested(29)));
  EXPECT_FALSE(read(nested(30)));
  EXPECT_FALSE(read(nested(100'000)));
  EXPECT_FALSE(read(std::string(kHead) + repeated("<dict><key>a</key>", 50'000)));
}

TEST_F(InfoPropertyListTest, KeysAndEntitiesAreBounded) {
  EXPECT_TRUE(read(listOf(repeated(pair("a", "b"), 4'096))));
  EXPECT_FALSE(read(listOf(repeated(pair("a", "b"), 4'097))));
  EXPECT_TRUE(read(listOf(pair("a", repeated("&lt;", 4'096)))));
  EXPECT_FALSE(read(listOf(pair("a", repeated("&lt;", 4'097)))));
}

TEST_F(InfoPropertyListTest, DeclaredEntitiesAreRefused) {
  EXPECT_FALSE(isHarmlessPropertyList("<!DOCTYPE plist [ <!ENTITY a \"b\"> ]><plist><dict/></plist>"));
  EXPECT_TRUE(isHarmlessPropertyList("<!DOCTYPE plist><plist><dict/></plist>"));
}

TEST_F(InfoPropertyListTest, CommentsAndTextSectionsDoNotCountAsElements) {
  EXPECT_TRUE(isHarmlessPropertyList("<plist><!-- " + repeated("<a>", 100) + " --><dict/></plist>"));
  EXPECT_TRUE(
      isHarmlessPropertyList("<plist><string><![CDATA[" + repeated("<a>", 100) + "]]></string></plist>"));
  EXPECT_FALSE(isHarmlessPropertyList("<plist>" + repeated("<a>", 100)));
  EXPECT_TRUE(isHarmlessPropertyList("<plist>" + repeated("<a/>", 100)));
  EXPECT_TRUE(isHarmlessPropertyList("<"));
  EXPECT_TRUE(isHarmlessPropertyList("<!--"));
}

}  // namespace
}  // namespace monitor::platform
