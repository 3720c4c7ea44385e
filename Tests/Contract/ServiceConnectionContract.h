// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"
#include "Tests/Contract/Event.h"

namespace monitor::contract {

// What happened, as text, noted by any thread.
class Log {
 public:
  void note(std::string entry) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
  }
  [[nodiscard]] std::vector<std::string> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }
  [[nodiscard]] std::size_t count(const std::string& entry) const {
    const std::lock_guard lock(mutex_);
    std::size_t result = 0;
    for (const auto& candidate : entries_) result += candidate == entry ? 1 : 0;
    return result;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> entries_;
};

// An exported object that notes its calls. It answers at once, or keeps its replies until the test gives
// them.
class RecordingService final : public MonitorAudioProtocol, public MonitorAudioDiagnostics {
 public:
  // What all objects of one delegate share.
  struct Behaviour {
    Log log;
    std::mutex mutex;
    bool keepsReplies = false;
    std::optional<Data> data = "[]";
    std::optional<std::string> message;
    std::optional<std::string> error;
    std::vector<std::function<void()>> kept;
    std::size_t objects = 0;
    Event called;
  };

  RecordingService(std::shared_ptr<Behaviour> behaviour, std::string name)
      : behaviour_(std::move(behaviour)), name_(std::move(name)) {
    const std::lock_guard lock(behaviour_->mutex);
    ++behaviour_->objects;
  }
  ~RecordingService() override {
    const std::lock_guard lock(behaviour_->mutex);
    --behaviour_->objects;
  }
  RecordingService(const RecordingService&) = delete;
  RecordingService& operator=(const RecordingService&) = delete;

  void applications(ApplicationsReply reply) override {
    std::unique_lock lock(behaviour_->mutex);
    auto give = [reply = std::move(reply), data = behaviour_->data, message = behaviour_->message] {
      reply(data, message);
    };
    answer("applications", std::move(give), std::move(lock));
  }
  void setGain(double gain, const Data& processes, SetGainReply reply) override {
    std::unique_lock lock(behaviour_->mutex);
    auto give = [reply = std::move(reply), error = behaviour_->error] { reply(error); };
    answer("setGain " + std::to_string(gain) + " " + processes, std::move(give), std::move(lock));
  }
  void stop(StopReply reply) override {
    std::unique_lock lock(behaviour_->mutex);
    answer("stop", std::move(reply), std::move(lock));
  }
  void lastCause(LastCauseReply reply) override {
    std::unique_lock lock(behaviour_->mutex);
    answer(
        "lastCause", [reply = std::move(reply), name = name_] { reply(-16, "cause of " + name); },
        std::move(lock));
  }

 private:
  void answer(const std::string& call, std::function<void()> give, std::unique_lock<std::mutex> lock) {
    behaviour_->log.note(name_ + " " + call);
    const bool keep = behaviour_->keepsReplies;
    if (keep) behaviour_->kept.push_back(give);
    lock.unlock();
    behaviour_->called.set();
    if (!keep) give();
  }

  std::shared_ptr<Behaviour> behaviour_;
  std::string name_;
};

// An accept hook that exports one RecordingService for each connection, named "1", "2", … in order.
class RecordingDelegate final : public ServiceListenerDelegate<MonitorAudioProtocol> {
 public:
  bool shouldAcceptNewConnection(
      const std::shared_ptr<ServiceConnection<MonitorAudioProtocol>>& connection) override {
    const std::string name = std::to_string(++count_);
    behaviour->log.note(name + " accept " + std::to_string(connection->effectiveUserIdentifier()));
    if (refuses) return false;
    connection->setCodeSigningRequirement("client requirement");
    connection->setExportedInterface();
    connection->setExportedObject(std::make_shared<RecordingService>(behaviour, name));
    const auto gone = [this, name](const char* what) {
      behaviour->log.note(name + what);
      clientGone.set();
    };
    connection->setInvalidationHandler([gone] { gone(" invalidated"); });
    connection->setInterruptionHandler([gone] { gone(" interrupted"); });
    connection->resume();
    return true;
  }

