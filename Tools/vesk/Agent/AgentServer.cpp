// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/AgentServer.h"

#include <cerrno>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "Tools/vesk/Agent/AgentProtocol.h"

namespace monitor::vesk::agent {
namespace {

using SharedMessage = std::shared_ptr<sd_bus_message>;

constexpr const char* kLeavingText = "The agent is leaving. Call again.";

SharedMessage kept(sd_bus_message* message) {
  return {sd_bus_message_ref(message), platform::SdDelete{}};
}

platform::Message newReply(sd_bus_message* call) {
  sd_bus_message* reply = nullptr;
  checked(sd_bus_message_new_method_return(call, &reply), "making a reply");
  return platform::Message(reply);
}

void appendBytes(sd_bus_message* message, const Data& bytes) {
  checked(platform::appendData(message, bytes), "writing a reply");
}

// A caller that has left meanwhile is no error of anybody's.
void sendReply(const platform::Message& reply) {
  sd_bus_send(nullptr, reply.get(), nullptr);
}

// Runs `write` on a fresh reply and sends it; a reply that cannot be written is answered with an error.
void answer(sd_bus_message* call, const std::function<void(sd_bus_message*)>& write) {
  try {
    const platform::Message reply = newReply(call);
    write(reply.get());
    sendReply(reply);
  } catch (const std::exception& error) {
    sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FAILED, "%s", error.what());
  }
}

void appendTexts(sd_bus_message* message, const std::string& first, const std::string& second) {
  checked(platform::appendText(message, first), "writing a reply");
  checked(platform::appendText(message, second), "writing a reply");
}

void writeTexts(sd_bus_message* reply, const GainKeeper::Answer& answer) {
  appendTexts(reply, answer.error, answer.cause);
}

void writeList(sd_bus_message* reply, const GainKeeper::ListAnswer& answer) {
  appendBytes(reply, answer.list ? encodeApplications(*answer.list) : Data());
  appendTexts(reply, answer.message, answer.cause);
}

}  // namespace

template <AgentServer::Handler handler>
int AgentServer::call(sd_bus_message* message, void* self, sd_bus_error* error) noexcept {
  auto* server = static_cast<AgentServer*>(self);
  try {
    const int refusal = server->admit(message, error);
    if (refusal < 0) return refusal;
    return (server->*handler)(message);
  } catch (const std::exception& exception) {
    return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "%s", exception.what());
  }
}

const sd_bus_vtable AgentServer::kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES("List", nullptr, , "ayss",
                             SD_BUS_PARAM(applications) SD_BUS_PARAM(message) SD_BUS_PARAM(cause),
                             AgentServer::call<&AgentServer::list>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("SetGain", "sd", SD_BUS_PARAM(application) SD_BUS_PARAM(gain), "ss",
                             SD_BUS_PARAM(error) SD_BUS_PARAM(cause),
                             AgentServer::call<&AgentServer::setGain>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Stop", "s", SD_BUS_PARAM(application), "ss",
                             SD_BUS_PARAM(error) SD_BUS_PARAM(cause), AgentServer::call<&AgentServer::stop>,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Status", nullptr, , "ay", SD_BUS_PARAM(status),
                             AgentServer::call<&AgentServer::status>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

AgentServer::AgentServer(sd_bus* bus, GainKeeper& keeper, std::uint32_t owner)
    : bus_(bus), keeper_(keeper), owner_(owner) {
  sd_bus_slot* slot = nullptr;
  checked(sd_bus_add_object_vtable(bus_, &slot, kObjectPath, kInterface, kTable, this),
          "exporting the agent");
  slot_.reset(slot);
}

bool AgentServer::takeName() {
  const int result = sd_bus_request_name(bus_, kBusName, 0);
  if (result == -EEXIST || result == -EALREADY) return false;
  checked(result, "taking the agent's name on the session bus");
  return true;
}

void AgentServer::leave() {
  leaving_ = true;
  // What the bus delivered before it took the name away stands in the read queue when this call returns.
  sd_bus_release_name(bus_, kBusName);
  while (sd_bus_process(bus_, nullptr) > 0) {
  }
  // Only now, or the next try would come to this agent again.
  for (const auto& [number, open] : std::exchange(open_, {})) {
    sd_bus_reply_method_errorf(open.get(), kLeavingError, kLeavingText);
  }
  sd_bus_flush(bus_);
}

int AgentServer::admit(sd_bus_message* message, sd_bus_error* error) {
  sd_bus_creds* raw = nullptr;
  const int asked = sd_bus_query_sender_creds(message, SD_BUS_CREDS_EUID, &raw);
  const BusCredentials credentials(raw);
  uid_t user = 0;
  if (asked < 0 || sd_bus_creds_get_euid(credentials.get(), &user) < 0 || user != owner_) {
    return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED,
                            "The agent serves the processes of its own user only.");
  }
  if (leaving_) return sd_bus_error_set(error, kLeavingError, kLeavingText);
  if (open_.size() >= kMostRequests) {
    return sd_bus_error_set(error, SD_BUS_ERROR_LIMITS_EXCEEDED,
                            "Too many requests are waiting for the agent.");
  }
  return 0;
}

template <class Result>
std::function<void(Result)> AgentServer::answering(sd_bus_message* message,
                                                   void (*write)(sd_bus_message* reply, const Result&)) {
  const std::uint64_t number = ++lastCall_;
  open_.emplace(number, kept(message));
  return [this, number, write](const Result& result) {
    const auto call = open_.extract(number);
    if (call) answer(call.mapped().get(), [&](sd_bus_message* reply) { write(reply, result); });
  };
}

int AgentServer::list(sd_bus_message* message) {
  keeper_.list(answering<GainKeeper::ListAnswer>(message, writeList));
  return 1;
}

int AgentServer::setGain(sd_bus_message* message) {
  const char* application = nullptr;
  double gain = 0.0;
  checked(sd_bus_message_read(message, "sd", &application, &gain), "reading a call");
  keeper_.setGain(application, gain, answering<GainKeeper::Answer>(message, writeTexts));
  return 1;
}

int AgentServer::stop(sd_bus_message* message) {
  const char* application = nullptr;
  checked(sd_bus_message_read(message, "s", &application), "reading a call");
  const auto reply = answering<GainKeeper::Answer>(message, writeTexts);
  if (*application == '\0') {
    keeper_.stopAll();
    reply({});
  } else {
    keeper_.release(application, reply);
  }
  return 1;
}

int AgentServer::status(sd_bus_message* message) {
  answer(message, [&](sd_bus_message* reply) { appendBytes(reply, encodeStatus(keeper_.status())); });
  return 1;
}

}  // namespace monitor::vesk::agent
