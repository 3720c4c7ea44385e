// SPDX-License-Identifier: MIT
// What the macOS packaging writes down a second time: names that the code has too, and must find there.
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "MonitorCore/MonitorServiceIdentity.h"

namespace monitor {
namespace {

using Node = std::unique_ptr<void, void (*)(void*)>;

std::string fileText(const std::string& place) {
  std::ifstream stream(std::filesystem::path(VESK_FIXTURES) / ".." / ".." / place);
  EXPECT_TRUE(stream) << place;
  return {std::istreambuf_iterator<char>(stream), {}};
}

Node propertyList(const std::string& name) {
  const std::string text = fileText("packaging/darwin/" + name);
  plist_t root = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &root);
  EXPECT_NE(root, nullptr) << name;
  return {root, plist_free};
}

// What stands under the keys, one dictionary inside the other; null where nothing does.
plist_t find(plist_t node, std::initializer_list<const char*> path) {
  for (const char* key : path) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_DICT) return nullptr;
    node = plist_dict_get_item(node, key);
  }
  return node;
}

std::string textAt(plist_t node, std::initializer_list<const char*> path) {
  const plist_t found = find(node, path);
  if (found == nullptr || plist_get_node_type(found) != PLIST_STRING) return "(no text)";
  char* text = nullptr;
  plist_get_string_val(found, &text);
  const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
  return text;
}

bool isTrue(plist_t node, std::initializer_list<const char*> path) {
  const plist_t found = find(node, path);
  if (found == nullptr || plist_get_node_type(found) != PLIST_BOOLEAN) return false;
  std::uint8_t value = 0;
  plist_get_bool_val(found, &value);
  return value != 0;
}

TEST(DarwinPropertyListsTest, TheHelpersDaemonHasTheNameThatClientsAskFor) {
  const Node list = propertyList(std::string(MonitorServiceIdentity::helperPlist));
  const std::string name(MonitorServiceIdentity::helper);
  EXPECT_EQ(textAt(list.get(), {"Label"}), name);
  EXPECT_TRUE(isTrue(list.get(), {"MachServices", name.c_str()}));
  EXPECT_EQ(textAt(list.get(), {"BundleProgram"}), "Contents/MacOS/" + name);
}

TEST(DarwinPropertyListsTest, TheAudioServicesBundleIsTheServiceThatClientsAskFor) {
  const Node list = propertyList("MonitorAudioService-Info.plist.in");
  EXPECT_EQ(textAt(list.get(), {"CFBundleIdentifier"}), MonitorServiceIdentity::audio);
  EXPECT_EQ(textAt(list.get(), {"CFBundleExecutable"}), MonitorServiceIdentity::audio);
  EXPECT_EQ(textAt(list.get(), {"CFBundlePackageType"}), "XPC!");
  EXPECT_EQ(textAt(list.get(), {"LSMinimumSystemVersion"}), "14.0");
  // One instance for each client application and user session.
  EXPECT_EQ(textAt(list.get(), {"XPCService", "ServiceType"}), "Application");
  EXPECT_NE(textAt(list.get(), {"NSAudioCaptureUsageDescription"}), "(no text)");
}

TEST(DarwinPropertyListsTest, TheEntitlementsAreOfAReleaseWithAudioInput) {
  const Node list = propertyList("MonitorAudioService.entitlements");
  EXPECT_TRUE(isTrue(list.get(), {"com.apple.security.device.audio-input"}));
  EXPECT_EQ(find(list.get(), {"com.apple.security.get-task-allow"}), nullptr);
}

TEST(DarwinPropertyListsTest, TheProgramsAreBuiltUnderTheirNames) {
  const std::string build = fileText("Platform/Darwin/CMakeLists.txt");
  for (const std::string_view name : {MonitorServiceIdentity::audio, MonitorServiceIdentity::helper}) {
    EXPECT_NE(build.find("OUTPUT_NAME " + std::string(name)), std::string::npos) << name;
  }
}

TEST(DarwinPropertyListsTest, TheFormulaAsksForOptionsThatThereAre) {
  const std::string formula = fileText("packaging/darwin/vesk-monitor.rb");
  const std::string build = fileText("CMakeLists.txt");
  std::size_t options = 0;
  for (std::size_t at = formula.find("-DVESK_"); at != std::string::npos;
       at = formula.find("-DVESK_", at + 1)) {
    const std::string option = formula.substr(at + 2, formula.find('=', at) - at - 2);
    EXPECT_NE(build.find("option(" + option + ' '), std::string::npos) << option;
    ++options;
  }
  EXPECT_GT(options, 0U);
}

}  // namespace
}  // namespace monitor
