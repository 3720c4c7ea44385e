// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "MonitorCore/AdvancedSample.h"
#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/Time.h"

namespace monitor {

// When the power-metrics tool runs, for whom, and who shares what it gives.
//
// One run at a time, each for one user. A caller gets the result of a run for its user that began after the
// call: those who call while another run is under way share the next one, and users take turns in the order
// of their first waiting call. Runs begin at least a second apart, whoever they are for, so that calling more
// often makes nothing finer. What nobody waits for any more is not run.
//
// Any thread; replies run on `queue`.
class SharedCollection : public std::enable_shared_from_this<SharedCollection> {
 public:
  using Reply = MonitorHelperProtocol::CollectReply;

  // Users may be told no, before and after they have been told yes: the answer is asked for at each call.
  using MayCollect = std::function<bool(std::uint32_t user)>;
  // One run, attributed to the processes of `owner`: blocks, and throws what it fails with.
  using Collect = std::function<AdvancedSample(std::uint32_t owner)>;

  struct Ports {
    std::shared_ptr<SerialQueue> queue;   // the schedule's own
    std::shared_ptr<SerialQueue> worker;  // for `collect`, which blocks
    const Clock& clock;                   // monotonic; outlives the schedule
    MayCollect mayCollect;                // called on `queue`
    Collect collect;                      // called on `worker`
  };

  static constexpr double kSecondsBetweenRuns = 1.0;
  static constexpr std::size_t kMostWaiting = 64;  // calls of one user
  static constexpr std::string_view kBusyText = "Too many requests for readings are waiting.";

  explicit SharedCollection(Ports ports) : ports_(std::move(ports)) {}

  // `caller` is whoever asks: once it has gone, its call is forgotten unless its run has begun.
  void request(std::uint32_t user, std::weak_ptr<const void> caller, Reply reply);

 private:
  struct Call {
    std::weak_ptr<const void> caller;
    Reply reply;
  };
  struct Turn {
    std::uint32_t user;
    std::vector<Call> calls;
  };
  // What a run gives to all its callers.
  struct Outcome {
    std::optional<Data> data;
    std::optional<std::string> message;
  };

  void add(std::uint32_t user, Call call);
  void forgetThoseGone();
  void runNext();
  void run(std::uint32_t user);
  void finish(const Outcome& outcome);
  [[nodiscard]] static Outcome outcomeOf(const Collect& collect, std::uint32_t owner);

  const Ports ports_;
  // The queue only.
  std::deque<Turn> waiting_;    // one for each user
  std::vector<Reply> running_;  // who shares the run under way
  bool runs_ = false;
  bool timerSet_ = false;
  std::optional<double> lastBegin_;
};

}  // namespace monitor
