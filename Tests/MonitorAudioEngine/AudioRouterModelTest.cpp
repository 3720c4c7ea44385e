// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

// Random operations on the router and on a small model of what it promises; after each of them both have the
// same routes, gains and message. A second run lets random audio calls fail and checks what holds even then.
namespace monitor {
namespace {

using namespace testing_support;

constexpr const char* kChanged = "This audio app changed or closed. Refresh the app list.";
constexpr const char* kFormat =
    "This output format is not supported for app volume. Use a stereo output. Normal playback is unchanged.";

// The programs, the default output, and what is routed, by the rules alone.
class RouterModel {
 public:
  std::map<std::string, std::set<std::int32_t>> programs;
  std::map<std::string, double> routes;
  std::optional<std::string> message;
  bool usableOutput = true;

  // The refusal's text; empty on success.
  std::string setGain(double gain, const std::string& id, bool exactKeys) {
    heartbeat_ = now_;
    const auto program = programs.find(id);
    if (!(gain >= 0.0 && gain <= 1.0) || !exactKeys || program == programs.end()) return kChanged;
    pending_.erase(id);
    if (gain == 1.0) {
      routes.erase(id);
    } else if (routes.contains(id)) {
      routes[id] = gain;  // its processes are up to date: changes are heard of at once
    } else if (usableOutput) {
      routes[id] = gain;
    } else {
      return kFormat;
    }
    return {};
  }
  void list() { heartbeat_ = now_; }
  void stop() {
    ++generation_;
    pending_.clear();
    routes.clear();
  }
  void outputChanged(bool usable) {
    usableOutput = usable;
    for (const auto& [id, gain] : routes) pending_[id] = {programs.at(id), gain};
    routes.clear();
    restores_.emplace(now_ + AudioRouter::kRestoreSeconds, ++generation_);
  }
  void join(const std::string& id, std::int32_t pid) {
    programs[id].insert(pid);
    rebuild(id);
  }
  void leave(const std::string& id, std::int32_t pid) {
    programs[id].erase(pid);
    if (programs[id].empty()) {
      programs.erase(id);
      routes.erase(id);
    } else {
      rebuild(id);
    }
  }
  void advanceTo(double end) {
    while (true) {
      const double restore = restores_.empty() ? end + 1.0 : restores_.begin()->first;
      const double next = std::min(nextTick_, restore);
      if (next > end) break;
      now_ = next;
      // A tick and a restore are never due at the same time: 0.4 s is no sum of powers of two.
      if (restore < nextTick_) {
        const std::uint64_t generation = restores_.begin()->second;
        restores_.erase(restores_.begin());
        if (generation == generation_ && now_ - heartbeat_ < 8.0) restoreAll();
      } else {
        nextTick_ += 1.0;
        if (now_ - heartbeat_ > 8.0) stop();
      }
    }
    now_ = end;
  }

 private:
  struct Intent {
    std::set<std::int32_t> pids;
    double gain = 1.0;
  };

  void rebuild(const std::string& id) {
    const auto route = routes.find(id);
    if (route == routes.end()) return;
    const double gain = route->second;
    routes.erase(route);
    const std::string refusal = setGain(gain, id, true);
    if (!refusal.empty()) message = "Audio processes changed. " + refusal;
  }
  void restoreAll() {
    for (const auto& [id, intent] : std::exchange(pending_, {})) {
      const auto program = programs.find(id);
      const bool exact = program != programs.end() && program->second == intent.pids;
      const std::string refusal = setGain(intent.gain, id, exact);
      if (!refusal.empty()) message = "Output changed. " + refusal;
    }
  }

  double now_ = 0.0;
  double nextTick_ = 1.0;
  double heartbeat_ = 0.0;
  std::uint64_t generation_ = 0;
  std::map<std::string, Intent> pending_;
  std::multimap<double, std::uint64_t> restores_;
};

class RandomRun {
 public:
  explicit RandomRun(std::uint32_t seed) : random_(seed) {
    stereo_ = world_.hardware.addDevice("other", fakes::floatFormat(2, 44'100.0));
    mono_ = world_.hardware.addDevice("mono", fakes::floatFormat(1, 48'000.0));
    speakers_ = world_.hardware.defaultOutput();
  }

  // With the model beside it.
  void compare(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step) + ": " + doSomething());
      expectLikeModel();
    }
  }
  // Without a model, with calls that fail.
  void withFailures(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      if (chance(3)) {
        if (chance(4)) {
          world_.hardware.failFrom(upTo(30) + 1, -5);
        } else {
          world_.hardware.failCall(upTo(30) + 1, -5);
        }
      }
      SCOPED_TRACE("step " + std::to_string(step) + ": " + doSomething());
      expectNothingHalf();
      if (chance(2)) world_.hardware.failNothing();
      world_.hardware.forgetCalls();
    }
    world_.hardware.failNothing();
    world_.stop();
    world_.expectWholeRoutes(0);
  }

 private:
  std::uint32_t upTo(std::uint32_t bound) {
    return std::uniform_int_distribution<std::uint32_t>(0, bound - 1)(random_);
  }
  bool chance(std::uint32_t oneIn) { return upTo(oneIn) == 0; }

  std::string doSomething() {
    switch (upTo(10)) {
      case 0:
      case 1:
      case 2:
        return setGain();
      case 3:
        return join();
      case 4:
        return leave();
      case 5:
        return changeOutput();
      case 6:
        return pauseOrResume();
      case 7:
        if (chance(3)) {
          world_.stop();
          model_.stop();
          return "stop";
        }
        world_.onQueue([this] {
          try {
            (void)world_.router->applications();
          } catch (const AudioRouteError&) {
          }
        });
        model_.list();
        return "list";
      default:
        return passTime();
    }
  }

