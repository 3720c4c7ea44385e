// SPDX-License-Identifier: MIT
#include "Tests/Platform/Helper/ServiceManagerMock.h"

#include <chrono>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <thread>
#include <utility>

#include "Platform/Linux/Base/EventLoop.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::tests {
namespace {

namespace names = platform::names;

constexpr const char* kManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kNoFile = "org.freedesktop.DBus.Error.FileNotFound";

}  // namespace

class ServiceManagerMock::Impl {
 public:
  explicit Impl(const PrivateBus& bus) : address_(bus.busAddress()) {
    loop_.loop()->submit([this] { serve(); });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (bus.ownerOf(names::kServiceManager) == 0) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("no service manager on the bus");
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  ~Impl() {
    std::promise<void> closed;
    loop_.loop()->submit([&] {
      slot_.reset();
      bus_.reset();
      closed.set_value();
    });
    closed.get_future().wait();
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  mutable std::mutex mutex;  // guards what follows
  std::map<std::string, std::string> states;
  std::map<std::string, std::string> errors;
  std::vector<std::string> calls;
  bool everyChangeMayAsk = true;

 private:
  static constexpr auto kOpen = SD_BUS_VTABLE_UNPRIVILEGED;

  void serve() {
    static const sd_bus_vtable kTable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("GetUnitFileState", "s", "s", onState, kOpen),
        SD_BUS_METHOD("EnableUnitFiles", "asbb", "ba(sss)", onEnable, kOpen),
        SD_BUS_METHOD("DisableUnitFiles", "asb", "a(sss)", onDisable, kOpen),
        SD_BUS_METHOD("Reload", "", "", onReload, kOpen),
        SD_BUS_METHOD("StartUnit", "ss", "o", onJob, kOpen),
        SD_BUS_METHOD("StopUnit", "ss", "o", onJob, kOpen),
        SD_BUS_VTABLE_END,
    };
    bus_ = platform::openBus(address_, loop_.loop()->event());
    sd_bus_slot* slot = nullptr;
    sd_bus_add_object_vtable(bus_.get(), &slot, names::kServiceManagerPath, kManager, kTable, this);
    slot_.reset(slot);
    sd_bus_request_name(bus_.get(), names::kServiceManager, 0);
  }

  // Notes the call; the error it is to be answered with, if any.
  std::string note(sd_bus_message* message, const std::string& arguments, bool change = true) {
    const std::string member = sd_bus_message_get_member(message);
    const std::lock_guard lock(mutex);
    calls.push_back(member + arguments);
    if (change && sd_bus_message_get_allow_interactive_authorization(message) <= 0) everyChangeMayAsk = false;
    const auto error = errors.find(member);
    return error != errors.end() ? error->second : "";
  }
  static int refuse(sd_bus_error* error, const std::string& name) {
    return sd_bus_error_set(error, name.c_str(), "The mock says no.");
  }
  bool knows(const std::string& unit) const {
    const std::lock_guard lock(mutex);
    return states.contains(unit);
  }

  static int onState(sd_bus_message* message, void* data, sd_bus_error* error) {
    auto& self = *static_cast<Impl*>(data);
    const char* unit = nullptr;
    sd_bus_message_read(message, "s", &unit);
    const auto failure = self.note(message, std::string(" ") + unit, false);
    if (!failure.empty()) return refuse(error, failure);
    if (!self.knows(unit)) return refuse(error, kNoFile);
    const std::lock_guard lock(self.mutex);
    return sd_bus_reply_method_return(message, "s", self.states[unit].c_str());
  }
  // The one unit of an array, and the flags behind it.
  static std::string readUnits(sd_bus_message* message, int flags, std::string& text) {
    char** units = nullptr;
    sd_bus_message_read_strv(message, &units);
    const std::string unit = units != nullptr && units[0] != nullptr ? units[0] : "";
    for (char** each = units; each != nullptr && *each != nullptr; ++each) free(*each);
    free(units);
    text = " " + unit;
    for (int i = 0; i < flags; ++i) {
      int flag = 0;
      sd_bus_message_read(message, "b", &flag);
      text += flag != 0 ? " true" : " false";
    }
    return unit;
  }
  static int onEnable(sd_bus_message* message, void* data, sd_bus_error* error) {
    auto& self = *static_cast<Impl*>(data);
    std::string text;
    const auto unit = readUnits(message, 2, text);
    const auto failure = self.note(message, text);
    if (!failure.empty()) return refuse(error, failure);
    if (!self.knows(unit)) return refuse(error, kNoFile);
    const std::lock_guard lock(self.mutex);
    self.states[unit] = "enabled";
    return sd_bus_reply_method_return(message, "ba(sss)", 1, 0);
  }
  static int onDisable(sd_bus_message* message, void* data, sd_bus_error* error) {
    auto& self = *static_cast<Impl*>(data);
    std::string text;
    const auto unit = readUnits(message, 1, text);
    const auto failure = self.note(message, text);
    if (!failure.empty()) return refuse(error, failure);
    const std::lock_guard lock(self.mutex);
    self.states[unit] = "disabled";
    return sd_bus_reply_method_return(message, "a(sss)", 0);
  }
  static int onReload(sd_bus_message* message, void* data, sd_bus_error* error) {
    const auto failure = static_cast<Impl*>(data)->note(message, "");
    if (!failure.empty()) return refuse(error, failure);
    return sd_bus_reply_method_return(message, "");
  }
  static int onJob(sd_bus_message* message, void* data, sd_bus_error* error) {
    const char* unit = nullptr;
    const char* mode = nullptr;
    sd_bus_message_read(message, "ss", &unit, &mode);
    const auto failure = static_cast<Impl*>(data)->note(message, std::string(" ") + unit + " " + mode);
    if (!failure.empty()) return refuse(error, failure);
    return sd_bus_reply_method_return(message, "o", "/org/freedesktop/systemd1/job/1");
  }

  const platform::BusAddress address_;
  platform::Bus bus_;  // the loop's thread only
  platform::Slot slot_;
  platform::EventLoopThread loop_{"mock", QualityOfService::Unspecified};
};

ServiceManagerMock::ServiceManagerMock(const PrivateBus& bus) : impl_(std::make_unique<Impl>(bus)) {}
ServiceManagerMock::~ServiceManagerMock() = default;

void ServiceManagerMock::setState(const std::string& unit, const std::string& state) {
  const std::lock_guard lock(impl_->mutex);
  impl_->states[unit] = state;
}
std::string ServiceManagerMock::state(const std::string& unit) const {
  const std::lock_guard lock(impl_->mutex);
  const auto found = impl_->states.find(unit);
  return found != impl_->states.end() ? found->second : "";
}
void ServiceManagerMock::failWith(const std::string& member, const std::string& error) {
  const std::lock_guard lock(impl_->mutex);
  impl_->errors.erase(member);
  if (!error.empty()) impl_->errors[member] = error;
}
std::vector<std::string> ServiceManagerMock::calls() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->calls;
}
bool ServiceManagerMock::everyChangeMayAsk() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->everyChangeMayAsk;
}

}  // namespace monitor::tests