  std::shared_ptr<RecordingService::Behaviour> behaviour = std::make_shared<RecordingService::Behaviour>();
  bool refuses = false;
  Event clientGone;

 private:
  int count_ = 0;
};

// What a listener and its clients' connections do together. The harness has
//   explicit Harness(ServiceListenerDelegate<MonitorAudioProtocol>&)   a service that listens
//   RemoteConnectionFactory<MonitorAudioProtocol>& factory()
//   std::string user()            the user id that the service will see
//   bool await(Event&)            lets things happen until the event has
//   void settle()                 … a little further
//   void crashService()           its process is gone at once; the next message finds a new one
template <class Harness>
class ServiceConnectionContract : public testing::Test {
 protected:
  // A client that notes all it hears.
  struct Client {
    std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> connection;
    std::shared_ptr<Log> log = std::make_shared<Log>();
    std::shared_ptr<Event> invalidated = std::make_shared<Event>();
    std::shared_ptr<Event> interrupted = std::make_shared<Event>();

    [[nodiscard]] std::shared_ptr<MonitorAudioProtocol> proxy(std::shared_ptr<Event> failed = nullptr) const {
      return connection->remoteObjectProxyWithErrorHandler([log = log, failed](const RemoteError& error) {
        log->note(error.domain.empty() || error.text.empty() ? "error without words" : "error");
        if (failed != nullptr) failed->set();
      });
    }
    // A `stop` whose reply is noted as `name`.
    std::shared_ptr<Event> stop(const std::string& name) const {
      auto done = std::make_shared<Event>();
      proxy(done)->stop([log = log, name, done] {
        log->note(name);
        done->set();
      });
      return done;
    }
  };

  Client connect() {
    Client client;
    client.connection = harness.factory().makeConnection("app.vesk.native.monitor-audio", false);
    client.connection->setRemoteObjectInterface();
    client.connection->setCodeSigningRequirement("service requirement");
    client.connection->setInvalidationHandler([log = client.log, event = client.invalidated] {
      log->note("invalidated");
      event->set();
    });
    client.connection->setInterruptionHandler([log = client.log, event = client.interrupted] {
      log->note("interrupted");
      event->set();
    });
    client.connection->resume();
    return client;
  }
  [[nodiscard]] std::vector<std::string> serviceLog() const { return delegate.behaviour->log.entries(); }
  [[nodiscard]] std::size_t objects() {
    const std::lock_guard lock(delegate.behaviour->mutex);
    return delegate.behaviour->objects;
  }
  // Whether `condition` comes true within a generous number of steps.
  template <class Condition>
  bool settleUntil(Condition condition) {
    for (int step = 0; step < 5000 && !condition(); ++step) harness.settle();
    return condition();
  }
  void keepReplies(bool keep) {
    const std::lock_guard lock(delegate.behaviour->mutex);
    delegate.behaviour->keepsReplies = keep;
  }
  void giveKeptReplies() {
    std::vector<std::function<void()>> kept;
    {
      const std::lock_guard lock(delegate.behaviour->mutex);
      kept.swap(delegate.behaviour->kept);
    }
    for (const auto& reply : kept) reply();
  }

  RecordingDelegate delegate;
  Harness harness{delegate};
};
TYPED_TEST_SUITE_P(ServiceConnectionContract);

using Entries = std::vector<std::string>;

TYPED_TEST_P(ServiceConnectionContract, CarriesArgumentsAndRepliesExactly) {
  auto& behaviour = *this->delegate.behaviour;
  behaviour.data = Data("[1]\n\xff\x01 bytes, not text");
  behaviour.message = "Überlauf — ½";
  behaviour.error = "Some error.";
  const auto client = this->connect();
  Event listed;
  Event set;
  std::optional<Data> data;
  std::optional<std::string> message;
  std::optional<std::string> error;
  const auto proxy = client.proxy();
  proxy->applications([&](const auto& replied, const auto& text) {
    data = replied;
    message = text;
    listed.set();
  });
  proxy->setGain(0.4, Data("[\xfe]"), [&](const auto& text) {
    error = text;
    set.set();
  });
  ASSERT_TRUE(this->harness.await(listed));
  ASSERT_TRUE(this->harness.await(set));
  EXPECT_EQ(data, behaviour.data);
  EXPECT_EQ(message, behaviour.message);
  EXPECT_EQ(error, behaviour.error);
  EXPECT_EQ(this->serviceLog(),
            (Entries{"1 accept " + this->harness.user(), "1 applications", "1 setGain 0.400000 [\xfe]"}));
  EXPECT_EQ(client.log->entries(), Entries{});
}