  std::string setGain() {
    static const double kGains[] = {0.0, 0.25, 0.5, 0.75, 1.0, 1.5, -1.0, std::nan("")};
    const double gain = kGains[upTo(std::size(kGains))];
    const std::string id = "app " + std::to_string(upTo(4));
    std::vector<ProcessKey> keys;
    const auto program = model_.programs.find(id);
    if (program != model_.programs.end()) {
      for (const std::int32_t pid : program->second) keys.push_back(keyOf(pid));
    }
    std::shuffle(keys.begin(), keys.end(), random_);
    const bool exact = !chance(5);
    if (!exact) keys.push_back({1, 1});
    const auto refusal = world_.setGain(gain, keys);
    const std::string expected = model_.setGain(gain, id, exact);
    if (!failing()) {
      EXPECT_EQ(refusal ? refusal->what() : std::string(), expected);
    }
    return "gain " + std::to_string(gain) + " for " + id;
  }
  std::string join() {
    const std::string id = "app " + std::to_string(upTo(4));
    const std::int32_t pid = ++lastPid_;
    world_.play(pid, id, chance(2));
    model_.join(id, pid);
    return std::to_string(pid) + " joins " + id;
  }
  std::string leave() {
    std::vector<std::pair<std::string, std::int32_t>> all;
    for (const auto& [id, pids] : model_.programs) {
      for (const std::int32_t pid : pids) all.emplace_back(id, pid);
    }
    if (all.empty()) return "nobody leaves";
    const auto [id, pid] = all[upTo(static_cast<std::uint32_t>(all.size()))];
    world_.leave(pid);
    model_.leave(id, pid);
    return std::to_string(pid) + " leaves " + id;
  }
  std::string changeOutput() {
    const AudioObjectID outputs[] = {speakers_, stereo_, speakers_, stereo_, mono_, 0};
    const AudioObjectID output = outputs[upTo(std::size(outputs))];
    world_.hardware.setDefaultOutput(output);
    world_.time.run();
    model_.outputChanged(output == speakers_ || output == stereo_);
    return "output " + std::to_string(output);
  }
  std::string pauseOrResume() {
    if (lastPid_ == 1000) return "nobody to pause";
    const std::int32_t pid =
        1001 + static_cast<std::int32_t>(upTo(static_cast<std::uint32_t>(lastPid_ - 1000)));
    const AudioObjectID object = world_.hardware.processOf(pid);
    if (object != 0) world_.setRunning(pid, !world_.hardware.process(object).running);
    return "pause or resume " + std::to_string(pid);
  }
  std::string passTime() {
    const double seconds = chance(6) ? 9.5 : 0.125 * (1 + upTo(16));
    for (double passed = 0.0; passed < seconds; passed += 0.125) {
      world_.hardware.runCycles();
      world_.time.advance(0.125);
    }
    model_.advanceTo(world_.time.now());
    return std::to_string(seconds) + " s pass";
  }

  bool failing() const { return !compares_; }

  void expectLikeModel() {
    world_.expectWholeRoutes(model_.routes.size());
    for (const auto& [id, pids] : model_.programs) {
      const auto route = model_.routes.find(id);
      const double gain = route != model_.routes.end() ? route->second : 1.0;
      for (const std::int32_t pid : pids) {
        EXPECT_EQ(world_.level(pid), static_cast<float>(gain)) << id;
        EXPECT_EQ(world_.hardware.isMuted(world_.hardware.processOf(pid)), gain != 1.0) << id;
      }
    }
    if (!chance(4)) return;
    const auto listing = world_.list();  // a heartbeat, so not every time
    model_.list();
    EXPECT_EQ(listing.message, model_.message);
    EXPECT_EQ(listing.applications.size(), model_.programs.size());
    for (const AudioApplication& application : listing.applications) {
      const auto route = model_.routes.find(application.id);
      EXPECT_EQ(application.gain, route != model_.routes.end() ? route->second : 1.0);
    }
  }

  // A tap, a device and a running procedure belong together, and whoever is muted is played.
  void expectNothingHalf() {
    world_.expectWholeRoutes(world_.hardware.taps().size());
    std::set<AudioObjectID> tapped;
    for (const auto& [id, tap] : world_.hardware.taps()) {
      for (const AudioObjectID process : tap.description.processes) {
        EXPECT_TRUE(tapped.insert(process).second) << "tapped twice";
        EXPECT_TRUE(world_.hardware.isMuted(process));
        EXPECT_NE(world_.hardware.routeOf(process), 0U);
      }
    }
  }

 public:
  bool compares_ = true;

 private:
  std::mt19937 random_;
  RouterWorld world_;
  RouterModel model_;
  AudioObjectID speakers_ = 0;
  AudioObjectID stereo_ = 0;
  AudioObjectID mono_ = 0;
  std::int32_t lastPid_ = 1000;
};

// VESK_LONG=1 asks for many more.
std::uint32_t seeds() {
  return std::getenv("VESK_LONG") != nullptr ? 5000 : 60;
}

TEST(AudioRouterModel, TheRouterDoesWhatTheRulesSay) {
  for (std::uint32_t seed = 1; seed <= seeds() && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomRun(seed).compare(120);
  }
}

TEST(AudioRouterModel, NothingIsEverHalfWhicheverCallsFail) {
  for (std::uint32_t seed = 1; seed <= seeds() && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomRun run(seed);
    run.compares_ = false;
    run.withFailures(120);
  }
}

}  // namespace
}  // namespace monitor
