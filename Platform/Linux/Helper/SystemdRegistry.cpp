// SPDX-License-Identifier: MIT
#include "Platform/Linux/Helper/SystemdRegistry.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Ipc/BusClient.h"
#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::platform {
namespace {

constexpr const char* kManager = "org.freedesktop.systemd1.Manager";

// Nothing for a daemon that this system knows nothing of.
std::string unitOf(std::string_view propertyList) {
  return propertyList == MonitorServiceIdentity::helperPlist ? names::kHelperUnit : "";
}

bool isOneOf(std::string_view name, const auto& list) {
  return std::find(list.begin(), list.end(), name) != list.end();
}

bool meansRefused(std::string_view error) {
  return isOneOf(error, std::array{std::string_view(names::kAccessDenied),
                                   std::string_view(names::kInteractiveAuthorizationRequired)});
}

MonitorError monitorError(const RemoteError& error) {
  return {error.domain, error.code, error.text};
}

MonitorError unknownDaemon(std::string_view propertyList) {
  return {MonitorError::kPosixDomain, ENOENT, "No daemon is described by " + std::string(propertyList) + '.'};
}

// One call of a change. `append` writes its arguments.
struct Step {
  const char* member;
  std::function<int(sd_bus_message*)> append;
};

int appendUnits(sd_bus_message* message, const std::string& unit) {
  int result = sd_bus_message_open_container(message, 'a', "s");
  if (result >= 0) result = appendText(message, unit);
  if (result >= 0) result = sd_bus_message_close_container(message);
  return result;
}

int appendFlag(sd_bus_message* message, bool value) {
  const int flag = value ? 1 : 0;
  return sd_bus_message_append_basic(message, 'b', &flag);
}

// Unit files first, so that the manager has read them before it starts or after it has stopped the unit.
std::vector<Step> enabling(const std::string& unit) {
  return {{"EnableUnitFiles",
           [unit](sd_bus_message* message) {
             int result = appendUnits(message, unit);
             if (result >= 0) result = appendFlag(message, false);     // for good, not until the next boot
             return result < 0 ? result : appendFlag(message, false);  // nothing is overwritten
           }},
          {"Reload", [](sd_bus_message*) { return 0; }},
          {"StartUnit", [unit](sd_bus_message* message) {
             const int result = appendText(message, unit);
             return result < 0 ? result : appendText(message, "replace");
           }}};
}

std::vector<Step> disabling(const std::string& unit) {
  return {{"DisableUnitFiles",
           [unit](sd_bus_message* message) {
             const int result = appendUnits(message, unit);
             return result < 0 ? result : appendFlag(message, false);
           }},
          {"Reload", [](sd_bus_message*) { return 0; }},
          {"StopUnit", [unit](sd_bus_message* message) {
             const int result = appendText(message, unit);
             return result < 0 ? result : appendText(message, "replace");
           }}};
}

// The user may be asked for a password.
std::function<int(sd_bus_message*)> askingTheUser(std::function<int(sd_bus_message*)> append) {
  return [append = std::move(append)](sd_bus_message* message) {
    const int result = sd_bus_message_set_allow_interactive_authorization(message, 1);
    return result < 0 ? result : append(message);
  };
}

// A connection of one request: a refusal ends the connection that heard it, and the next request has to be a
// new try.
class Manager {
 public:
  explicit Manager(const BusAddress& address)
      : client_(std::make_shared<BusClient>(
            BusClient::Target{address, names::kServiceManager, names::kServiceManagerPath})) {
    client_->resume();
  }
  ~Manager() { client_->release(); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  void send(BusClient::Call call) const { client_->send(std::move(call)); }

 private:
  std::shared_ptr<BusClient> client_;
};

using ManagerPointer = std::shared_ptr<Manager>;
using Completion = DaemonRegistry::ChangeCompletion;

// Sends the steps one after the other; the first error ends them.
void perform(const ManagerPointer& manager, std::vector<Step> steps, const Completion& completion) {
  if (steps.empty()) return completion(std::nullopt);
  Step step = std::move(steps.front());
  steps.erase(steps.begin());
  manager->send({kManager, step.member, askingTheUser(std::move(step.append)),
                 [manager, steps = std::move(steps), completion](sd_bus_message*) {
                   perform(manager, steps, completion);
                   return 0;
                 },
                 [completion](const RemoteError& error) { completion(monitorError(error)); }});
}

}  // namespace

struct SystemdRegistry::State {
  BusAddress address;
  std::atomic<bool> refused = false;  // the last change, for want of authorisation

  [[nodiscard]] ManagerPointer connect() const { return std::make_shared<Manager>(address); }
  // What the completion of a change is wrapped into.
  [[nodiscard]] static Completion noting(const std::shared_ptr<State>& state, Completion completion) {
    return [state, completion = std::move(completion)](const std::optional<MonitorError>& error) {
      if (!error) state->refused = false;
      if (error && meansRefused(error->domain())) state->refused = true;
      if (completion) completion(error);
    };
  }
  [[nodiscard]] DaemonStatus afterRefusal(DaemonStatus status) const {
    return status == DaemonStatus::NotRegistered && refused ? DaemonStatus::RequiresApproval : status;
  }
};

DaemonStatus daemonStatusOf(std::string_view unitFileState) {
  using namespace std::string_view_literals;
  // A unit that is made while the system runs, or that another one brings along, needs no enabling.
  constexpr std::array kEnabled{"enabled"sv,   "enabled-runtime"sv, "static"sv, "indirect"sv,
                                "generated"sv, "transient"sv,       "alias"sv};
  constexpr std::array kNot{"disabled"sv, "masked"sv, "masked-runtime"sv, "linked"sv, "linked-runtime"sv};
  if (isOneOf(unitFileState, kEnabled)) return DaemonStatus::Enabled;
  return isOneOf(unitFileState, kNot) ? DaemonStatus::NotRegistered : DaemonStatus::NotFound;
}

SystemdRegistry::SystemdRegistry(BusAddress address) : state_(std::make_shared<State>()) {
  state_->address = std::move(address);
}
SystemdRegistry::~SystemdRegistry() = default;

void SystemdRegistry::status(std::string_view propertyList, StatusCompletion completion) {
  const std::string unit = unitOf(propertyList);
  if (unit.empty()) return completion(DaemonStatus::NotFound);
  const auto manager = state_->connect();
  manager->send(
      {kManager, "GetUnitFileState", [unit](sd_bus_message* message) { return appendText(message, unit); },
       [manager, state = state_, completion](sd_bus_message* message) {
         std::string text;
         const int result = readText(message, text);
         if (result >= 0) completion(state->afterRefusal(daemonStatusOf(text)));
         return result;
       },
       // No such unit, no service manager, no bus: a daemon that is not there in any of these cases.
       [completion](const RemoteError& error) {
         completion(meansRefused(error.domain) ? DaemonStatus::RequiresApproval : DaemonStatus::NotFound);
       }});
}

void SystemdRegistry::registerDaemon(std::string_view propertyList, ChangeCompletion completion) {
  const std::string unit = unitOf(propertyList);
  if (unit.empty()) return completion(unknownDaemon(propertyList));
  perform(state_->connect(), enabling(unit), State::noting(state_, std::move(completion)));
}

void SystemdRegistry::unregisterDaemon(std::string_view propertyList, ChangeCompletion completion) {
  const std::string unit = unitOf(propertyList);
  if (unit.empty()) return completion(unknownDaemon(propertyList));
  perform(state_->connect(), disabling(unit), State::noting(state_, std::move(completion)));
}

}  // namespace monitor::platform
