// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "MonitorCore/Json/StrictJson.h"
#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/PrivateStack.h"

namespace monitor::demo {
namespace {

// The picture's file, gone with the object.
struct Picture {
  ~Picture() { std::filesystem::remove(file); }
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("vesk-demo-" + std::to_string(::getpid()) + ".png");
};

lab::CommandResult demo(const Picture& picture, const std::vector<std::string>& arguments) {
  lab::SpawnOptions options;
  options.command = {lab::builtProgram("vesk-demo"), "--png", picture.file.string()};
  options.command.insert(options.command.end(), arguments.begin(), arguments.end());
  options.environment = lab::neutralEnvironment();
  return lab::runCommand(options, lab::Milliseconds(60'000));
}

// Sanitizers cost more than the bounds leave; frames are strict all the same.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(NDEBUG)
constexpr const char* kPatience = "10";
#else
constexpr const char* kPatience = "2";
#endif

class DemoTest : public testing::TestWithParam<const char*> {};

TEST_P(DemoTest, PassesWithAllFiguresInJson) {
  const Picture picture;
  const auto result = demo(picture, {"--json", "--route", GetParam(), "--patience", kPatience});
  const json::Document document(result.output);
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_TRUE(document.root().at("passed").boolean()) << result.output;
  EXPECT_EQ(document.root().at("picture").string(), picture.file.string());
  EXPECT_TRUE(std::filesystem::exists(picture.file));
  const auto attempts = document.root().at("attempts");
  const auto last = attempts[attempts.size() - 1];
  EXPECT_NEAR(last.at("ratio").number(), 0.4, 0.5e-6);
  EXPECT_EQ(last.at("addedLatencyFrames").integer<int>(), 0);
  EXPECT_EQ(last.at("rampFrames").integer<int>(), 256);
  EXPECT_EQ(last.at("outOfBounds").size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(BothKindsOfPrograms, DemoTest, testing::Values("native", "pulse"));

TEST(Demo, RefusesWrongUsage) {
  const Picture picture;
  EXPECT_EQ(demo(picture, {"--route", "tape"}).status, 2);
  EXPECT_EQ(demo(picture, {"--quantum", "1"}).status, 2);
}

}  // namespace
}  // namespace monitor::demo
