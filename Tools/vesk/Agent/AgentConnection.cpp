// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/AgentConnection.h"

#include <fmt/format.h>

#include <cstdint>
#include <string_view>
#include <utility>

#include "MonitorCore/Json/StrictJson.h"
#include "Tools/vesk/Agent/AgentProtocol.h"
#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk::agent {
namespace {

// The agent waits up to five seconds for each answer of the service, and a request may stand behind others.
constexpr double kRequestSeconds = 30.0;
constexpr double kStatusSeconds = 3.0;
constexpr int kMostTries = 5;

platform::Bus openSessionBus() {
  sd_bus* bus = nullptr;
  const int result = sd_bus_open_user_with_description(&bus, "vesk");
  if (result < 0) {
    throw CommandError(
        ExitCode::Unavailable,
        fmt::format("The session bus cannot be reached: {}.\nIs this a desktop or user session with "
                    "DBUS_SESSION_BUS_ADDRESS or XDG_RUNTIME_DIR set?",
                    std::generic_category().message(-result)));
  }
  return platform::Bus(bus);
}

bool meansNoAgent(const BusError& error) {
  return error.is(SD_BUS_ERROR_SERVICE_UNKNOWN) || error.is(SD_BUS_ERROR_NAME_HAS_NO_OWNER);
}

[[noreturn]] void throwCallFailed(const BusError& error) {
  if (error.is(SD_BUS_ERROR_NO_REPLY) || error.is(SD_BUS_ERROR_TIMEOUT)) {
    throw CommandError(ExitCode::Failed, "The agent did not answer.");
  }
  if (error.is(SD_BUS_ERROR_ACCESS_DENIED) || error.is(SD_BUS_ERROR_LIMITS_EXCEEDED)) {
    throw CommandError(ExitCode::Failed, error.text());
  }
  throw CommandError(ExitCode::Unavailable,
                     fmt::format("The agent {} cannot be reached: {}", kBusName, error.text()));
}

std::string_view readBytes(const platform::Message& message) {
  const void* bytes = nullptr;
  std::size_t size = 0;
  checked(sd_bus_message_read_array(message.get(), 'y', &bytes, &size), "reading the agent's answer");
  return {static_cast<const char*>(bytes), size};
}

GainKeeper::Answer readTexts(const platform::Message& message) {
  const char* first = nullptr;
  const char* second = nullptr;
  checked(sd_bus_message_read(message.get(), "ss", &first, &second), "reading the agent's answer");
  return {first, second};
}

std::uint64_t microseconds(double seconds) {
  return static_cast<std::uint64_t>(seconds * 1e6);
}

}  // namespace

AgentConnection::AgentConnection() : bus_(openSessionBus()) {}

platform::Message AgentConnection::newCall(const char* member, bool startsAgent) {
  sd_bus_message* raw = nullptr;
  checked(sd_bus_message_new_method_call(bus_.get(), &raw, kBusName, kObjectPath, kInterface, member),
          "calling the agent");
  platform::Message message(raw);
  checked(sd_bus_message_set_auto_start(raw, startsAgent ? 1 : 0), "calling the agent");
  return message;
}

platform::Message AgentConnection::call(const std::function<platform::Message()>& makeCall,
                                        double timeoutSeconds) {
  for (int attempt = 1;; ++attempt) {
    const platform::Message message = makeCall();
    const bool startsAgent = sd_bus_message_get_auto_start(message.get()) > 0;
    BusError error;
    sd_bus_message* reply = nullptr;
    if (sd_bus_call(bus_.get(), message.get(), microseconds(timeoutSeconds), error.out(), &reply) >= 0) {
      return platform::Message(reply);
    }
    if (!startsAgent && (meansNoAgent(error) || error.is(kLeavingError))) return nullptr;
    // The agent left just then; the same call starts the next one.
    if (error.is(kLeavingError) && attempt < kMostTries) continue;
    throwCallFailed(error);
  }
}

GainKeeper::ListAnswer AgentConnection::list() {
  const platform::Message reply = call([this] { return newCall("List", true); }, kRequestSeconds);
  GainKeeper::ListAnswer answer;
  const std::string_view bytes = readBytes(reply);
  GainKeeper::Answer texts = readTexts(reply);
  try {
    if (!bytes.empty()) answer.list = decodeApplications(bytes);
  } catch (const json::DecodeError& error) {
    throw CommandError(ExitCode::Failed, fmt::format("The agent's list cannot be read: {}", error.what()));
  }
  answer.message = std::move(texts.error);
  answer.cause = std::move(texts.cause);
  return answer;
}

GainKeeper::Answer AgentConnection::setGain(const std::string& application, double gain) {
  const auto makeCall = [&] {
    platform::Message message = newCall("SetGain", true);
    checked(sd_bus_message_append(message.get(), "sd", application.c_str(), gain), "calling the agent");
    return message;
  };
  return readTexts(call(makeCall, kRequestSeconds));
}

std::optional<GainKeeper::Answer> AgentConnection::stop(const std::string& application) {
  const auto makeCall = [&] {
    platform::Message message = newCall("Stop", false);
    checked(sd_bus_message_append(message.get(), "s", application.c_str()), "calling the agent");
    return message;
  };
  const platform::Message reply = call(makeCall, kRequestSeconds);
  if (!reply) return std::nullopt;
  return readTexts(reply);
}

std::optional<GainKeeper::Status> AgentConnection::status() {
  const platform::Message reply = call([this] { return newCall("Status", false); }, kStatusSeconds);
  if (!reply) return std::nullopt;
  try {
    return decodeStatus(readBytes(reply));
  } catch (const json::DecodeError& error) {
    throw CommandError(ExitCode::Failed, fmt::format("The agent's status cannot be read: {}", error.what()));
  }
}

std::optional<pid_t> AgentConnection::ownerOf(const char* name) {
  sd_bus_creds* raw = nullptr;
  if (sd_bus_get_name_creds(bus_.get(), name, SD_BUS_CREDS_PID, &raw) < 0) return std::nullopt;
  const BusCredentials credentials(raw);
  pid_t pid = 0;
  if (sd_bus_creds_get_pid(credentials.get(), &pid) < 0) return std::nullopt;
  return pid;
}

}  // namespace monitor::vesk::agent
