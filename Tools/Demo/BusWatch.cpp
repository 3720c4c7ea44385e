// SPDX-License-Identifier: MIT
#include "Tools/Demo/BusWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/Recorder.h"

namespace monitor::demo {
namespace {

constexpr const char* kRule = "type='method_call',interface='app.vesk.native.MonitorAudio',member='SetGain'";

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct MessageReleaser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;
using Message = std::unique_ptr<sd_bus_message, MessageReleaser>;

void check(int status, const std::string& what) {
  if (status < 0) throw lab::LabError("message bus: " + what + ": " + std::strerror(-status));
}

Bus connect(const std::string& address, bool asMonitor) {
  sd_bus* raw = nullptr;
  check(sd_bus_new(&raw), "cannot make a connection");
  Bus bus(raw);
  check(sd_bus_set_address(raw, address.c_str()), "bad address " + address);
  check(sd_bus_set_bus_client(raw, 1), "cannot be a client");
  if (asMonitor) check(sd_bus_set_monitor(raw, 1), "cannot be a monitor");
  check(sd_bus_start(raw), "cannot connect to " + address);
  return bus;
}

void becomeMonitor(sd_bus* bus) {
  sd_bus_message* raw = nullptr;
  check(sd_bus_message_new_method_call(bus, &raw, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                       "org.freedesktop.DBus.Monitoring", "BecomeMonitor"),
        "cannot make a call");
  const Message message(raw);
  check(sd_bus_message_append(raw, "asu", 1, kRule, 0U), "cannot make a call");
  check(sd_bus_call(bus, raw, 0, nullptr, nullptr), "cannot become a monitor");
}

}  // namespace

// The connection lives on its thread, sd-bus objects being for one thread only.
struct BusWatch::Implementation {
  explicit Implementation(const std::string& address) : stop(::eventfd(0, EFD_CLOEXEC)) {
    std::promise<void> listening;
    auto ready = listening.get_future();
    thread =
        std::thread([this, address, listening = std::move(listening)]() mutable { run(address, listening); });
    try {
      ready.get();
    } catch (...) {
      thread.join();
      throw;
    }
  }

  ~Implementation() {
    const std::uint64_t one = 1;
    // An eventfd's counter cannot overflow here, so that the write cannot fail.
    static_cast<void>(::write(stop.get(), &one, sizeof one) == sizeof one);
    thread.join();
  }

  void run(const std::string& address, std::promise<void>& listening) {
    Bus bus;
    try {
      bus = connect(address, true);
      becomeMonitor(bus.get());
      listening.set_value();
    } catch (...) {
      listening.set_exception(std::current_exception());
      return;
    }
    std::array<pollfd, 2> entries{pollfd{sd_bus_get_fd(bus.get()), POLLIN, 0}, pollfd{stop.get(), POLLIN, 0}};
    while (entries[1].revents == 0) {
      sd_bus_message* raw = nullptr;
      const int status = sd_bus_process(bus.get(), &raw);
      const Message message(raw);
      if (status < 0) return;  // the bus has gone
      if (message) take(message.get());
      if (status == 0 && ::poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) return;
    }
  }

  void take(sd_bus_message* message) {
    if (sd_bus_message_is_method_call(message, "app.vesk.native.MonitorAudio", "SetGain") <= 0) return;
    Request request{lab::monotonicNanoseconds(), 0.0};
    if (sd_bus_message_read(message, "d", &request.gain) < 0) return;
    const std::scoped_lock lock(mutex);
    requests.push_back(request);
  }

  lab::Descriptor stop;
  mutable std::mutex mutex;
  std::vector<Request> requests;
  std::thread thread;
};

BusWatch::BusWatch(const std::string& busAddress)
    : implementation_(std::make_unique<Implementation>(busAddress)) {}
BusWatch::~BusWatch() = default;

std::vector<BusWatch::Request> BusWatch::requests() const {
  const std::scoped_lock lock(implementation_->mutex);
  return implementation_->requests;
}

std::optional<pid_t> ownerOf(const std::string& busAddress, const std::string& name) {
  const Bus bus = connect(busAddress, false);
  sd_bus_message* raw = nullptr;
  if (sd_bus_call_method(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "GetConnectionUnixProcessID", nullptr, &raw, "s", name.c_str()) < 0) {
    return std::nullopt;
  }
  const Message reply(raw);
  std::uint32_t pid = 0;
  check(sd_bus_message_read(raw, "u", &pid), "unexpected reply");
  return static_cast<pid_t>(pid);
}

}  // namespace monitor::demo
