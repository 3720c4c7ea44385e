// SPDX-License-Identifier: MIT
#include "MonitorAudioService/AudioSession.h"

#include <gmock/gmock.h>

#include <limits>

#include "Tests/MonitorAudioService/ServiceWorld.h"

namespace monitor {
namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kInvalidSelection = "Invalid audio app selection.";
constexpr const char* kChanged = "This audio app changed or closed. Refresh the app list.";

class AudioSessionTest : public testing::Test {
 protected:
  AudioSessionTest() {
    world_.run();
    world_.time.run();
  }
  // A selection of the program 812 that is `size` bytes long.
  static Data selectionOfSize(std::size_t size) {
    Data bytes = encodeProcessKeys({keyOf(812)});
    bytes.resize(size, ' ');
    return bytes;
  }

  ServiceWorld world_;
  TestClient client_{world_};
};

TEST_F(AudioSessionTest, AListIsJSONAndNoMessage) {
  world_.play(812, "org.example.player");
  const ListAnswer answer = client_.list();
  EXPECT_EQ(answer.replies, 1);
  EXPECT_EQ(answer.message, std::nullopt);
  EXPECT_EQ(answer.applications,
            (std::vector{AudioApplication{
                "org.example.player", "player812", "org.example.player", {keyOf(812)}, 1.0, true}}));
}

TEST_F(AudioSessionTest, AStandingMessageComesBesideTheList) {
  world_.play(812);
  EXPECT_EQ(client_.setGain(0.4, 812).error, std::nullopt);
  world_.processes.end(812);
  world_.time.advance(1.0);
  const ListAnswer answer = client_.list();
  EXPECT_EQ(answer.message, "Audio routing stopped responding. Normal playback has been restored.");
  EXPECT_TRUE(answer.applications);
}

TEST_F(AudioSessionTest, AListThatFailsIsNothingAndTheText) {
  world_.hardware.failCall(1, -50);
  const ListAnswer answer = client_.list();
  EXPECT_EQ(answer.applications, std::nullopt);
  EXPECT_EQ(
      answer.message,
      "Audio access or routing failed (macOS -50). Normal playback has been restored. Check System Settings "
      "→ Privacy & Security → Screen & System Audio Recording.");
}

TEST_F(AudioSessionTest, AGainThatIsSetRepliesNothing) {
  world_.play(812);
  const GainAnswer answer = client_.setGain(0.4, 812);
  EXPECT_EQ(answer.replies, 1);
  EXPECT_EQ(answer.error, std::nullopt);
  EXPECT_EQ(world_.level(812), 0.4F);
}

TEST_F(AudioSessionTest, AGainThatIsRefusedRepliesTheRoutersText) {
  EXPECT_EQ(client_.setGain(0.4, 812).error, kChanged);
}

TEST_F(AudioSessionTest, TheGainIsHandedOnAsReceived) {
  world_.play(812);
  for (const double gain : {1.5, -0.5, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(client_.setGain(gain, 812).error, kChanged);
  }
  EXPECT_THAT(client_.session()->router()->lastCause().text, HasSubstr("nan"));
}

TEST_F(AudioSessionTest, ASelectionOfTheLargestSizeIsDecoded) {
  world_.play(812);
  EXPECT_EQ(client_.setGain(0.4, selectionOfSize(32'768)).error, std::nullopt);
  EXPECT_EQ(world_.level(812), 0.4F);
}

TEST_F(AudioSessionTest, ALargerSelectionIsRefusedThoughItWouldDecode) {
  world_.play(812);
  world_.hardware.forgetCalls();
  const Data bytes = selectionOfSize(32'769);
  EXPECT_EQ(decodeProcessKeys(bytes), std::vector{keyOf(812)});
  EXPECT_EQ(client_.setGain(0.4, bytes).error, kInvalidSelection);
  EXPECT_EQ(client_.setGain(0.4, Data(1'000'000, '[')).error, kInvalidSelection);
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioSessionTest, AnEmptySelectionIsTheRoutersBusiness) {
  EXPECT_EQ(client_.setGain(0.4, Data("[]")).error, kChanged);
  EXPECT_EQ(client_.setGain(0.4, Data(" [ ] ")).error, kChanged);
}

TEST_F(AudioSessionTest, WhatIsNoListOfProcessKeysIsRefusedWithoutTheRouter) {
  world_.hardware.forgetCalls();
  for (const char* bytes : {"",
                            " ",
                            "null",
                            "{}",
                            "1",
                            "\"text\"",
                            "[",
                            "[]]",
                            "[] []",
                            "[null]",
                            "[1]",
                            "[[]]",
                            "[{}]",
                            R"([{"pid":1}])",
                            R"([{"start":1}])",
                            R"([{"pid":"1","start":2}])",
                            R"([{"pid":1.5,"start":2}])",
                            R"([{"pid":true,"start":2}])",
                            R"([{"pid":1,"start":false}])",
                            R"([{"pid":1,"start":-1}])",
                            R"([{"pid":2147483648,"start":2}])",
                            R"([{"pid":-2147483649,"start":2}])",
                            R"([{"pid":1,"start":18446744073709551616}])",
                            R"([{"pid":null,"start":2}])",
                            R"([{"pid":1,"start":2},3])",
                            R"([{"pid":1,"start":2}],)",
                            "[{\"pid\":1,",
                            "[{\"pid\":1e400,\"start\":2}]",
                            "\xFF\xFE",
                            "[\"\xFF\"]"}) {
    const GainAnswer answer = client_.setGain(0.4, Data(bytes));
    EXPECT_EQ(answer.replies, 1) << bytes;
    EXPECT_EQ(answer.error, kInvalidSelection) << bytes;
  }
  EXPECT_EQ(client_.setGain(0.4, Data("[]\0", 3)).error, kInvalidSelection);
  EXPECT_EQ(client_.setGain(0.4, Data(30'000, '[')).error, kInvalidSelection) << "deeply nested";
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioSessionTest, KeysAtTheEndsOfTheirRangesAreDecoded) {
  EXPECT_EQ(client_.setGain(0.4, Data(R"([{"pid":-2147483648,"start":18446744073709551615}])")).error,
            kChanged);
  EXPECT_EQ(client_.setGain(0.4, Data(R"([{"pid":2147483647,"start":0,"more":[1]}])")).error, kChanged);
}

TEST_F(AudioSessionTest, StopRestoresNormalPlaybackBeforeItReplies) {
  world_.play(812);
  EXPECT_EQ(client_.setGain(0.4, 812).error, std::nullopt);
  bool wasClean = false;
  client_.session()->stop([&] { wasClean = world_.hardware.isClean(); });
  world_.time.run();
  EXPECT_TRUE(wasClean);
}

TEST_F(AudioSessionTest, StopOfNothingNeedsNoOtherThreadWhileTheQueueIsIdle) {
  world_.time.letIdleQueuesRunInPlace();
  const auto session = client_.session();
  bool replied = false;
  session->stop([&] {
    EXPECT_TRUE(session->router()->queue()->isCurrent());
    replied = true;
  });
  EXPECT_TRUE(replied);
}

TEST_F(AudioSessionTest, StopOfSomethingWaitsForTheRoutersQueue) {
  world_.play(812);
  EXPECT_EQ(client_.setGain(0.4, 812).error, std::nullopt);
  world_.time.letIdleQueuesRunInPlace();
  world_.hardware.forgetCalls();
  int replies = 0;
  client_.session()->stop([&] { ++replies; });
  EXPECT_EQ(replies, 0);
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
  world_.time.run();
  EXPECT_EQ(replies, 1);
  EXPECT_EQ(world_.level(812), 1.0F);
}

TEST_F(AudioSessionTest, StopComesAfterTheRequestsBeforeIt) {
  world_.play(812);
  world_.time.letIdleQueuesRunInPlace();
  std::vector<std::string> order;
  client_.session()->setGain(0.4, encodeProcessKeys({keyOf(812)}), [&](const auto&) { order.push_back("set"); });
  client_.session()->stop([&] { order.push_back("stop"); });
  EXPECT_THAT(order, IsEmpty());
  world_.time.run();
  EXPECT_THAT(order, ElementsAre("set", "stop"));
  EXPECT_EQ(world_.level(812), 1.0F);
}

TEST_F(AudioSessionTest, RequestsWaitForTheRoutersQueueAndReplyThere) {
  world_.play(812);
  world_.hardware.forgetCalls();
  const auto session = client_.session();
  const auto queue = session->router()->queue();
  std::vector<std::string> order;
  const auto note = [&](const char* what) {
    EXPECT_TRUE(queue->isCurrent()) << what;
    order.emplace_back(what);
  };
  session->setGain(0.4, encodeProcessKeys({keyOf(812)}), [&](const auto& error) {
    EXPECT_EQ(error, std::nullopt);
    note("set");
  });
  session->applications([&](const auto& data, const auto&) {
    EXPECT_EQ(decodeApplications(*data).front().gain, 0.4);
    note("list");
  });
  session->stop([&] { note("stop"); });
  session->applications([&](const auto& data, const auto&) {
    EXPECT_EQ(decodeApplications(*data).front().gain, 1.0);
    note("list again");
  });
  session->lastCause([&](std::int32_t, const std::string&) { note("cause"); });
  EXPECT_THAT(world_.hardware.calls(), IsEmpty()) << "the caller's thread never touches the router";
  world_.time.run();
  EXPECT_THAT(order, ElementsAre("set", "list", "stop", "list again", "cause"));
}

TEST_F(AudioSessionTest, AnInvalidSelectionIsRefusedOnTheSpot) {
  std::optional<std::string> error;
  client_.session()->setGain(0.4, "{}", [&](const auto& text) { error = text; });
  EXPECT_EQ(error, kInvalidSelection);
}

TEST_F(AudioSessionTest, AnInvalidSelectionIsNoHeartbeat) {
  world_.play(812);
  EXPECT_EQ(client_.setGain(0.4, 812).error, std::nullopt);
  for (int second = 0; second < 9; ++second) {
    EXPECT_EQ(client_.setGain(0.4, Data("{}")).error, kInvalidSelection);
    world_.hardware.runCycles();
    world_.time.advance(1.0);
  }
  EXPECT_TRUE(world_.hardware.isClean());
}

TEST_F(AudioSessionTest, TellsTheLastCauseOfItsOwnClient) {
  TestClient other(world_);
  const auto causeOf = [this](const TestClient& client) {
    AudioFailure cause{1, "not called"};
    client.session()->lastCause([&](std::int32_t code, const std::string& text) { cause = {code, text}; });
    world_.time.run();
    return cause;
  };
  EXPECT_EQ(causeOf(client_), AudioFailure{});
  const AudioObjectID process = world_.play(812);
  world_.hardware.process(process).tapStatus = -13;
  EXPECT_NE(client_.setGain(0.4, 812).error, std::nullopt);
  EXPECT_EQ(causeOf(client_).code, -13);
  EXPECT_THAT(causeOf(client_).text, HasSubstr("The audio system said no."));
  EXPECT_EQ(causeOf(other), AudioFailure{});
}

}  // namespace
}  // namespace monitor
