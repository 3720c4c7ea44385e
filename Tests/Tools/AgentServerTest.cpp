// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/AgentServer.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Fakes/ScriptedAudioService.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tests/Tools/PrivateBus.h"
#include "Tools/vesk/Agent/AgentProtocol.h"

namespace monitor::vesk::agent {
namespace {

using testing::HasSubstr;

class AlwaysPresent final : public ProgramPresence {
 public:
  void saw(const AudioApplication&) override {}
  bool lives(const AudioApplication&) override { return true; }
  void forget(const std::string&) override {}
};

// The answer to one call, once it is there.
struct Outcome {
  std::string errorName;
  std::vector<std::string> texts;  // arrays of bytes and texts alike
};

std::vector<std::string> textsOf(sd_bus_message* message) {
  std::vector<std::string> texts;
  char type = 0;
  const char* inner = nullptr;
  while (sd_bus_message_peek_type(message, &type, &inner) > 0) {
    if (type == SD_BUS_TYPE_ARRAY) {
      const void* bytes = nullptr;
      std::size_t size = 0;
      checked(sd_bus_message_read_array(message, 'y', &bytes, &size), "bytes");
      texts.emplace_back(static_cast<const char*>(bytes), size);
    } else {
      const char* text = nullptr;
      checked(sd_bus_message_read(message, "s", &text), "text");
      texts.emplace_back(text);
    }
  }
  return texts;
}

int takeReply(sd_bus_message* reply, void* data, sd_bus_error*) {
  auto* outcome = static_cast<std::optional<Outcome>*>(data);
  const sd_bus_error* error = sd_bus_message_get_error(reply);
  *outcome = error == nullptr ? Outcome{{}, textsOf(reply)} : Outcome{error->name, {error->message}};
  return 0;
}

// Server and client on one private bus, both run by the test's thread.
class AgentServerTest : public testing::Test {
 protected:
  AgentServerTest() {
    service_.onMessage = [this](const auto& message) {
      if (hangs_) return;
      if (message->applicationsReply) message->applicationsReply(encodeApplications({app_}), std::nullopt);
      if (message->setGainReply) {
        message->setGainReply(refusal_.empty() ? std::optional<std::string>() : refusal_);
        app_.gain = message->gain;
      }
    };
  }

  std::unique_ptr<AgentServer> makeServer(std::uint32_t owner) {
    return std::make_unique<AgentServer>(serverBus_.get(), keeper_, owner);
  }
  void serve() {
    server_ = makeServer(::geteuid());
    ASSERT_TRUE(server_->takeName());
  }

  using Pending = std::shared_ptr<std::optional<Outcome>>;

  template <class... Arguments>
  Pending send(const char* member, const char* types, Arguments... arguments) {
    auto pending = std::make_shared<std::optional<Outcome>>();
    sd_bus_message* raw = nullptr;
    checked(sd_bus_message_new_method_call(clientBus_.get(), &raw, kBusName, kObjectPath, kInterface, member),
            "call");
    const platform::Message message(raw);
    if constexpr (sizeof...(Arguments) > 0)
      checked(sd_bus_message_append(raw, types, arguments...), "arguments");
    checked(sd_bus_call_async(clientBus_.get(), nullptr, raw, takeReply, pending.get(), 0), "send");
    return pending;
  }

  void pumpUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "no answer";
      const int server = sd_bus_process(serverBus_.get(), nullptr);
      const int client = sd_bus_process(clientBus_.get(), nullptr);
      time_.run();
      if (server == 0 && client == 0) sd_bus_wait(clientBus_.get(), 2'000);
    }
  }

  template <class... Arguments>
  Outcome call(const char* member, const char* types, Arguments... arguments) {
    const Pending pending = send(member, types, arguments...);
    pumpUntil([&] { return pending->has_value(); });
    return pending->value_or(Outcome{"nothing", {}});
  }