TYPED_TEST_P(ServiceConnectionContract, CarriesAbsenceAsAbsence) {
  auto& behaviour = *this->delegate.behaviour;
  behaviour.data = std::nullopt;
  const auto client = this->connect();
  Event listed;
  Event set;
  std::optional<Data> data = "unset";
  std::optional<std::string> message = "unset";
  std::optional<std::string> error = "unset";
  client.proxy()->applications([&](const auto& replied, const auto& text) {
    data = replied;
    message = text;
    listed.set();
  });
  client.proxy()->setGain(1.0, "[]", [&](const auto& text) {
    error = text;
    set.set();
  });
  ASSERT_TRUE(this->harness.await(listed));
  ASSERT_TRUE(this->harness.await(set));
  EXPECT_EQ(data, std::nullopt);
  EXPECT_EQ(message, std::nullopt);
  EXPECT_EQ(error, std::nullopt);
}

TYPED_TEST_P(ServiceConnectionContract, DeliversMessagesInTheOrderTheyWereSent) {
  const auto client = this->connect();
  Event last;
  const auto proxy = client.proxy();
  Entries expected{"1 accept " + this->harness.user()};
  for (int i = 0; i < 50; ++i) {
    proxy->setGain(i, "[]", [&, i](const auto&) {
      if (i == 49) last.set();
    });
    expected.push_back("1 setGain " + std::to_string(static_cast<double>(i)) + " []");
  }
  ASSERT_TRUE(this->harness.await(last));
  EXPECT_EQ(this->serviceLog(), expected);
}

TYPED_TEST_P(ServiceConnectionContract, GivesEveryClientItsOwnObject) {
  const auto first = this->connect();
  ASSERT_TRUE(this->harness.await(*first.stop("a")));
  const auto second = this->connect();
  ASSERT_TRUE(this->harness.await(*second.stop("b")));
  ASSERT_TRUE(this->harness.await(*first.stop("c")));
  const auto user = this->harness.user();
  EXPECT_EQ(this->serviceLog(),
            (Entries{"1 accept " + user, "1 stop", "2 accept " + user, "2 stop", "1 stop"}));
}

TYPED_TEST_P(ServiceConnectionContract, InvalidatesARefusedClient) {
  this->delegate.refuses = true;
  const auto client = this->connect();
  const auto failed = client.stop("answered");
  ASSERT_TRUE(this->harness.await(*failed));
  ASSERT_TRUE(this->harness.await(*client.invalidated));
  ASSERT_TRUE(this->harness.await(*client.stop("answered later")));
  EXPECT_EQ(client.log->count("error"), 2U);
  EXPECT_EQ(client.log->count("invalidated"), 1U);
  EXPECT_EQ(client.log->entries().size(), 3U);
  EXPECT_EQ(this->objects(), 0U);
}

TYPED_TEST_P(ServiceConnectionContract, EndsBothEndsWhenTheClientInvalidates) {
  this->keepReplies(true);
  const auto client = this->connect();
  const auto open = client.stop("answered");
  ASSERT_TRUE(this->harness.await(this->delegate.behaviour->called));
  client.connection->invalidate();
  ASSERT_TRUE(this->harness.await(*open));
  ASSERT_TRUE(this->harness.await(*client.invalidated));
  ASSERT_TRUE(this->harness.await(this->delegate.clientGone));
  client.connection->invalidate();
  this->giveKeptReplies();
  ASSERT_TRUE(this->harness.await(*client.stop("answered later")));
  EXPECT_TRUE(this->settleUntil([&] { return this->objects() == 0; }));
  EXPECT_EQ(client.log->entries(), (Entries{"error", "invalidated", "error"}));
  EXPECT_EQ(this->serviceLog(), (Entries{"1 accept " + this->harness.user(), "1 stop", "1 invalidated"}));
}

