// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "Platform/Linux/Ipc/AudioServiceListener.h"
#include "Tests/Platform/Ipc/PrivateBus.h"

namespace monitor::tests {

// A listener that runs on a thread of the test, as the main thread of a service would. Serves once
// constructed.
class ServiceThread {
 public:
  // On `bus` whatever `options` says of the address. `delegate` outlives the object.
  ServiceThread(const PrivateBus& bus, ServiceListenerDelegate<MonitorAudioProtocol>& delegate,
                platform::ServiceBusOptions options = platform::AudioServiceListener::defaults());
  ~ServiceThread();
  ServiceThread(const ServiceThread&) = delete;
  ServiceThread& operator=(const ServiceThread&) = delete;

  // Asks it to leave, as SIGTERM does.
  void stop() { listener_.stop(); }
  // Waits until it has left; its exit status.
  int join();

 private:
  std::shared_ptr<platform::MainQueue> queue_ = std::make_shared<platform::MainQueue>();
  platform::AudioServiceListener listener_;
  int status_ = -1;
  std::atomic<bool> left_ = false;
  std::thread thread_;
};

// A client of its own on the bus, for what no other tool can do. Calls wait for their answer.
class RawClient {
 public:
  explicit RawClient(const PrivateBus& bus);
  [[nodiscard]] sd_bus* bus() const { return bus_.get(); }
  std::string uniqueName() const;
  [[nodiscard]] bool hasOwner(const char* name) const;
  // The error's name, empty when the call succeeded. `reply` gets the answer.
  std::string call(const char* interface, const char* member, platform::Message* reply = nullptr);
  std::string setGain(double gain, const std::string& processes, std::string* answer = nullptr);
  // Sends without waiting for the answer; answers are counted as they are processed.
  void send(const char* member);
  // Processes what has arrived until `count` answers have been counted or `seconds` have passed.
  bool process(std::size_t count, double seconds);
  std::size_t answers = 0;
  std::size_t errors = 0;   // of them errors
  std::size_t limited = 0;  // of those LimitsExceeded

 private:
  static int onAnswer(sd_bus_message* message, void* data, sd_bus_error* error);
  platform::Bus bus_;
};

}  // namespace monitor::tests
