// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/HelperExport.h"

#include <optional>
#include <string>
#include <system_error>

#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::platform {
namespace {

int onCollect(sd_bus_message* call, void* peers, sd_bus_error* /*error*/) noexcept {
  return static_cast<PeerTable*>(peers)->handle(call, [](PeerSession& session, const Answer& answer) {
    static_cast<HelperPeerSession&>(session).object().collect(
        [answer](const std::optional<Data>& data, const std::optional<std::string>& message) {
          // Absent travels as the empty array or string.
          answer.give([data = data.value_or(Data()),
                       message = message.value_or(std::string())](sd_bus_message* reply) {
            const int result = appendData(reply, data);
            return result < 0 ? result : appendText(reply, message);
          });
        });
  });
}

// Open to every user here; the bus's policy and the helper's rules decide.
const sd_bus_vtable kProtocol[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Collect", SD_BUS_NO_ARGS, SD_BUS_RESULT("ay", data, "s", message), onCollect,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

Slot exported(sd_bus* bus, PeerTable& peers) {
  sd_bus_slot* slot = nullptr;
  const int result =
      sd_bus_add_object_vtable(bus, &slot, names::kHelperPath, names::kHelperInterface, kProtocol, &peers);
  if (result < 0) throw std::system_error(-result, std::generic_category(), names::kHelperInterface);
  return Slot(slot);
}

}  // namespace

HelperExport::HelperExport(sd_bus* bus, PeerTable& peers) : protocol_(exported(bus, peers)) {}

}  // namespace monitor::platform
