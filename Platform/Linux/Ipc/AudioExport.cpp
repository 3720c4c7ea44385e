// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/AudioExport.h"

#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::platform {
namespace {

// One more than the protocol's 32768: enough for the session to see that there is too much, and no reason to
// copy the rest of what a hostile client sends.
constexpr std::size_t kMostPayload = 32769;

// Absent travels as the empty string or array.
std::string orEmpty(const std::optional<std::string>& value) {
  return value.value_or(std::string());
}

MonitorAudioProtocol& objectOf(PeerSession& session) {
  return static_cast<AudioPeerSession&>(session).object();
}

int onApplications(sd_bus_message* call, void* peers, sd_bus_error* /*error*/) noexcept {
  return static_cast<PeerTable*>(peers)->handle(call, [](PeerSession& session, const Answer& answer) {
    objectOf(session).applications(
        [answer](const std::optional<Data>& data, const std::optional<std::string>& message) {
          answer.give([data = orEmpty(data), message = orEmpty(message)](sd_bus_message* reply) {
            const int result = appendData(reply, data);
            return result < 0 ? result : appendText(reply, message);
          });
        });
  });
}

int onSetGain(sd_bus_message* call, void* peers, sd_bus_error* /*error*/) noexcept {
  double gain = 0.0;
  Data processes;
  int result = sd_bus_message_read_basic(call, 'd', &gain);
  if (result >= 0) result = readData(call, kMostPayload, processes);
  if (result < 0) return result;
  return static_cast<PeerTable*>(peers)->handle(call, [gain, processes = std::move(processes)](
                                                          PeerSession& session, const Answer& answer) {
    objectOf(session).setGain(gain, processes, [answer](const std::optional<std::string>& message) {
      answer.give([message = orEmpty(message)](sd_bus_message* reply) { return appendText(reply, message); });
    });
  });
}

int onStop(sd_bus_message* call, void* peers, sd_bus_error* /*error*/) noexcept {
  return static_cast<PeerTable*>(peers)->handle(call, [](PeerSession& session, const Answer& answer) {
    objectOf(session).stop([answer] { answer.give([](sd_bus_message*) { return 0; }); });
  });
}

int appendCause(sd_bus_message* reply, std::int32_t code, const std::string& text) {
  const int result = sd_bus_message_append_basic(reply, 'i', &code);
  return result < 0 ? result : appendText(reply, text);
}

void giveLastCause(PeerSession& session, const Answer& answer) {
  auto* diagnostics = dynamic_cast<MonitorAudioDiagnostics*>(&objectOf(session));
  const auto give = [answer](std::int32_t code, const std::string& text) {
    answer.give([code, text](sd_bus_message* reply) { return appendCause(reply, code, text); });
  };
  if (diagnostics != nullptr) {
    diagnostics->lastCause(give);
  } else {
    give(0, {});
  }
}

int onLastCause(sd_bus_message* call, void* data, sd_bus_error* /*error*/) noexcept {
  auto& peers = *static_cast<PeerTable*>(data);
  // To ask for the cause of a failure begins no session: there has been none, so nothing failed.
  if (!peers.knows(call)) return sd_bus_reply_method_return(call, "is", 0, "");
  return peers.handle(call, giveLastCause);
}

// Every method is open to every user here; the accept hook decides.
const sd_bus_vtable kProtocol[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Applications", SD_BUS_NO_ARGS, SD_BUS_RESULT("ay", data, "s", message),
                            onApplications, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("SetGain", SD_BUS_ARGS("d", gain, "ay", processes), SD_BUS_RESULT("s", error),
                            onSetGain, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Stop", SD_BUS_NO_ARGS, SD_BUS_NO_RESULT, onStop, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable kDiagnostics[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("LastCause", SD_BUS_NO_ARGS, SD_BUS_RESULT("i", code, "s", text), onLastCause,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

Slot exported(sd_bus* bus, const char* interface, const sd_bus_vtable* table, PeerTable& peers) {
  sd_bus_slot* slot = nullptr;
  const int result = sd_bus_add_object_vtable(bus, &slot, names::kAudioPath, interface, table, &peers);
  if (result < 0) throw std::system_error(-result, std::generic_category(), interface);
  return Slot(slot);
}

}  // namespace

AudioExport::AudioExport(sd_bus* bus, PeerTable& peers)
    : protocol_(exported(bus, names::kAudioInterface, kProtocol, peers)),
      diagnostics_(exported(bus, names::kAudioDiagnosticsInterface, kDiagnostics, peers)) {}

}  // namespace monitor::platform
