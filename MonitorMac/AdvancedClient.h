// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

#include "MonitorCore/AdvancedSample.h"
#include "MonitorCore/MonitorError.h"
#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/ServiceConnection.h"
#include "MonitorMac/Ports/DaemonRegistry.h"

namespace monitor {

// The application's side of the optional privileged helper: registers it, tracks whether it may be asked, and
// asks it for one sample at a time.
//
// All members are used on the main queue; completions run there, each exactly once. A request that is still
// open when its connection is given up completes with a failure.
class AdvancedClient : public std::enable_shared_from_this<AdvancedClient> {
  struct Passkey {};

 public:
  using Result = std::variant<AdvancedSample, MonitorError>;
  using SampleCompletion = std::function<void(const Result& result)>;
  using StatusCompletion = std::function<void(DaemonStatus status)>;
  using ChangeCompletion = std::function<void(const std::optional<MonitorError>& error)>;

  static constexpr double kTimeoutSeconds = 8.0;
  static constexpr std::string_view kNoReadingsText = "The optional helper did not return readings.";

  // Factory and registry outlive the client. `firstGeneration` is for tests of the counter's end.
  [[nodiscard]] static std::shared_ptr<AdvancedClient> make(
      RemoteConnectionFactory<MonitorHelperProtocol>& factory, DaemonRegistry& registry,
      std::shared_ptr<SerialQueue> mainQueue, std::int64_t firstGeneration = 0);
  AdvancedClient(Passkey, RemoteConnectionFactory<MonitorHelperProtocol>& factory, DaemonRegistry& registry,
                 std::shared_ptr<SerialQueue> mainQueue, std::int64_t firstGeneration);
  ~AdvancedClient();
  AdvancedClient(const AdvancedClient&) = delete;
  AdvancedClient& operator=(const AdvancedClient&) = delete;

  // The last known status; NotRegistered before the first refresh.
  [[nodiscard]] DaemonStatus status() const { return status_; }
  [[nodiscard]] bool hasConnection() const { return connection_ != nullptr; }

  // Reads the status and hands it over. A refresh that was overtaken by a newer one hands its own reading
  // over but leaves the newer one standing.
  void refreshStatus(StatusCompletion completion);
  // Waits for an unregistration under way first.
  void registerDaemon(ChangeCompletion completion);
  void unregisterDaemon(ChangeCompletion completion);
  // Gives the connection up; the next request makes a new one.
  void disconnect();
  void sample(SampleCompletion completion);

 private:
  using Connection = RemoteConnection<MonitorHelperProtocol>;

  void connect();
  void startNewGeneration();
  void removalEnded();

  RemoteConnectionFactory<MonitorHelperProtocol>& factory_;
  DaemonRegistry& registry_;
  const std::shared_ptr<SerialQueue> mainQueue_;
  std::shared_ptr<Connection> connection_;
  std::int64_t generation_;
  std::int64_t statusGeneration_ = 0;
  int removals_ = 0;                                 // unregistrations under way
  std::vector<std::function<void()>> afterRemoval_;  // registrations that wait for them
  DaemonStatus status_ = DaemonStatus::NotRegistered;
};

}  // namespace monitor