  PrivateBus bus_;
  platform::Bus serverBus_ = bus_.connect();
  platform::Bus clientBus_ = bus_.connect();
  fakes::VirtualTime time_;
  fakes::FakeClock clock_{time_};
  fakes::FakeWallClock wallClock_{time_};
  AlwaysPresent presence_;
  fakes::ScriptedAudioService service_;
  std::shared_ptr<SerialQueue> queue_ = time_.makeQueue();
  AudioApplication app_{"org.example.music", "Music", std::nullopt, {{100, 1}}, 1.0, true};
  std::string refusal_;
  bool hangs_ = false;
  GainKeeper keeper_{AudioClient::make(service_, queue_), {queue_, clock_, wallClock_, presence_, nullptr}};
  std::unique_ptr<AgentServer> server_;
};

// The tags of a document, one after another, without comments and what stands between tags.
std::string tagsOf(const std::string& xml) {
  std::string tags;
  for (std::size_t begin = xml.find('<'); begin != std::string::npos; begin = xml.find('<', begin)) {
    const bool comment = xml.compare(begin, 4, "<!--") == 0;
    const std::size_t end = comment ? xml.find("-->", begin) + 3 : xml.find('>', begin) + 1;
    if (!comment) tags += xml.substr(begin, end - begin);
    begin = end;
  }
  return tags;
}

std::string interfaceOf(const std::string& xml) {
  const std::string tags = tagsOf(xml);
  const std::size_t begin = tags.find("<interface name=\"app.vesk.native.Agent\">");
  const std::size_t end = tags.find("</interface>", begin);
  return begin == std::string::npos || end == std::string::npos ? std::string()
                                                                : tags.substr(begin, end - begin);
}

TEST_F(AgentServerTest, DescribesItselfAsTheInstalledInterfaceFileDoes) {
  serve();
  auto pending = std::make_shared<std::optional<Outcome>>();
  checked(sd_bus_call_method_async(clientBus_.get(), nullptr, kBusName, kObjectPath,
                                   "org.freedesktop.DBus.Introspectable", "Introspect", takeReply,
                                   pending.get(), nullptr),
          "introspect");
  pumpUntil([&] { return pending->has_value(); });
  std::ifstream stream(VESK_AGENT_INTERFACE);
  const std::string file{std::istreambuf_iterator<char>(stream), {}};
  ASSERT_NE(interfaceOf(file), "");
  EXPECT_EQ(interfaceOf(pending->value().texts.at(0)), interfaceOf(file));
}

TEST_F(AgentServerTest, AnswersTheFourMethods) {
  serve();
  const Outcome list = call("List", nullptr);
  ASSERT_EQ(list.texts.size(), 3U);
  EXPECT_EQ(decodeApplications(list.texts[0]), std::vector<AudioApplication>{app_});
  EXPECT_EQ(call("SetGain", "sd", "org.example.music", 0.4).texts, (std::vector<std::string>{"", ""}));
  EXPECT_EQ(app_.gain, 0.4);
  const Outcome status = call("Status", nullptr);
  ASSERT_EQ(status.texts.size(), 1U);
  EXPECT_EQ(decodeStatus(status.texts[0]).held.at(0).app.id, "org.example.music");
  EXPECT_EQ(call("Stop", "s", "").texts, (std::vector<std::string>{"", ""}));
  EXPECT_TRUE(keeper_.status().held.empty());
}

TEST_F(AgentServerTest, PassesTheServicesTextsOn) {
  serve();
  refusal_ =
      "This output format is not supported for app volume. Use a stereo output. Normal playback is "
      "unchanged.";
  EXPECT_EQ(call("SetGain", "sd", "org.example.music", 0.4).texts.at(0), refusal_);
}

TEST_F(AgentServerTest, ServesItsOwnUserOnly) {
  server_ = makeServer(::geteuid() + 1);
  ASSERT_TRUE(server_->takeName());
  for (const char* member : {"List", "Status"}) {
    EXPECT_EQ(call(member, nullptr).errorName, SD_BUS_ERROR_ACCESS_DENIED) << member;
  }
  EXPECT_EQ(call("SetGain", "sd", "org.example.music", 0.4).errorName, SD_BUS_ERROR_ACCESS_DENIED);
  EXPECT_EQ(call("Stop", "s", "").errorName, SD_BUS_ERROR_ACCESS_DENIED);
  EXPECT_TRUE(service_.messages.empty());
}

TEST_F(AgentServerTest, RefusesWrongArguments) {
  serve();
  EXPECT_EQ(call("SetGain", "s", "org.example.music").errorName, SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_EQ(call("SetGain", "sd", "org.example.music", 1.5).texts.at(0), "A gain is a number from 0 to 1.");
}

TEST_F(AgentServerTest, KeepsSixtyFourRequestsOpenAndNoMore) {
  serve();
  hangs_ = true;
  std::vector<Pending> pending;
  for (std::size_t index = 0; index < kMostRequests; ++index) pending.push_back(send("SetGain", "sd", "x", 0.5));
  const Outcome oneMore = call("SetGain", "sd", "x", 0.5);
  EXPECT_EQ(oneMore.errorName, SD_BUS_ERROR_LIMITS_EXCEEDED);
  for (const Pending& open : pending) EXPECT_FALSE(open->has_value());
  keeper_.stopAll();
  pumpUntil([&] { return pending.back()->has_value(); });
  hangs_ = false;
  EXPECT_EQ(call("List", nullptr).errorName, "");
}

TEST_F(AgentServerTest, TellsACallThatMetItsLeavingToCallAgain) {
  serve();
  const Pending pending = send("SetGain", "sd", "org.example.music", 0.5);
  sd_bus_flush(clientBus_.get());
  // A round trip of another connection: the bus has passed the call on by now.
  const platform::Bus other = bus_.connect();
  checked(sd_bus_call_method(other.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "GetId", nullptr, nullptr, nullptr),
          "round trip");
  server_->leave();
  pumpUntil([&] { return pending->has_value(); });
  EXPECT_EQ(pending->value().errorName, kLeavingError);
  EXPECT_TRUE(keeper_.isIdle());
  EXPECT_EQ(call("List", nullptr).errorName, SD_BUS_ERROR_SERVICE_UNKNOWN);
}

TEST_F(AgentServerTest, TellsACallThatIsUnderWayToCallAgain) {
  serve();
  hangs_ = true;
  const Pending list = send("List", nullptr);
  const Pending gain = send("SetGain", "sd", "org.example.music", 0.5);
  pumpUntil([&] { return !keeper_.isIdle() && service_.messages.size() == 1; });
  // The answer to a call of the same connection comes after both have arrived.
  EXPECT_EQ(call("Status", nullptr).errorName, "");
  server_->leave();
  pumpUntil([&] { return list->has_value() && gain->has_value(); });
  EXPECT_EQ(list->value().errorName, kLeavingError);
  EXPECT_EQ(gain->value().errorName, kLeavingError);
  // What the service says after all goes nowhere.
  hangs_ = false;
  keeper_.stopAll();
  time_.run();
}

TEST_F(AgentServerTest, TakesTheNameOnlyWhenItIsFree) {
  serve();
  const platform::Bus other = bus_.connect();
  AgentServer second(other.get(), keeper_, ::geteuid());
  EXPECT_FALSE(second.takeName());
}

}  // namespace
}  // namespace monitor::vesk::agent
