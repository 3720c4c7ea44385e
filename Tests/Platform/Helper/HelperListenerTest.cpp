// SPDX-License-Identifier: MIT
// The helper's two ends over a bus: its listener, and the connections of a client.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/HelperServiceListener.h"
#include "Platform/Linux/Ipc/RemoteConnections.h"
#include "Tests/Platform/Ipc/PrivateBus.h"

namespace monitor::tests {
namespace {

using platform::HelperServiceListener;

// Answers each call with what the test put in.
class GivenHelper final : public MonitorHelperProtocol {
 public:
  void collect(CollectReply reply) override { reply(data, message); }
  std::optional<Data> data;
  std::optional<std::string> message;
};

class GivenDelegate final : public ServiceListenerDelegate<MonitorHelperProtocol> {
 public:
  bool shouldAcceptNewConnection(
      const std::shared_ptr<ServiceConnection<MonitorHelperProtocol>>& connection) override {
    users.push_back(connection->effectiveUserIdentifier());
    if (!accepts) return false;
    connection->setExportedInterface();
    connection->setExportedObject(helper);
    connection->resume();
    return true;
  }
  std::shared_ptr<GivenHelper> helper = std::make_shared<GivenHelper>();
  std::vector<std::uint32_t> users;  // read when the listener has left
  bool accepts = true;
};

// The listener on a thread of its own, as the main thread of the helper would run it.
class HelperListenerTest : public ::testing::Test {
 protected:
  struct Answer {
    std::optional<Data> data;
    std::optional<std::string> message;
    std::optional<RemoteError> error;
  };

  void start(double idleSeconds = 60.0) {
    auto options = HelperServiceListener::defaults();
    options.address.explicitly = bus.address();
    options.idleSeconds = idleSeconds;
    queue = std::make_shared<platform::MainQueue>();
    listener = std::make_unique<HelperServiceListener>(queue, options);
    listener->setDelegate(&delegate);
    status = std::async(std::launch::async, [this] { return listener->resume(); });
    // One that stays for a moment only may have left again before anybody looked.
    while (bus.ownerOf(kName) == 0 &&
           status.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
    }
  }
  int left() {
    if (status.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
      listener->stop();
      throw std::runtime_error("the listener stays");
    }
    return status.get();
  }
  // What one client hears.
  Answer call() {
    platform::BusHelperConnections connections(bus.busAddress());
    const auto connection = connections.makeConnection(kName, true);
    connection->setRemoteObjectInterface();
    connection->resume();
    const auto promise = std::make_shared<std::promise<Answer>>();
    auto answer = promise->get_future();
    connection
        ->remoteObjectProxyWithErrorHandler([promise](const RemoteError& error) {
          promise->set_value({std::nullopt, std::nullopt, error});
        })
        ->collect([promise](const auto& data, const auto& message) {
          promise->set_value({data, message, std::nullopt});
        });
    if (answer.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
      throw std::runtime_error("no answer");
    }
    return answer.get();
  }

  static constexpr const char* kName = "app.vesk.native.monitor-helper";
  PrivateBus bus;
  GivenDelegate delegate;
  std::shared_ptr<platform::MainQueue> queue;
  std::unique_ptr<HelperServiceListener> listener;
  std::future<int> status;
};

TEST_F(HelperListenerTest, HandsDataAndMessageOver) {
  delegate.helper->data = Data("{\"half\":\"\u00B7\"}");
  start();
  const auto answer = call();
  EXPECT_EQ(answer.data, Data("{\"half\":\"\u00B7\"}"));
  EXPECT_EQ(answer.message, std::nullopt);
  listener->stop();
  EXPECT_EQ(left(), 0);
}

TEST_F(HelperListenerTest, MessageComesWithoutData) {
  delegate.helper->message = "no tool";
  start();
  const auto answer = call();
  EXPECT_EQ(answer.data, std::nullopt);
  EXPECT_EQ(answer.message, "no tool");
  listener->stop();
  EXPECT_EQ(left(), 0);
}

TEST_F(HelperListenerTest, EachConnectionIsOfTheUserWhomTheBusNames) {
  start();
  (void)call();
  (void)call();
  listener->stop();
  EXPECT_EQ(left(), 0);
  EXPECT_EQ(delegate.users, (std::vector<std::uint32_t>{::getuid(), ::getuid()}));
}

TEST_F(HelperListenerTest, ClientThatTheDelegateRefusesIsTold) {
  delegate.accepts = false;
  start();
  const auto answer = call();
  ASSERT_TRUE(answer.error.has_value());
  EXPECT_EQ(answer.error->domain, "org.freedesktop.DBus.Error.AccessDenied");
  EXPECT_EQ(answer.error->text, "This client may not use the service.");
  listener->stop();
  EXPECT_EQ(left(), 0);
}

TEST_F(HelperListenerTest, LeavesWhenNobodyIsLeft) {
  start(0.2);
  EXPECT_EQ(left(), 0);
  EXPECT_EQ(bus.ownerOf(kName), 0);
}

TEST_F(HelperListenerTest, EndsWithAFailureWhenTheBusIsLost) {
  start();
  bus.kill();
  EXPECT_EQ(left(), 1);
}

TEST(HelperListenerDefaults, AreTheSystemBusAndRoomForManyUsers) {
  const auto options = HelperServiceListener::defaults();
  EXPECT_EQ(options.address.kind, platform::BusAddress::Kind::System);
  EXPECT_EQ(options.address.explicitly, "");
  EXPECT_EQ(options.name, MonitorServiceIdentity::helper);
  EXPECT_EQ(options.limits.peers, 256U);
}

}  // namespace
}  // namespace monitor::tests
