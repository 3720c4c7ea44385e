// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/Time.h"
#include "MonitorMac/AudioClient.h"
#include "Tools/vesk/Agent/HeldGains.h"
#include "Tools/vesk/Agent/KeeperJournal.h"
#include "Tools/vesk/Agent/ProgramPresence.h"

namespace monitor::vesk {

// What the agent does: owns the one client of the audio service, answers requests one after another, and
// keeps every gain that was set until it is changed, its program ends, or the agent goes. While it holds one
// it asks for the list every two seconds, which is also the sign of life without which the service gives
// normal playback back. A gain that is missing from the list is set again, and said to be.
//
// All members are used on the queue that was handed in; replies and handlers run there. Every reply comes
// once.
class GainKeeper {
 public:
  // Why the service's last refusal happened, or an empty text.
  using CauseReply = std::function<void(const std::string& text)>;

  static constexpr double kPollSeconds = 2.0;
  // A timer that is this late means that the agent was stopped.
  static constexpr double kStandstillSeconds = 6.0;
  static constexpr double kCauseSeconds = 1.0;
  static constexpr double kIdleSeconds = 10.0;

  // Collaborators outlive the keeper.
  struct Surroundings {
    std::shared_ptr<SerialQueue> queue;
    const Clock& clock;  // monotonic
    const WallClock& wallClock;
    ProgramPresence& presence;
    // Asks what the platform knows of the last failed request. May be empty; its reply may never come.
    std::function<void(CauseReply)> askCause;
    double idleSeconds = kIdleSeconds;
  };

  struct Answer {
    std::string error;  // empty: done
    std::string cause;  // what the platform knows better, if anything
  };
  struct ListAnswer {
    std::optional<std::vector<AudioApplication>> list;
    std::string message;
    std::string cause;
  };
  struct Status {
    std::vector<HeldGain> held;
    std::optional<double> secondsSinceAnswer;  // since the service last answered with a list
    std::string lastError;                     // of the last failed request; empty once one succeeded
    std::string lastCause;
    std::vector<KeeperJournal::Event> events;  // oldest first
  };

  GainKeeper(std::shared_ptr<AudioClient> client, Surroundings surroundings);
  ~GainKeeper();
  GainKeeper(const GainKeeper&) = delete;
  GainKeeper& operator=(const GainKeeper&) = delete;

  void list(std::function<void(ListAnswer)> reply);
  // `gain` is 0.0…1.0, `id` that of a listed application or a held one. 1.0 releases what was held.
  void setGain(std::string id, double gain, std::function<void(Answer)> reply);
  // Gives one application its normal playback back.
  void release(std::string id, std::function<void(Answer)> reply);
  // The same for all, at once: nothing that is under way is waited for.
  void stopAll();
  [[nodiscard]] Status status() const;
  // Whether nothing is held, asked or under way.
  [[nodiscard]] bool isIdle() const;
  // Restarts the idle time; for requests that the keeper does not see.
  void touch();

  std::function<void()> onIdle;                          // idle for that long
  std::function<void(const std::string& text)> onEvent;  // something happened that nobody asked for

 private:
  enum class Kind : std::uint8_t { List, Poll, Set, Release, Restore };
  struct Operation {
    Kind kind = Kind::Poll;
    std::string id;
    double gain = 1.0;
    AudioApplication app;  // Restore: as listed
    std::function<void(ListAnswer)> listReply;
    std::function<void(Answer)> reply;
  };
  using Step = std::shared_ptr<Operation>;

  // `action` as long as the keeper lives, nothing after that.
  template <class Action>
  [[nodiscard]] auto guarded(Action action) const {
    return [alive = std::weak_ptr<int>(alive_), action = std::move(action)](auto&&... arguments) {
      if (!alive.expired()) action(std::forward<decltype(arguments)>(arguments)...);
    };
  }
  void enqueue(Operation operation);
  void startNext();
  void begin(const Step& step);
  void listArrived(const Step& step, std::optional<std::vector<AudioApplication>> list, std::string message);
  void takeList(const std::vector<AudioApplication>& list, const std::string& message);
  void repair(const std::vector<AudioApplication>& list);
  void proceed(const Step& step, const std::vector<AudioApplication>& list, const std::string& message);
  void send(const Step& step, const AudioApplication& app);
  void gainAnswered(const Step& step, const AudioApplication& app, const std::optional<std::string>& error);
  void gainSet(const Step& step, const AudioApplication& app);
  void gainRefused(const Step& step, const std::string& error);
  void failWithCause(const Step& step, const std::string& error);
  void fail(const Step& step, const std::string& error, const std::string& cause);
  void succeed(const Step& step);
  void finish(const Step& step);
  void serviceLost();
  void tick();
  void poll();
  void pollAt(double time);
  void updateTimer();
  [[nodiscard]] bool isQueued(Kind kind, const std::string& id) const;
  // Takes note of the list's message, too.
  [[nodiscard]] std::string lossReason(const std::string& message);

  std::shared_ptr<AudioClient> client_;
  Surroundings surroundings_;
  KeeperJournal journal_;
  HeldGains held_;
  std::deque<Step> waiting_;
  Step current_;
  std::unique_ptr<RepeatingTimer> timer_;
  double lastTick_ = 0.0;
  double standstill_ = 0.0;  // seconds the agent stood still, until the next list
  std::optional<double> lastAnswer_;
  std::uint64_t uses_ = 0;
  const std::shared_ptr<int> alive_ = std::make_shared<int>();
};

}  // namespace monitor::vesk