TYPED_TEST_P(ServiceConnectionContract, EndsTheServicesEndWhenTheClientIsReleased) {
  auto client = this->connect();
  ASSERT_TRUE(this->harness.await(*client.stop("answered")));
  EXPECT_EQ(this->objects(), 1U);
  client.connection.reset();
  ASSERT_TRUE(this->harness.await(this->delegate.clientGone));
  EXPECT_EQ(this->serviceLog().back(), "1 invalidated");
  EXPECT_TRUE(this->settleUntil([&] { return this->objects() == 0; }));
  EXPECT_EQ(client.log->entries(), Entries{"answered"});
}

TYPED_TEST_P(ServiceConnectionContract, KeepsTheConnectionAsLongAsAProxy) {
  auto client = this->connect();
  const auto proxy = client.proxy();
  client.connection.reset();
  Event answered;
  proxy->stop([&] { answered.set(); });
  EXPECT_TRUE(this->harness.await(answered));
}

TYPED_TEST_P(ServiceConnectionContract, LosesNothingButTheReplyOfAPlainProxy) {
  const auto client = this->connect();
  Event answered;
  client.connection->remoteObjectProxy()->stop([&] { answered.set(); });
  ASSERT_TRUE(this->harness.await(answered));
  client.connection->remoteObjectProxy()->stop(nullptr);
  ASSERT_TRUE(this->harness.await(*client.stop("after")));
  EXPECT_EQ(this->delegate.behaviour->log.count("1 stop"), 3U);
}

TYPED_TEST_P(ServiceConnectionContract, InterruptsTheClientOnceWhenTheServiceDies) {
  const auto client = this->connect();
  ASSERT_TRUE(this->harness.await(*client.stop("before")));
  this->keepReplies(true);
  const auto open = client.stop("open");
  const auto alsoOpen = client.stop("also open");
  ASSERT_TRUE(this->settleUntil([&] { return this->delegate.behaviour->log.count("1 stop") == 3; }));
  this->harness.crashService();
  ASSERT_TRUE(this->harness.await(*open));
  ASSERT_TRUE(this->harness.await(*alsoOpen));
  ASSERT_TRUE(this->harness.await(*client.interrupted));
  EXPECT_EQ(client.log->entries(), (Entries{"before", "error", "error", "interrupted"}));
  // The next message is accepted anew.
  this->keepReplies(false);
  ASSERT_TRUE(this->harness.await(*client.stop("after")));
  this->harness.settle();
  EXPECT_EQ(client.log->entries(), (Entries{"before", "error", "error", "interrupted", "after"}));
  EXPECT_EQ(this->delegate.behaviour->log.count("2 stop"), 1U);
  EXPECT_FALSE(client.invalidated->happened());
}

TYPED_TEST_P(ServiceConnectionContract, InterruptsTwiceWhenTheServiceDiesTwice) {
  const auto client = this->connect();
  for (const char* name : {"one", "two"}) {
    ASSERT_TRUE(this->harness.await(*client.stop(name)));
    this->harness.crashService();
    ASSERT_TRUE(this->settleUntil([&] { return client.log->entries().back() == "interrupted"; }));
  }
  EXPECT_EQ(client.log->entries(), (Entries{"one", "interrupted", "two", "interrupted"}));
}

REGISTER_TYPED_TEST_SUITE_P(ServiceConnectionContract, CarriesArgumentsAndRepliesExactly,
                            CarriesAbsenceAsAbsence, DeliversMessagesInTheOrderTheyWereSent,
                            GivesEveryClientItsOwnObject, InvalidatesARefusedClient,
                            EndsBothEndsWhenTheClientInvalidates, EndsTheServicesEndWhenTheClientIsReleased,
                            KeepsTheConnectionAsLongAsAProxy, LosesNothingButTheReplyOfAPlainProxy,
                            InterruptsTheClientOnceWhenTheServiceDies,
                            InterruptsTwiceWhenTheServiceDiesTwice);

}  // namespace monitor::contract
