// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <regex>
#include <string>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

// Every operation of the router with its first, second, … n-th audio call failing, once and for good, until
// it makes no more calls: whatever happens, the state is whole, in order, and works on.
namespace monitor {
namespace {

using namespace testing_support;

// Two processes of one program and two programs of one process; the operation works on the first.
struct FailureWorld : RouterWorld {
  FailureWorld() {
    play(812, "org.example.suite");
    play(900);
    play(901);
  }
};

struct Operation {
  const char* name;
  std::function<void(FailureWorld&)> prepare;
  std::function<void(FailureWorld&)> run;
};

void PrintTo(const Operation& operation, std::ostream* stream) {
  *stream << operation.name;
}

void routeAll(FailureWorld& world) {
  EXPECT_EQ(world.setGain(0.4, 812), std::nullopt);
  EXPECT_EQ(world.setGain(0.5, 900), std::nullopt);
  EXPECT_EQ(world.setGain(0.6, 901), std::nullopt);
}

void changeOutput(FailureWorld& world) {
  world.hardware.setDefaultOutput(world.hardware.addDevice("new", fakes::floatFormat(2, 44'100.0)));
  world.time.run();
  world.time.advance(0.4);
}

const Operation kOperations[] = {
    {"First gain", [](FailureWorld&) {}, [](FailureWorld& world) { (void)world.setGain(0.4, 812); }},
    {"Gain in place", routeAll, [](FailureWorld& world) { (void)world.setGain(0.2, 812); }},
    {"Full gain", routeAll, [](FailureWorld& world) { (void)world.setGain(1.0, 812); }},
    {"Gain of a changed program",
     [](FailureWorld& world) {
       routeAll(world);
       world.hardware.notifies = false;
       world.play(813, "org.example.suite");
     },
     [](FailureWorld& world) {
       (void)world.setGain(0.2, {keyOf(812), keyOf(813)});
     }},
    {"A process that joins", routeAll, [](FailureWorld& world) { world.play(813, "org.example.suite"); }},
    {"A program that leaves", routeAll, [](FailureWorld& world) { world.leave(812); }},
    {"A changed output", routeAll, changeOutput},
    {"Stop", routeAll, [](FailureWorld& world) { world.stop(); }},
    {"A list", routeAll,
     [](FailureWorld& world) {
       world.onQueue([&] {
         try {
           (void)world.router->applications();
         } catch (const AudioRouteError&) {
         }
       });
     }},
    {"A second of the watchdog", routeAll, [](FailureWorld& world) { world.playFor(1.0); }},
    {"The end", routeAll,
     [](FailureWorld& world) {
       world.router = world.makeRouter();  // releases the old one
       world.time.run();
     }},
};

// Routes are built from the tap on and undone from wherever building stopped, one after the other, and
// nothing else.
void expectOrder(const FailureWorld& world) {
  const std::map<std::string, char> letters{{"createProcessTap", 'T'},
                                            {"createAggregateDevice", 'A'},
                                            {"createIOProc", 'I'},
                                            {"startDevice", 'S'},
                                            {"stopDevice", 's'},
                                            {"destroyIOProc", 'i'},
                                            {"destroyAggregateDevice", 'a'},
                                            {"destroyProcessTap", 't'}};
  std::string text;
  for (const std::string& call : world.hardware.routeCalls()) text += letters.at(call);
  static const std::regex kOrder("(TAISsiat|TAIS|TAIat|TAt|Tt|T|siat)*");
  EXPECT_TRUE(std::regex_match(text, kOrder)) << text;
}

// The list tells the truth, and every program is heard exactly once at the gain that it tells.
void expectWhole(FailureWorld& world) {
  std::size_t routes = 0;
  for (const AudioApplication& application : world.list().applications) {
    routes += application.gain != 1.0 ? 1U : 0U;
    for (const ProcessKey& key : application.processes) {
      EXPECT_EQ(world.level(key.pid), static_cast<float>(application.gain)) << application.id;
      EXPECT_EQ(world.hardware.isMuted(world.hardware.processOf(key.pid)), application.gain != 1.0);
    }
  }
  world.expectWholeRoutes(routes);
}

void expectWorksOn(FailureWorld& world) {
  for (const AudioApplication& application : world.list().applications) {
    EXPECT_EQ(world.setGain(0.3, application.processes), std::nullopt);
  }
  for (const AudioApplication& application : world.list().applications) EXPECT_EQ(application.gain, 0.3);
  expectWhole(world);
  world.stop();
  world.expectWholeRoutes(0);
}

class AudioRouterFailureTest : public testing::TestWithParam<Operation> {
 protected:
  // Runs the operation in a world where its n-th call meets `trouble`; whether it made that many calls.
  static bool runWith(std::size_t n, const std::function<void(FailureWorld&)>& trouble,
                      const std::function<void(FailureWorld&)>& after) {
    FailureWorld world;
    GetParam().prepare(world);
    world.hardware.forgetCalls();
    std::size_t calls = 0;
    world.hardware.beforeCall = [&](const std::string&) {
      if (++calls == n) trouble(world);
    };
    GetParam().run(world);
    world.hardware.beforeCall = nullptr;
    expectOrder(world);
    after(world);
    world.hardware.failNothing();
    // A single property that could not be read is caught up with when the processes are looked at next.
    world.hardware.notifies = true;
    world.hardware.notify(audio::kProcessObjectList);
    world.time.run();
    expectWhole(world);
    expectWorksOn(world);
    return calls >= n;
  }
};

constexpr std::size_t kEndless = 500;

TEST_P(AudioRouterFailureTest, OneFailedCallLeavesAWholeState) {
  std::size_t n = 1;
  while (n < kEndless && !HasFailure() &&
         runWith(
             n, [](FailureWorld& world) { world.hardware.failCall(1, -5); }, [](FailureWorld&) {})) {
    ++n;
  }
  EXPECT_LT(n, kEndless);
}

TEST_P(AudioRouterFailureTest, AnAudioSystemThatFailsForGoodLeavesAWholeState) {
  std::size_t n = 1;
  while (n < kEndless && !HasFailure() &&
         runWith(
             n, [](FailureWorld& world) { world.hardware.failFrom(1, -110); }, [](FailureWorld&) {})) {
    ++n;
  }
  EXPECT_LT(n, kEndless);
}

TEST_P(AudioRouterFailureTest, AServerThatDiesAndReturnsGetsItsRoutesBackOrAMessageWithinThreeSeconds) {
  const auto recover = [](FailureWorld& world) {
    world.time.advance(0.5);
    world.hardware.returnServer();
    world.time.run();
    for (int step = 0; step < 10; ++step) world.playFor(0.25);
    // What is not routed as before was ended by the operation, or is told.
    const auto listing = world.list();
    for (const AudioApplication& application : listing.applications) {
      if (application.gain == 1.0 && application.id.starts_with("process:") && !listing.message) {
        const std::string name = GetParam().name;
        EXPECT_TRUE(name == "First gain" || name == "Stop" || name == "The end") << name;
      }
    }
  };
  std::size_t n = 1;
  while (n < kEndless && !HasFailure() &&
         runWith(
             n, [](FailureWorld& world) { world.hardware.loseServer(); }, recover)) {
    ++n;
  }
  EXPECT_LT(n, kEndless);
}

INSTANTIATE_TEST_SUITE_P(Operations, AudioRouterFailureTest, testing::ValuesIn(kOperations),
                         [](const auto& instance) {
                           std::string name = instance.param.name;
                           std::erase(name, ' ');
                           return name;
                         });

}  // namespace
}  // namespace monitor
