// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/RemoteConnections.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/BusNames.h"
#include "Tests/Contract/ServiceConnectionContract.h"
#include "Tests/Platform/Ipc/PrivateBus.h"
#include "Tests/Platform/Ipc/ServiceThread.h"

namespace monitor::tests {
namespace {

using contract::Event;
using contract::Log;
using platform::BusAddress;
using platform::BusAudioConnections;
using platform::BusHelperConnections;
using testing::ElementsAre;
using testing::HasSubstr;
namespace names = platform::names;

// A client that notes the names of its errors and the loss of its connection.
struct Client {
  explicit Client(BusAudioConnections& factory)
      : connection(factory.makeConnection(MonitorServiceIdentity::audio, false)) {
    connection->setInvalidationHandler([this] {
      log.note("invalidated");
      invalidated.set();
    });
    connection->setInterruptionHandler([this] { log.note("interrupted"); });
    connection->resume();
  }
  void stop(Event& done) {
    connection
        ->remoteObjectProxyWithErrorHandler([this, &done](const RemoteError& error) {
          log.note(error.domain);
          text = error.text;
          done.set();
        })
        ->stop([this, &done] {
          log.note("answered");
          done.set();
        });
  }
  Log log;
  Event invalidated;
  std::string text;  // of the last error; read after an event that follows it
  std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> connection;
};

class RemoteConnectionsTest : public testing::Test {
 protected:
  ~RemoteConnectionsTest() override { EXPECT_TRUE(platform::waitForSerialQueues(0, 20.0)); }
};

TEST_F(RemoteConnectionsTest, BecomeInvalidWithoutABus) {
  BusAudioConnections factory(BusAddress{.explicitly = "unix:path=/nonexistent/bus"});
  Client client(factory);
  ASSERT_TRUE(client.invalidated.wait());
  Event failed;
  client.stop(failed);
  ASSERT_TRUE(failed.wait());
  EXPECT_THAT(client.log.entries(), ElementsAre("invalidated", names::kDisconnected));
  EXPECT_THAT(client.text, HasSubstr("Cannot connect to the message bus: No such file or directory"));
}

TEST_F(RemoteConnectionsTest, BecomeInvalidWithoutAService) {
  const PrivateBus bus;
  BusAudioConnections factory(bus.busAddress());
  Client client(factory);
  Event failed;
  client.stop(failed);
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_THAT(client.log.entries(), ElementsAre(names::kServiceUnknown, "invalidated"));
  EXPECT_THAT(client.text, HasSubstr(MonitorServiceIdentity::audio));
}

TEST_F(RemoteConnectionsTest, BecomeInvalidWhereTheBusForbidsTheService) {
  PrivateBus::Options options;
  options.policy = "<deny send_destination=\"app.vesk.native.monitor-audio\"/>\n";
  const PrivateBus bus(options);
  contract::RecordingDelegate delegate;
  const ServiceThread service(bus, delegate);
  BusAudioConnections factory(bus.busAddress());
  Client client(factory);
  Event failed;
  client.stop(failed);
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_THAT(client.log.entries(), ElementsAre(names::kAccessDenied, "invalidated"));
}

TEST_F(RemoteConnectionsTest, BecomeInvalidWithTheBus) {
  PrivateBus bus;
  contract::RecordingDelegate delegate;
  delegate.behaviour->keepsReplies = true;
  const ServiceThread service(bus, delegate);
  BusAudioConnections factory(bus.busAddress());
  Client client(factory);
  Event failed;
  client.stop(failed);
  ASSERT_TRUE(delegate.behaviour->called.wait());
  bus.kill();
  ASSERT_TRUE(client.invalidated.wait());
  EXPECT_THAT(client.log.entries(), ElementsAre(testing::_, "invalidated"));
  EXPECT_TRUE(failed.happened());
}

TEST_F(RemoteConnectionsTest, SayNothingWhenTheyAreReleasedButFailWhatIsOpen) {
  const PrivateBus bus;
  contract::RecordingDelegate delegate;
  delegate.behaviour->keepsReplies = true;
  const ServiceThread service(bus, delegate);
  BusAudioConnections factory(bus.busAddress());
  Client client(factory);
  Event failed;
  client.stop(failed);
  ASSERT_TRUE(delegate.behaviour->called.wait());
  client.connection.reset();
  ASSERT_TRUE(failed.wait());
  ASSERT_TRUE(delegate.clientGone.wait());
  EXPECT_THAT(client.log.entries(), ElementsAre(names::kDisconnected));
}

TEST_F(RemoteConnectionsTest, RefuseToSendBeforeTheyAreResumed) {
  const PrivateBus bus;
  BusAudioConnections factory(bus.busAddress());
  const auto connection = factory.makeConnection(MonitorServiceIdentity::audio, false);
  Event failed;
  connection->remoteObjectProxyWithErrorHandler([&](const RemoteError&) { failed.set(); })->stop(nullptr);
  EXPECT_TRUE(failed.wait());
}

TEST_F(RemoteConnectionsTest, DeliverAStopThatWasSentRightBeforeTheEnd) {
  const PrivateBus bus;
  contract::RecordingDelegate delegate;
  const ServiceThread service(bus, delegate);
  BusAudioConnections factory(bus.busAddress());
  {
    Client client(factory);
    Event listed;
    client.stop(listed);
    ASSERT_TRUE(listed.wait());
    client.connection->remoteObjectProxy()->stop(nullptr);
    client.connection->invalidate();
    ASSERT_TRUE(client.invalidated.wait());
  }
  ASSERT_TRUE(delegate.clientGone.wait());
  EXPECT_EQ(delegate.behaviour->log.count("1 stop"), 2U);
}

TEST_F(RemoteConnectionsTest, WaitWithoutEndForAServiceThatHangs) {
  const PrivateBus bus;
  // A message under the bus library's own time-out would fail after this.
  auto environment = bus.environment();
  environment["SYSTEMD_BUS_TIMEOUT"] = "20ms";
  const lab::ScopedEnvironment scope(environment);
  contract::RecordingDelegate delegate;
  delegate.behaviour->keepsReplies = true;
  const ServiceThread service(bus, delegate);
  BusAudioConnections factory(bus.busAddress());
  Client client(factory);
  Event done;
  client.stop(done);
  ASSERT_TRUE(delegate.behaviour->called.wait());
  // Nobody gives up here: time-outs are the client's own.
  EXPECT_FALSE(done.wait(std::chrono::milliseconds(150)));
  delegate.behaviour->kept.front()();
  ASSERT_TRUE(done.wait());
  EXPECT_THAT(client.log.entries(), ElementsAre("answered"));
}

TEST_F(RemoteConnectionsTest, AnswerTheLastCauseThroughAProxyAndThroughTheFactory) {
  const PrivateBus bus;
  contract::RecordingDelegate delegate;
  const ServiceThread service(bus, delegate);
  BusAudioConnections factory(bus.busAddress());
  Log causes;
  const auto ask = [&](MonitorAudioDiagnostics& diagnostics) {
    Event done;
    diagnostics.lastCause([&](std::int32_t code, const std::string& text) {
      causes.note(std::to_string(code) + " " + text);
      done.set();
    });
    EXPECT_TRUE(done.wait());
  };
  ask(factory);  // no connection yet
  {
    Client client(factory);
    ask(factory);  // no session yet
    Event done;
    client.stop(done);
    ASSERT_TRUE(done.wait());
    ask(factory);
    const auto proxy = client.connection->remoteObjectProxy();
    ask(dynamic_cast<MonitorAudioDiagnostics&>(*proxy));
    client.connection->invalidate();
    ASSERT_TRUE(client.invalidated.wait());
    ask(factory);  // over
  }
  ask(factory);
  EXPECT_THAT(causes.entries(), ElementsAre("0 ", "0 ", "-16 cause of 1", "-16 cause of 1", "0 ", "0 "));
}

// A privileged helper on a bus, which answers "collect" with what it is told to.
class HelperService {
 public:
  HelperService(const PrivateBus& bus, std::string data, std::string message)
      : client_(bus), data_(std::move(data)), message_(std::move(message)) {
    sd_bus_add_object_vtable(client_.bus(), nullptr, names::kHelperPath, names::kHelperInterface, kTable,
                             this);
    sd_bus_request_name(client_.bus(), MonitorServiceIdentity::helper.data(), 0);
    thread_ = std::thread([this] {
      while (!done_) {
        if (sd_bus_process(client_.bus(), nullptr) == 0) sd_bus_wait(client_.bus(), 2'000);
      }
    });
  }
  ~HelperService() {
    done_ = true;
    thread_.join();
  }
  HelperService(const HelperService&) = delete;
  HelperService& operator=(const HelperService&) = delete;

 private:
  static int onCollect(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
    const auto* helper = static_cast<HelperService*>(self);
    sd_bus_message* made = nullptr;
    sd_bus_message_new_method_return(call, &made);
    const platform::Message reply(made);
    platform::appendData(made, helper->data_);
    platform::appendText(made, helper->message_);
    return sd_bus_send(helper->client_.bus(), made, nullptr);
  }
  static const sd_bus_vtable kTable[];
  RawClient client_;
  std::string data_;
  std::string message_;
  std::atomic<bool> done_ = false;
  std::thread thread_;
};
const sd_bus_vtable HelperService::kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Collect", nullptr, "ays", onCollect, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

TEST_F(RemoteConnectionsTest, CollectFromThePrivilegedHelperOnTheSystemBus) {
  const PrivateBus bus;
  const HelperService helper(bus, "{\"cpu\":1}", "");
  // The environment names the system bus; the session bus of the test leads nowhere.
  auto environment = bus.environment();
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = bus.address();
  environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent/bus";
  const lab::ScopedEnvironment scope(environment);
  BusHelperConnections factory;
  const auto connection = factory.makeConnection(MonitorServiceIdentity::helper, true);
  connection->resume();
  Event done;
  std::optional<Data> data;
  std::optional<std::string> message = "unset";
  connection->remoteObjectProxyWithErrorHandler([&](const RemoteError&) { done.set(); })
      ->collect([&](const auto& replied, const auto& text) {
        data = replied;
        message = text;
        done.set();
      });
  ASSERT_TRUE(done.wait());
  EXPECT_EQ(data, "{\"cpu\":1}");
  EXPECT_EQ(message, std::nullopt);
}

TEST_F(RemoteConnectionsTest, CarryTheHelpersMessageWithoutData) {
  const PrivateBus bus;
  const HelperService helper(bus, "", "No readings.");
  BusHelperConnections factory(bus.busAddress());
  const auto connection = factory.makeConnection(MonitorServiceIdentity::helper, true);
  connection->resume();
  Event done;
  std::optional<Data> data = "unset";
  std::optional<std::string> message;
  connection->remoteObjectProxy()->collect([&](const auto& replied, const auto& text) {
    data = replied;
    message = text;
    done.set();
  });
  ASSERT_TRUE(done.wait());
  EXPECT_EQ(data, std::nullopt);
  EXPECT_EQ(message, "No readings.");
}

}  // namespace
}  // namespace monitor::tests
