// SPDX-License-Identifier: MIT
// What a request costs beyond the bus that carries it, and what a service costs that nobody asks anything.
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "Benchmarks/Harness/Suite.h"
#include "Benchmarks/Ipc/BusFloor.h"
#include "Benchmarks/Ipc/OneProcessor.h"
#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Platform/Linux/Ipc/BusNames.h"
#include "Tests/Platform/Ipc/PrivateBus.h"
#include "Tools/AudioLab/BuiltServices.h"
#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/PrivateStack.h"

namespace monitor::bench {
namespace {

namespace names = platform::names;
using SteadyClock = std::chrono::steady_clock;

constexpr int kPrograms = 20;
// Of each kind in one sample.
constexpr int kCalls = 8;

double secondsOf(const std::function<void()>& work) {
  const auto begin = SteadyClock::now();
  work();
  return std::chrono::duration<double>(SteadyClock::now() - begin).count();
}

struct Destination {
  const char* name;
  const char* path;
  const char* interface;
};

const Destination kService{MonitorServiceIdentity::audio.data(), names::kAudioPath, names::kAudioInterface};
const Destination kDiagnostics{kService.name, names::kAudioPath, names::kAudioDiagnosticsInterface};
const Destination kFloor{bus_floor::kName, bus_floor::kPath, bus_floor::kInterface};

// A client's connection. Every call waits for its answer.
class Line {
 public:
  explicit Line(const std::string& address) {
    sd_bus* made = nullptr;
    require(sd_bus_new(&made), "sd_bus_new");
    bus_.reset(made);
    require(sd_bus_set_address(made, address.c_str()), "sd_bus_set_address");
    require(sd_bus_set_bus_client(made, 1), "sd_bus_set_bus_client");
    require(sd_bus_start(made), "sd_bus_start");
  }

  template <class... Arguments>
  platform::Message call(const Destination& destination, const char* member, const char* types,
                         Arguments... arguments) {
    sd_bus_message* reply = nullptr;
    require(sd_bus_call_method(bus_.get(), destination.name, destination.path, destination.interface, member,
                               nullptr, &reply, types, arguments...),
            member);
    return platform::Message(reply);
  }

  void setGain(double gain, const std::string& processes) {
    sd_bus_message* made = nullptr;
    require(sd_bus_message_new_method_call(bus_.get(), &made, kService.name, kService.path,
                                           kService.interface, "SetGain"),
            "SetGain");
    const platform::Message message(made);
    require(sd_bus_message_append_basic(made, 'd', &gain), "SetGain");
    require(platform::appendData(made, processes), "SetGain");
    sd_bus_message* replied = nullptr;
    require(sd_bus_call(bus_.get(), made, 0, nullptr, &replied), "SetGain");
    const platform::Message reply(replied);
    std::string refusal;
    require(platform::readText(replied, refusal), "SetGain");
    if (!refusal.empty()) throw std::runtime_error("SetGain: " + refusal);
  }

  // The bytes of the list.
  std::size_t applications() {
    const auto reply = call(kService, "Applications", nullptr);
    Data list;
    require(platform::readData(reply.get(), SIZE_MAX, list), "Applications");
    return list.size();
  }

  // The process of the audio service; it must run.
  pid_t servicePid() {
    const Destination bus{names::kBus, names::kBusPath, names::kBus};
    const auto reply = call(bus, "GetConnectionUnixProcessID", "s", kService.name);
    std::uint32_t pid = 0;
    require(sd_bus_message_read_basic(reply.get(), 'u', &pid), "GetConnectionUnixProcessID");
    return static_cast<pid_t>(pid);
  }

 private:
  static void require(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + ": error " + std::to_string(-result));
  }

  platform::Bus bus_;
};

// The audio service over a made-up audio system, and the floor, on a bus of their own. Everything shares one
// processor: between two of them, most of a round trip is the waking of processors.
class Requests {
 public:
  Requests() : Requests(OneProcessor()) {}

  // What a call without arguments takes beyond one that does nothing.
  double beyondTheBus(const Destination& destination, const char* member) {
    const OneProcessor one;
    double seconds = 0.0;
    for (int call = 0; call < kCalls; ++call) {
      seconds += secondsOf([&] { line_.call(destination, member, nullptr); });
      seconds -= secondsOf([&] { line_.call(kFloor, "Stop", nullptr); });
    }
    return seconds / kCalls;
  }
  double busAlone() {
    const OneProcessor one;
    return perCall([this] { line_.call(kFloor, "Stop", nullptr); });
  }
  double applications() {
    const OneProcessor one;
    return perCall([this] { (void)line_.applications(); });
  }
  double asManyBytes() {
    const OneProcessor one;
    return perCall([this] { line_.call(kFloor, "Bytes", "u", static_cast<std::uint32_t>(list_)); });
  }
  // On a session whose route is there already.
  double setGainInPlace() {
    const OneProcessor one;
    setNextGain();
    return perCall([this] { setNextGain(); });
  }

 private:
  explicit Requests(const OneProcessor& /*whileStarting*/) : list_(line_.applications()) {}

