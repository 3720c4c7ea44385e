// SPDX-License-Identifier: MIT
// What the user chose for a program's streams, and what the session manager remembers of it, outlives a
// route.
#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "Tests/Integration/Audio/RoutersOnStack.h"

namespace monitor::platform::test {
namespace {

namespace fs = std::filesystem;

constexpr double kGain = 0.4;
constexpr milliseconds kPatience{10'000};

struct ChoicesOnStack : RoutedStack {
  ChoicesOnStack() : RoutedStack(lab::StackOptions{.pulse = false}) {}

  // The program's streams in the order in which they were opened.
  [[nodiscard]] std::vector<std::uint32_t> streams() const {
    std::vector<std::uint32_t> ids;
    const lab::GraphView now = graph.view();
    for (const auto* node : now.nodesOfClass("Stream/Output/Audio")) ids.push_back(node->id);
    return ids;
  }
  [[nodiscard]] std::string target(std::uint32_t stream) const {
    return graph.view().metadataValue(stream, "target.object");
  }
  [[nodiscard]] bool isParked(std::uint32_t stream) const {
    return target(stream).starts_with("vesk-monitor.");
  }
  // What a volume control writes when the user picks an output for a stream. Its serial.
  std::string choose(std::uint32_t stream, const std::string& sink) {
    const std::string serial = graph.view().nodeNamed(sink)->property("object.serial");
    graph.setMetadata(stream, "target.object", "Spa:Id", serial);
    return serial;
  }
  [[nodiscard]] bool playsOn(std::uint32_t stream, const std::string& sink) const {
    const lab::GraphView now = graph.view();
    return now.linkCount(stream, now.nodeNamed(sink)->id) > 0;
  }
};

TEST(UsersChoices, OutputChosenBeforeARouteIsTheStreamsAgainAfterIt) {
  ChoicesOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  const std::uint32_t stream = on.streams().at(0);
  const std::string chosen = on.choose(stream, "lab-sink-a");
  const Listening listening{on};
  ASSERT_TRUE(becomes(listening, 1.0));
  auto route = on.route({&player}, kGain);
  ASSERT_TRUE(becomes(listening, kGain));
  EXPECT_TRUE(on.isParked(stream));

  route.reset();
  EXPECT_TRUE(eventually([&] { return on.target(stream) == chosen; }, kPatience)) << on.target(stream);
  // It is a wish as before, and not just the place where the stream was left.
  on.graph.setDefaultSink("lab-sink-b");
  EXPECT_TRUE(becomes(listening, 1.0));
  EXPECT_TRUE(on.playsOn(stream, "lab-sink-a"));
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

TEST(UsersChoices, OutputChosenDuringARouteIsFollowedAtOnceAndKept) {
  ChoicesOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  const std::uint32_t stream = on.streams().at(0);
  const Listening onA{on, "lab-sink-a"};
  const Listening onB{on, "lab-sink-b"};
  auto route = on.route({&player}, kGain);
  ASSERT_TRUE(becomes(onA, kGain));
  const std::string chosen = on.choose(stream, "lab-sink-b");
  EXPECT_TRUE(becomes(onB, 1.0)) << "a stream on another output is left alone";
  EXPECT_FALSE(on.isParked(stream));

  route.reset();
  EXPECT_TRUE(becomes(onB, 1.0));
  EXPECT_EQ(on.target(stream), chosen);
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

std::string contents(const fs::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// What the session manager keeps on disk.
struct StoredState {
  explicit StoredState(const lab::PrivateStack& stack) : folder(stack.directory() / "state/wireplumber") {}

  // What it will do to streams like the lab's players, line by line: output, volume, mute.
  [[nodiscard]] std::set<std::string> ofPlayers() const {
    std::set<std::string> lines;
    std::istringstream text(contents(folder / "restore-stream"));
    for (std::string line; std::getline(text, line);) {
      if (line.starts_with("Output/Audio:media.role:Music:")) lines.insert(line);
    }
    return lines;
  }
  [[nodiscard]] bool names(const std::string& text) const {
    for (const auto& file : fs::directory_iterator(folder)) {
      if (contents(file.path()).find(text) != std::string::npos) return true;
    }
    return false;
  }
  // When streams were last written.
  [[nodiscard]] fs::file_time_type written() const { return fs::last_write_time(folder / "restore-stream"); }

  fs::path folder;
};

TEST(UsersChoices, SessionManagerStoresNothingOfOursAndKeepsWhatItStored) {
  ChoicesOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  const std::uint32_t stream = on.streams().at(0);
  const StoredState stored(on.stack);
  ASSERT_EQ(on.stack.run({"wpctl", "set-volume", std::to_string(stream), "0.5"}).status, 0);
  on.choose(stream, "lab-sink-a");
  const auto chosen = [&] {
    const auto lines = stored.ofPlayers();
    return lines.contains("Output/Audio:media.role:Music:target=lab-sink-a") && lines.size() > 3;
  };
  if (!eventually([&] { return fs::exists(stored.folder / "restore-stream"); }, kPatience)) {
    GTEST_SKIP() << "this session manager keeps no restore-stream state in " << stored.folder;
  }
  ASSERT_TRUE(eventually(chosen, kPatience)) << contents(stored.folder / "restore-stream");
  const auto before = stored.ofPlayers();

  const auto began = stored.written();
  auto route = on.route({&player}, kGain);
  ASSERT_TRUE(eventually([&] { return on.isParked(stream); }, kPatience));
  // It writes a second after a change.
  ASSERT_TRUE(eventually([&] { return stored.written() != began; }, kPatience));
  EXPECT_FALSE(stored.names("vesk-monitor"));
  const auto ended = stored.written();
  route.reset();
  ASSERT_TRUE(eventually([&] { return stored.written() != ended; }, kPatience));
  EXPECT_EQ(stored.ofPlayers(), before);
  EXPECT_FALSE(stored.names("vesk-monitor"));
}

TEST(UsersChoices, EncodedStreamIsLeftAloneAndRefusesTheProgram) {
  ChoicesOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0", "--pcm-streams", "1"}}};
  ASSERT_TRUE(on.plays({&player}));
  const std::uint32_t pcm = on.streams().at(0);
  const Listening listening{on};
  auto route = on.route({&player}, kGain);
  ASSERT_TRUE(becomes(listening, kGain));
  player.open(false);
  ASSERT_TRUE(eventually([&] { return on.streams().size() == 2; }, kPatience));
  const std::uint32_t encoded = on.streams().at(0) == pcm ? on.streams().at(1) : on.streams().at(0);
  // Opened meanwhile, it changes nothing for the other one.
  EXPECT_TRUE(becomes(listening, kGain));
  EXPECT_TRUE(eventually([&] { return on.target(encoded).empty(); }, kPatience)) << on.target(encoded);
  route.reset();
  EXPECT_TRUE(becomes(listening, 1.0));

  // Beside it, the program cannot be routed at all.
  const auto refused = [&] {
    try {
      (void)on.route({&player}, kGain);
      return AudioStatus{0};
    } catch (const AudioRouteError& error) {
      return error.status();
    }
  };
  EXPECT_EQ(refused(), -EOPNOTSUPP) << on.view.hardware->lastFailure().text;
  EXPECT_THAT(on.view.hardware->lastFailure().text, testing::HasSubstr("encoded"));
  EXPECT_EQ(on.target(pcm), "");
  EXPECT_EQ(on.target(encoded), "");
  EXPECT_TRUE(becomes(listening, 1.0));
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

}  // namespace
}  // namespace monitor::platform::test
