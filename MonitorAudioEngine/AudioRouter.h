// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "MonitorAudioEngine/ApplicationLister.h"
#include "MonitorAudioEngine/ProcessAudioRoute.h"
#include "MonitorAudioEngine/SilenceWatch.h"
#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/AudioRouteRecovery.h"
#include "MonitorCore/Ports/AudioHardware.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/Time.h"

namespace monitor {

// What a router works with. The references outlive it; the process table and the bundles are asked from every
// router's own thread.
struct AudioRouterPorts {
  std::shared_ptr<AudioHardware> hardware;  // a view of the router's own
  SerialQueueFactory& queues;
  const Clock& clock;  // monotonic; stands still during suspend, so that a woken machine keeps its routes
  ProcessTable& processes;
  ApplicationBundles& bundles;
  const SystemInformation& system;
  UuidSource makeUuid;
  // Of the whole service and outliving it, where a denied permission gives silence instead of an error; null
  // turns the rule about it off.
  SilenceWatch* silence = nullptr;
};

// The engine's root object, one for each client: lists the applications that use audio, keeps one route for
// each application whose gain is not 1.0, watches its routes and its client once a second, and follows
// changes of the default output device and of the audio processes. Every failure path restores normal
// playback.
//
// Threads: everything happens on the router's own serial queue, `queue()`; applications(), setGain(), stop(),
// isRouting() and lastCause() are to be called there. Callbacks hold the router weakly. The last reference may be dropped
// anywhere: the router's end, with its routes', happens on its queue, whose thread ends after it.
class AudioRouter : public std::enable_shared_from_this<AudioRouter> {
 public:
  static constexpr std::string_view kQueueLabel = "app.vesk.monitor.audio";
  static constexpr double kTickSeconds = 1.0;
  // A client that is not heard of for longer is gone or hung.
  static constexpr double kHeartbeatSeconds = 8.0;
  // A route of a playing application that does not render for as long has stalled.
  static constexpr double kStallSeconds = 3.0;
  // A route of a service that never heard a sound, in the presence of a program that reports output for as
  // long, is taken for one without permission: it is ended with this message.
  static constexpr double kOnlySilenceSeconds = 10.0;
  static constexpr std::string_view kOnlySilenceText =
      "App Volume hears only silence. If this program should be audible, check System Settings → Privacy & "
      "Security → Screen & System Audio Recording.";
  // How long a new output device is given to settle.
  static constexpr double kRestoreSeconds = 0.4;
  static constexpr std::size_t kMostKeys = 128;

  struct Listing {
    std::vector<AudioApplication> applications;
    std::optional<std::string> message;  // what went wrong in a callback, if ever anything did
  };

  // From any thread. What the queue's factory throws.
  [[nodiscard]] static std::shared_ptr<AudioRouter> make(AudioRouterPorts ports);
  ~AudioRouter();
  AudioRouter(const AudioRouter&) = delete;
  AudioRouter& operator=(const AudioRouter&) = delete;

  // From any thread.
  [[nodiscard]] const std::shared_ptr<SerialQueue>& queue() const { return queue_; }

  [[nodiscard]] Listing applications();
  // Sets the gain of the application whose processes are exactly `keys`, in any order; 1.0 is normal
  // playback. AudioRouteError `changedProcess` unless the gain is 0.0…1.0 and `keys` are the 1…128 processes
  // of an application that is listed now; what building a route throws.
  void setGain(double gain, const std::vector<ProcessKey>& keys);
  // Normal playback for all.
  void stop();
  // Whether stop() has anything to take down, which may take seconds.
  [[nodiscard]] bool isRouting() const { return !routes_.empty(); }
  // Why the last request failed, or what the standing message came from, in the words of whoever knows best;
  // code 0 and an empty text when nothing has failed yet.
  [[nodiscard]] const AudioFailure& lastCause() const { return lastCause_; }

 private:
  explicit AudioRouter(AudioRouterPorts ports);
  static void endOnItsQueue(AudioRouter* router);
  void start();
  void registerListeners();
  void listen(const AudioObjectAddress& address, void (AudioRouter::*handler)(),
              std::shared_ptr<const AudioPropertyListener>& listener);
  void stopListening(const AudioObjectAddress& address,
                     std::shared_ptr<const AudioPropertyListener>& listener);

  [[nodiscard]] std::vector<ListedApplication> listApplications() const;
  void applyGain(double gain, const std::vector<ProcessKey>& keys);
  void buildRoute(const ListedApplication& application, double gain);
  void tick();
  [[nodiscard]] std::optional<std::string> reasonToEnd(const ProcessAudioRoute& route, double now) const;
  [[nodiscard]] bool hearsOnlySilence(const ProcessAudioRoute& route, double now) const;
  void outputChanged();
  void restore(std::uint64_t generation);
  void processesChanged();
  // Sets a gain from a callback; `prefix` begins the standing message when that fails.
  void setGainAgain(double gain, const std::vector<ProcessKey>& keys, const char* prefix);

  void noteCause(const std::exception& error);
  void keepMessage(const std::exception& error, const char* prefix = "");

  const std::shared_ptr<SerialQueue> queue_;
  const AudioRouterPorts ports_;
  const ApplicationLister lister_;
  std::map<std::string, std::unique_ptr<ProcessAudioRoute>> routes_;  // by application id
  std::unique_ptr<RepeatingTimer> timer_;
  std::shared_ptr<const AudioPropertyListener> outputListener_;   // null unless registered
  std::shared_ptr<const AudioPropertyListener> processListener_;  // null unless registered
  std::uint64_t generation_ = 0;  // bumped by what makes a delayed restore obsolete
  AudioRouteRecovery recovery_;
  std::optional<std::string> lastError_;
  double clientHeartbeat_;
  std::set<std::string>
      playing_;  // ids that produced output when processes last changed or their route was built
  AudioFailure lastCause_;
};

}  // namespace monitor