  static double perCall(const std::function<void()>& call) {
    return secondsOf([&] {
             for (int done = 0; done < kCalls; ++done) call();
           }) /
           kCalls;
  }
  void setNextGain() {
    gain_ = gain_ == 0.4 ? 0.5 : 0.4;
    router_.setGain(gain_, R"([{"pid":100001,"start":1700000000000000}])");
  }
  static tests::PrivateBus::Options activations() {
    const std::string service = std::string(VESK_MADE_UP_SERVICE) + " --programs " + std::to_string(kPrograms);
    return {.activations = {{kService.name, service}, {kFloor.name, VESK_BUS_FLOOR}}};
  }

  tests::PrivateBus bus_{activations()};
  Line line_{bus_.address()};
  Line router_{bus_.address()};
  std::size_t list_;  // bytes
  double gain_ = 0.5;
};

// Nanoseconds that all threads of a process have had on a processor.
std::uint64_t processorNanoseconds(pid_t pid) {
  std::uint64_t sum = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::uint64_t time = 0;
    std::ifstream(task.path() / "schedstat") >> time;
    sum += time;
  }
  // A process that has run has had some, unless the kernel does not count.
  if (sum == 0) throw std::runtime_error("the kernel does not say how long the service ran");
  return sum;
}

double residentMegabytes(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; status >> word;) {
    std::size_t kibibytes = 0;
    if (word == "VmRSS:" && status >> kibibytes) return static_cast<double>(kibibytes) * 1024e-6;
  }
  throw std::runtime_error("the service has gone");
}

// The real service on a private audio system, after a client has come and gone. Looked at once.
struct Idleness {
  double megabytes = 0.0;
  double millisecondsPerSecond = 0.0;

  Idleness() {
    constexpr std::chrono::seconds kSettle(1);
    constexpr std::chrono::seconds kWatch(4);
    lab::StackOptions options;
    options.pulse = false;
    options.bus = true;
    options.activations = lab::builtServices();
    const lab::PrivateStack stack(options);
    std::optional<Line> client(stack.busAddress());
    (void)client->applications();
    const pid_t pid = client->servicePid();
    client.reset();
    std::this_thread::sleep_for(kSettle);
    const auto before = processorNanoseconds(pid);
    const double seconds = secondsOf([&] { std::this_thread::sleep_for(kWatch); });
    millisecondsPerSecond = static_cast<double>(processorNanoseconds(pid) - before) * 1e-6 / seconds;
    megabytes = residentMegabytes(pid);
  }
};

// Made when it is first needed: the names of measurements can be listed without it.
template <class Thing>
class Lazily {
 public:
  Thing& operator*() {
    if (thing_ == nullptr) thing_ = std::make_unique<Thing>();
    return *thing_;
  }
  Thing* operator->() { return &**this; }

 private:
  std::unique_ptr<Thing> thing_;
};

void addRequests(Suite& suite) {
  const auto requests = std::make_shared<Lazily<Requests>>();
  const Work bus{"round trip of the bus", {}, [requests] { return (*requests)->busAlone(); }};
  suite.add(Comparison{.name = "Stop beyond the bus",
                       .product = {"Stop", {}, [requests] { return (*requests)->beyondTheBus(kService, "Stop"); }},
                       .floors = {{1.0, bus}},
                       .bound = 0.25});
  // The smallest request that always goes to the router's thread and back.
  suite.add(Comparison{
      .name = "LastCause beyond the bus",
      .product = {"LastCause", {}, [requests] { return (*requests)->beyondTheBus(kDiagnostics, "LastCause"); }},
      .floors = {{1.0, bus}},
      .bound = {}});
  suite.add(Comparison{
      .name = "Applications, 20 programs",
      .product = {"Applications", {}, [requests] { return (*requests)->applications(); }},
      .floors = {{1.0, {"as many bytes", {}, [requests] { return (*requests)->asManyBytes(); }}}},
      .bound = {}});
  suite.add(Comparison{.name = "SetGain in place, 20 programs",
                       .product = {"SetGain", {}, [requests] { return (*requests)->setGainInPlace(); }},
                       .floors = {{1.0, bus}},
                       .bound = {}});
  suite.add(Limit{"Applications, 20 programs, whole", "ms",
                  [requests] { return (*requests)->applications() * 1e3; }, 1.0});
  suite.add(Limit{"SetGain in place, 20 programs, whole", "ms",
                  [requests] { return (*requests)->setGainInPlace() * 1e3; }, 1.0});
}

void addIdleness(Suite& suite) {
  const auto idle = std::make_shared<Lazily<Idleness>>();
  suite.add(Limit{"idle service, resident", "MB", [idle] { return (*idle)->megabytes; }, 15.0});
  // As much as nothing: a watch's own reading is finer, a processor's load in percent is not.
  suite.add(Limit{"idle service, processor time in a second", "ms",
                  [idle] { return (*idle)->millisecondsPerSecond; }, 1.0});
}

void addIpc(Suite& suite) {
  addRequests(suite);
  addIdleness(suite);
}

const Registration kRegistration("ipc", addIpc);

}  // namespace
}  // namespace monitor::bench
