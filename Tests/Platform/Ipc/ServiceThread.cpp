// SPDX-License-Identifier: MIT
#include "Tests/Platform/Ipc/ServiceThread.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::tests {
namespace {

using SteadyClock = std::chrono::steady_clock;
namespace names = platform::names;

platform::ServiceBusOptions on(const PrivateBus& bus, platform::ServiceBusOptions options) {
  options.address = bus.busAddress();
  return options;
}

const char* serviceName() {
  return MonitorServiceIdentity::audio.data();
}

void require(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
}

}  // namespace

ServiceThread::ServiceThread(const PrivateBus& bus, ServiceListenerDelegate<MonitorAudioProtocol>& delegate,
                             platform::ServiceBusOptions options)
    : listener_(queue_, on(bus, std::move(options))) {
  listener_.setDelegate(&delegate);
  thread_ = std::thread([this] {
    status_ = listener_.resume();
    left_ = true;
  });
  // A service that stays for a moment only may have left again before anybody looked.
  const RawClient client(bus);
  while (!left_ && !client.hasOwner(serviceName())) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

ServiceThread::~ServiceThread() {
  stop();
  join();
}

int ServiceThread::join() {
  if (thread_.joinable()) thread_.join();
  return status_;
}

RawClient::RawClient(const PrivateBus& bus) {
  sd_bus* made = nullptr;
  require(sd_bus_new(&made), "sd_bus_new");
  bus_.reset(made);
  require(sd_bus_set_address(made, bus.address().c_str()), "sd_bus_set_address");
  require(sd_bus_set_bus_client(made, 1), "sd_bus_set_bus_client");
  require(sd_bus_start(made), "sd_bus_start");
  uniqueName();  // waits until the bus has greeted
}

std::string RawClient::uniqueName() const {
  const char* name = nullptr;
  require(sd_bus_get_unique_name(bus_.get(), &name), "sd_bus_get_unique_name");
  return name;
}

bool RawClient::hasOwner(const char* name) const {
  sd_bus_message* made = nullptr;
  require(sd_bus_call_method(bus_.get(), names::kBus, names::kBusPath, names::kBus, "NameHasOwner", nullptr,
                             &made, "s", name),
          "NameHasOwner");
  const platform::Message reply(made);
  int owned = 0;
  require(sd_bus_message_read_basic(made, 'b', &owned), "NameHasOwner");
  return owned != 0;
}

std::string RawClient::call(const char* interface, const char* member, platform::Message* reply) {
  sd_bus_error error{};
  sd_bus_message* made = nullptr;
  sd_bus_call_method(bus_.get(), serviceName(), names::kAudioPath, interface, member, &error, &made, nullptr);
  const platform::Message answer(made);
  if (reply != nullptr) reply->reset(sd_bus_message_ref(made));
  const std::string name = error.name != nullptr ? error.name : "";
  sd_bus_error_free(&error);
  return name;
}

std::string RawClient::setGain(double gain, const std::string& processes, std::string* answer) {
  sd_bus_message* made = nullptr;
  require(sd_bus_message_new_method_call(bus_.get(), &made, serviceName(), names::kAudioPath,
                                         names::kAudioInterface, "SetGain"),
          "SetGain");
  const platform::Message message(made);
  require(sd_bus_message_append_basic(made, 'd', &gain), "gain");
  require(platform::appendData(made, processes), "processes");
  sd_bus_error error{};
  sd_bus_message* replied = nullptr;
  sd_bus_call(bus_.get(), made, 0, &error, &replied);
  const platform::Message reply(replied);
  if (answer != nullptr && replied != nullptr) require(platform::readText(replied, *answer), "answer");
  const std::string name = error.name != nullptr ? error.name : "";
  sd_bus_error_free(&error);
  return name;
}

void RawClient::send(const char* member) {
  require(sd_bus_call_method_async(bus_.get(), nullptr, serviceName(), names::kAudioPath,
                                   names::kAudioInterface, member, onAnswer, this, nullptr),
          member);
}

int RawClient::onAnswer(sd_bus_message* message, void* data, sd_bus_error* /*error*/) {
  auto& self = *static_cast<RawClient*>(data);
  ++self.answers;
  if (sd_bus_message_is_method_error(message, nullptr) > 0) ++self.errors;
  if (sd_bus_message_is_method_error(message, names::kLimitsExceeded) > 0) ++self.limited;
  return 0;
}

bool RawClient::process(std::size_t count, double seconds) {
  const auto end = SteadyClock::now() + std::chrono::duration<double>(seconds);
  while (answers < count && SteadyClock::now() < end) {
    const int result = sd_bus_process(bus_.get(), nullptr);
    require(result, "sd_bus_process");
    if (result == 0) sd_bus_wait(bus_.get(), 10'000);
  }
  return answers >= count;
}

}  // namespace monitor::tests
