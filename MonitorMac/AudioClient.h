// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/ServiceConnection.h"

namespace monitor {

// A client of the audio service: lists the programs that play audio, sets one program's gain, stops all
// routing. Owns at most one connection and guards every request with a time-out.
//
// All members are used on the main queue; completions and onDisconnect run there. The first of reply, error
// and time-out completes a request, once. Whatever belongs to a connection that was stopped or lost is silent
// from then on: its requests that are still open never complete, the owner has stop() or onDisconnect
// instead. Releasing the client silences everything and ends the connection.
class AudioClient : public std::enable_shared_from_this<AudioClient> {
  struct Passkey {};

 public:
  // The list, or nothing and a message. A list may come with a message too: something that went wrong since.
  using ApplicationsCompletion = std::function<void(std::optional<std::vector<AudioApplication>> list,
                                                    std::optional<std::string> message)>;
  // Nothing on success, otherwise a message to show.
  using SetGainCompletion = std::function<void(std::optional<std::string> message)>;

  static constexpr double kRequestTimeoutSeconds = 5.0;
  // How long a stopped connection stays open so that the service still receives the stop.
  static constexpr double kInvalidationDelaySeconds = 1.0;
  static constexpr std::string_view kListTimeoutText =
      "The audio service did not respond. Normal playback has been restored.";
  static constexpr std::string_view kGainTimeoutText =
      "The volume change timed out. App Volume has been turned off.";

  // The factory outlives the client. `firstGeneration` is for tests of the counter's end.
  [[nodiscard]] static std::shared_ptr<AudioClient> make(
      RemoteConnectionFactory<MonitorAudioProtocol>& factory, std::shared_ptr<SerialQueue> mainQueue,
      std::int64_t firstGeneration = 0);
  AudioClient(Passkey, RemoteConnectionFactory<MonitorAudioProtocol>& factory,
              std::shared_ptr<SerialQueue> mainQueue, std::int64_t firstGeneration);
  ~AudioClient();
  AudioClient(const AudioClient&) = delete;
  AudioClient& operator=(const AudioClient&) = delete;

  // Makes the connection if there is none. The requests do so themselves.
  void connect();
  void applications(ApplicationsCompletion completion);
  // Sends `gain` as it is to the processes of `app`.
  void setGain(double gain, const AudioApplication& app, SetGainCompletion completion);
  // Ends all routing and forgets the connection; nothing is awaited.
  void stop();

  // The connection was lost, and with it every gain. At most once per connection; the next request connects
  // again.
  std::function<void()> onDisconnect;

 private:
  using Connection = RemoteConnection<MonitorAudioProtocol>;

  // What handlers and time-outs carry: it finds the client only while that lives and still has the generation
  // of the ticket's issue.
  struct Ticket {
    // Weak, since delayed tasks carry tickets too: they must not keep their own queue.
    std::weak_ptr<SerialQueue> mainQueue;
    std::weak_ptr<AudioClient> client;
    std::int64_t generation = 0;

    // Main queue only. Null when the ticket is void.
    [[nodiscard]] std::shared_ptr<AudioClient> holder() const;
    // From any thread: runs `action` on the main queue unless the ticket is void by then.
    void post(std::function<void(AudioClient&)> action) const;
  };

  [[nodiscard]] Ticket issueTicket();
  void startNewGeneration();
  void connectionLost();

  RemoteConnectionFactory<MonitorAudioProtocol>& factory_;
  const std::shared_ptr<SerialQueue> mainQueue_;
  std::shared_ptr<Connection> connection_;
  std::int64_t generation_;
};

}  // namespace monitor
