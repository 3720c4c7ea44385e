// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/AudioServiceListener.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Ipc/BusNames.h"
#include "Tests/Contract/ServiceConnectionContract.h"
#include "Tests/Platform/Ipc/PrivateBus.h"
#include "Tests/Platform/Ipc/ServiceThread.h"

namespace monitor::tests {
namespace {

using contract::RecordingDelegate;
using platform::Message;
namespace names = platform::names;

const char* const kName = MonitorServiceIdentity::audio.data();

class ListenerTest : public testing::Test {
 protected:
  using Options = platform::ServiceBusOptions;

  void serve(Options options = platform::AudioServiceListener::defaults()) {
    service = std::make_unique<ServiceThread>(bus, delegate, std::move(options));
  }
  static Options with(std::size_t peers, std::size_t requests) {
    auto options = platform::AudioServiceListener::defaults();
    options.limits = {peers, requests};
    return options;
  }
  static Options idle(double seconds) {
    auto options = platform::AudioServiceListener::defaults();
    options.idleSeconds = seconds;
    return options;
  }
  static std::string applications(RawClient& client) {
    return client.call(names::kAudioInterface, "Applications");
  }
  static std::pair<int, std::string> lastCause(RawClient& client) {
    Message reply;
    EXPECT_EQ(client.call(names::kAudioDiagnosticsInterface, "LastCause", &reply), "");
    int code = -1;
    std::string text;
    sd_bus_message_read_basic(reply.get(), 'i', &code);
    platform::readText(reply.get(), text);
    return {code, text};
  }
  void keepReplies(bool keep) {
    const std::lock_guard lock(delegate.behaviour->mutex);
    delegate.behaviour->keepsReplies = keep;
  }
  std::size_t objects() {
    const std::lock_guard lock(delegate.behaviour->mutex);
    return delegate.behaviour->objects;
  }
  std::size_t logged(const std::string& entry) { return delegate.behaviour->log.count(entry); }
  template <class Condition>
  static bool eventually(Condition condition) {
    for (int step = 0; step < 20'000 && !condition(); ++step) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
  }

  PrivateBus bus;
  RecordingDelegate delegate;
  std::unique_ptr<ServiceThread> service;
};

TEST_F(ListenerTest, TakesAsManySessionsAsItsLimitAndNoMore) {
  serve();
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 32; ++i) {
    clients.push_back(std::make_unique<RawClient>(bus));
    ASSERT_EQ(applications(*clients.back()), "") << i;
  }
  RawClient late(bus);
  EXPECT_EQ(applications(late), names::kLimitsExceeded);
  EXPECT_EQ(applications(*clients.front()), "");
  clients.pop_back();
  EXPECT_TRUE(eventually([&] { return objects() == 31; }));
  EXPECT_EQ(applications(late), "");
}

TEST_F(ListenerTest, QueuesAsManyRequestsAsItsLimitAndNoMore) {
  keepReplies(true);
  serve();
  RawClient client(bus);
  for (int i = 0; i < 64; ++i) client.send("Stop");
  ASSERT_TRUE(eventually([&] { return logged("1 stop") == 64; }));
  EXPECT_EQ(client.answers, 0U);
  client.send("Stop");
  ASSERT_TRUE(client.process(1, 20.0));
  EXPECT_EQ(client.limited, 1U);
  // Others are not held up, and an answer makes room again.
  RawClient other(bus);
  keepReplies(false);
  EXPECT_EQ(applications(other), "");
  delegate.behaviour->kept.front()();
  ASSERT_TRUE(client.process(2, 20.0));
  client.send("Stop");
  ASSERT_TRUE(client.process(3, 20.0));
  EXPECT_EQ(client.limited, 1U);
}

TEST_F(ListenerTest, CountsRequestsThatWaitForTheAcceptHook) {
  serve(with(32, 3));
  keepReplies(true);
  RawClient client(bus);
  // All are on their way before the bus has told the service who this is.
  for (int i = 0; i < 4; ++i) client.send("Stop");
  ASSERT_TRUE(client.process(1, 20.0));
  EXPECT_EQ(client.limited, 1U);
  EXPECT_TRUE(eventually([&] { return logged("1 stop") == 3; }));
}

TEST_F(ListenerTest, RefusesWithAccessDeniedAndForgets) {
  delegate.refuses = true;
  serve();
  RawClient client(bus);
  EXPECT_EQ(applications(client), names::kAccessDenied);
  EXPECT_EQ(client.setGain(0.4, "[]"), names::kAccessDenied);
  EXPECT_EQ(lastCause(client), (std::pair{0, std::string()}));
  EXPECT_EQ(objects(), 0U);
  delegate.refuses = false;
  EXPECT_EQ(applications(client), "");
}

TEST_F(ListenerTest, AnswersTheCauseForTheCallersOwnSessionOnly) {
  serve();
  RawClient first(bus);
  EXPECT_EQ(lastCause(first), (std::pair{0, std::string()}));
  EXPECT_EQ(objects(), 0U) << "asking for a cause must not begin a session";
  EXPECT_EQ(applications(first), "");
  RawClient second(bus);
  EXPECT_EQ(applications(second), "");
  EXPECT_EQ(lastCause(first), (std::pair{-16, std::string("cause of 1")}));
  EXPECT_EQ(lastCause(second), (std::pair{-16, std::string("cause of 2")}));
}

TEST_F(ListenerTest, HandsOverNoMoreThanTheProtocolAllowsAndOneByte) {
  serve();
  RawClient client(bus);
  const auto arrived = [&](std::size_t size) {
    EXPECT_EQ(client.setGain(0.5, std::string(size, 'x')), "");
    return delegate.behaviour->log.entries().back().size() - std::string("1 setGain 0.500000 ").size();
  };
  EXPECT_EQ(arrived(0), 0U);
  EXPECT_EQ(arrived(32768), 32768U);
  EXPECT_EQ(arrived(32769), 32769U);
  EXPECT_EQ(arrived(32770), 32769U);
  EXPECT_EQ(arrived(8 << 20), 32769U);
}

TEST_F(ListenerTest, ReplacesWhatIsNotTextInAnswers) {
  delegate.behaviour->error = "broken \xff\xfe text";
  serve();
  RawClient client(bus);
  std::string answer;
  EXPECT_EQ(client.setGain(0.5, "[]", &answer), "");
  EXPECT_EQ(answer, "broken \xEF\xBF\xBD\xEF\xBF\xBD text");
}

TEST_F(ListenerTest, RefusesArgumentsOfOtherTypesWithoutASession) {
  serve();
  RawClient client(bus);
  sd_bus_error error{};
  EXPECT_LT(sd_bus_call_method(client.bus(), kName, names::kAudioPath, names::kAudioInterface, "SetGain",
                               &error, nullptr, "ds", 0.5, "[]"),
            0);
  EXPECT_STREQ(error.name, "org.freedesktop.DBus.Error.InvalidArgs");
  sd_bus_error_free(&error);
  EXPECT_EQ(client.call(names::kAudioInterface, "Restart"), "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_EQ(client.call("app.vesk.native.Other", "Stop"), "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_EQ(objects(), 0U);
}

TEST_F(ListenerTest, EndsTheSessionOfAOneShotCaller) {
  serve();
  {
    RawClient client(bus);
    client.send("Stop");
    sd_bus_flush(client.bus());
  }
  EXPECT_TRUE(
      eventually([&] { return objects() == 0 && delegate.behaviour->log.entries().size() % 3 == 0; }));
  // Nothing is left either when the caller has gone before the bus could say who it was.
  for (int i = 0; i < 30; ++i) {
    RawClient client(bus);
    client.send("Stop");
    sd_bus_flush(client.bus());
  }
  RawClient last(bus);
  ASSERT_EQ(applications(last), "");
  EXPECT_TRUE(eventually([&] { return objects() == 1; }));
}

TEST_F(ListenerTest, LeavesWhenItHasBeenIdle) {
  serve(idle(0.05));
  EXPECT_EQ(service->join(), 0);
  EXPECT_FALSE(RawClient(bus).hasOwner(kName));
}

TEST_F(ListenerTest, StaysWhileThereIsASessionAndLeavesAfterIt) {
  serve(idle(0.05));
  {
    RawClient client(bus);
    ASSERT_EQ(applications(client), "");
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(applications(client), "");
  }
  EXPECT_EQ(service->join(), 0);
  EXPECT_EQ(objects(), 0U);
}

TEST_F(ListenerTest, StaysWhileItIsCalled) {
  serve(idle(0.2));
  RawClient client(bus);
  const auto begin = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(500)) {
    ASSERT_EQ(lastCause(client), (std::pair{0, std::string()}));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(service->join(), 0);
}

// The bus stands still while a call, and then the idle service's wish to give its name back, wait for it; it
// takes them up in that order. So the call reaches a service that has already decided to leave.
class LeavingListenerTest : public ListenerTest {
 protected:
  // The client's call is the first thing the bus sees, then what the service sends, then what `after` sends.
  // A machine under load may let the service leave too early, so that there is nobody to call; then another
  // one is tried.
  bool callAsItLeaves(
      RawClient& client, const std::function<void()>& after = [] {}) {
    for (int attempt = 0; attempt < 10; ++attempt) {
      successor = std::make_unique<RawClient>(bus);
      serve(idle(0.1));
      ::kill(bus.pid(), SIGSTOP);
      client.answers = client.errors = 0;
      client.send("Applications");
      std::this_thread::sleep_for(std::chrono::milliseconds(250));
      after();
      ::kill(bus.pid(), SIGCONT);
      if (client.process(1, 20.0) && client.errors == 0) return true;
      service.reset();
    }
    return false;
  }

  std::unique_ptr<RawClient> successor;  // a new one for every attempt
};

TEST_F(LeavingListenerTest, TakesItsNameBackForACallThatArrivesMeanwhile) {
  RawClient client(bus);
  ASSERT_TRUE(callAsItLeaves(client));
  EXPECT_EQ(objects(), 1U);
  // The name is back, and the session is the one that the first call began.
  EXPECT_TRUE(eventually([&] { return client.hasOwner(kName); }));
  EXPECT_EQ(applications(client), "");
  EXPECT_EQ(logged("1 applications"), 2U);
}

TEST_F(LeavingListenerTest, AnswersACallThatArrivesMeanwhileThoughItIsToldToEnd) {
  RawClient client(bus);
  // The name is being given back, and the call is on its way.
  ASSERT_TRUE(callAsItLeaves(client, [&] {
    service->stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }));
  EXPECT_EQ(service->join(), 0);
  EXPECT_EQ(logged("1 applications"), 1U);
  EXPECT_EQ(logged("1 invalidated"), 1U);
  EXPECT_EQ(objects(), 0U);
}

TEST_F(LeavingListenerTest, StaysForItsPeerOnlyWhenAnotherServiceTookTheName) {
  auto client = std::make_unique<RawClient>(bus);
  ASSERT_TRUE(callAsItLeaves(*client, [&] {
    sd_bus_request_name_async(successor->bus(), nullptr, kName, 0, nullptr, nullptr);
    sd_bus_flush(successor->bus());
  }));
  EXPECT_EQ(objects(), 1U);
  client.reset();
  EXPECT_EQ(service->join(), 0);
  EXPECT_EQ(objects(), 0U);
  EXPECT_TRUE(successor->hasOwner(kName));
}

TEST_F(ListenerTest, EndsSessionsAndAnswersBeforeItLeavesWhenToldTo) {
  keepReplies(true);
  serve();
  RawClient client(bus);
  client.send("Stop");
  ASSERT_TRUE(delegate.behaviour->called.wait());
  service->stop();
  ASSERT_TRUE(delegate.clientGone.wait());
  delegate.behaviour->kept.front()();
  EXPECT_EQ(service->join(), 0);
  ASSERT_TRUE(client.process(1, 20.0));
  EXPECT_EQ(delegate.behaviour->log.entries().back(), "1 invalidated");
}

// The bus brings two calls after the service was told, and before the name is free: of a client that has a
// session and of one that has none. Where the bus takes them up the other way round there is nobody to call;
// then it is tried again.
TEST_F(ListenerTest, AnswersWhatWasSentBeforeItsNameIsFreeWhenToldTo) {
  bool answered = false;
  for (int attempt = 0; attempt < 10 && !answered; ++attempt) {
    RawClient known(bus);
    RawClient stranger(bus);
    serve();
    ASSERT_EQ(applications(known), "");
    ::kill(bus.pid(), SIGSTOP);
    known.send("Stop");
    stranger.send("Stop");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    service->stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ::kill(bus.pid(), SIGCONT);
    ASSERT_TRUE(known.process(1, 20.0));
    ASSERT_TRUE(stranger.process(1, 20.0));
    answered = known.errors == 0 && stranger.errors == 0;
    EXPECT_EQ(service->join(), 0);
    EXPECT_EQ(objects(), 0U);
    service.reset();
  }
  EXPECT_TRUE(answered);
}

TEST_F(ListenerTest, EndsItsSessionsOnABusThatStandsStill) {
  auto options = platform::AudioServiceListener::defaults();
  options.lastAnswersSeconds = 0.05;
  serve(options);
  RawClient client(bus);
  ASSERT_EQ(applications(client), "");
  ::kill(bus.pid(), SIGSTOP);
  service->stop();
  EXPECT_TRUE(eventually([&] { return objects() == 0; }));
  ::kill(bus.pid(), SIGCONT);
  EXPECT_EQ(service->join(), 0);
}

TEST_F(ListenerTest, WaitsForTheLastAnswersOnlySoLong) {
  keepReplies(true);
  auto options = platform::AudioServiceListener::defaults();
  options.lastAnswersSeconds = 0.05;
  serve(options);
  RawClient client(bus);
  client.send("Stop");
  ASSERT_TRUE(delegate.behaviour->called.wait());
  service->stop();
  EXPECT_EQ(service->join(), 0);
  // A reply that comes after all goes nowhere.
  delegate.behaviour->kept.front()();
}

TEST_F(ListenerTest, EndsSessionsAndFailsWhenTheBusIsLost) {
  serve();
  RawClient client(bus);
  ASSERT_EQ(applications(client), "");
  bus.kill();
  EXPECT_EQ(service->join(), 1);
  EXPECT_EQ(logged("1 interrupted"), 1U);
  EXPECT_EQ(logged("1 invalidated"), 1U);
  EXPECT_EQ(objects(), 0U);
}

TEST_F(ListenerTest, FailsWhenThereIsNoBus) {
  auto options = platform::AudioServiceListener::defaults();
  options.address = {.explicitly = "unix:path=/nonexistent/bus"};
  platform::AudioServiceListener listener(std::make_shared<platform::MainQueue>(), options);
  listener.setDelegate(&delegate);
  EXPECT_EQ(listener.resume(), 1);
}

TEST_F(ListenerTest, FailsWhenAnotherServiceHasTheName) {
  serve();
  auto options = platform::AudioServiceListener::defaults();
  options.address = bus.busAddress();
  platform::AudioServiceListener second(std::make_shared<platform::MainQueue>(), options);
  second.setDelegate(&delegate);
  EXPECT_EQ(second.resume(), 1);
  RawClient client(bus);
  EXPECT_EQ(applications(client), "");
}

TEST_F(ListenerTest, CarriesTheRequirementOfTheListener) {
  platform::AudioServiceListener listener(std::make_shared<platform::MainQueue>());
  listener.setConnectionCodeSigningRequirement(MonitorServiceIdentity::clientRequirement);
  EXPECT_EQ(listener.requirement(), MonitorServiceIdentity::clientRequirement);
}

}  // namespace
}  // namespace monitor::tests
