// SPDX-License-Identifier: MIT
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <memory>
#include <string>
#include <string_view>

#include "MonitorCore/Data.h"

// sd-bus objects, held by the pointers of this page, are used on one thread: the one that runs the event loop
// that their bus is attached to.
namespace monitor::platform {

struct SdDelete {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
  // What was sent still reaches the bus.
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, SdDelete>;
using Message = std::unique_ptr<sd_bus_message, SdDelete>;
using Slot = std::unique_ptr<sd_bus_slot, SdDelete>;
using EventSource = std::unique_ptr<sd_event_source, SdDelete>;

// Which bus to use.
struct BusAddress {
  enum class Kind { Session, System };
  Kind kind = Kind::Session;
  std::string explicitly = {};  // a D-Bus address in place of the environment's
};

// A connection that is being made, attached to `event`. Empty with errno set when it cannot even begin.
[[nodiscard]] Bus openBus(const BusAddress& address, sd_event* event);

// Watches for the moment at which the unique name `name` leaves the bus. Nothing is waited for. Negative
// errno on failure.
[[nodiscard]] int watchDeparture(sd_bus* bus, std::string_view name, Slot& slot,
                                 sd_bus_message_handler_t handler, void* data);
// Watches for the loss of the bus.
[[nodiscard]] int watchDisconnection(sd_bus* bus, Slot& slot, sd_bus_message_handler_t handler, void* data);

// Both return a negative errno on failure. What is not UTF-8 in `text` is replaced: the bus carries nothing
// else.
int appendText(sd_bus_message* message, const std::string& text);
int appendData(sd_bus_message* message, const Data& data);
// At most `most` bytes of an array of bytes; the array is passed over as a whole.
int readData(sd_bus_message* message, std::size_t most, Data& data);
int readText(sd_bus_message* message, std::string& text);

}  // namespace monitor::platform
