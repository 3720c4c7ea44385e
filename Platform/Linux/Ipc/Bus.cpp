// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/Bus.h"

#include <algorithm>
#include <cerrno>

#include "MonitorCore/Utf8.h"

namespace monitor::platform {
namespace {

int openExplicitly(const std::string& address, sd_bus** bus) {
  int result = sd_bus_new(bus);
  if (result >= 0) result = sd_bus_set_address(*bus, address.c_str());
  if (result >= 0) result = sd_bus_set_bus_client(*bus, 1);
  if (result >= 0) result = sd_bus_start(*bus);
  return result;
}

int openByKind(BusAddress::Kind kind, sd_bus** bus) {
  return kind == BusAddress::Kind::System ? sd_bus_open_system(bus) : sd_bus_open_user(bus);
}

}  // namespace

Bus openBus(const BusAddress& address, sd_event* event) {
  sd_bus* opened = nullptr;
  int result = address.explicitly.empty() ? openByKind(address.kind, &opened)
                                          : openExplicitly(address.explicitly, &opened);
  Bus bus(opened);
  if (result >= 0) result = sd_bus_attach_event(bus.get(), event, SD_EVENT_PRIORITY_NORMAL);
  if (result < 0) {
    bus.reset();
    errno = -result;
  }
  return bus;
}

int watchDeparture(sd_bus* bus, std::string_view name, Slot& slot, sd_bus_message_handler_t handler,
                   void* data) {
  std::string match =
      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/"
      "DBus',interface='org.freedesktop.DBus',"
      "member='NameOwnerChanged',arg0='";
  match += name;
  match += "',arg2=''";
  sd_bus_slot* made = nullptr;
  // The handler for the installation does nothing: without one, a failure would end the whole connection.
  // What is asked of the bus next is answered after it has seen the match.
  const auto installed = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  const int result = sd_bus_add_match_async(bus, &made, match.c_str(), handler, installed, data);
  slot.reset(made);
  return result;
}

int watchDisconnection(sd_bus* bus, Slot& slot, sd_bus_message_handler_t handler, void* data) {
  sd_bus_slot* made = nullptr;
  const int result =
      sd_bus_match_signal_async(bus, &made, "org.freedesktop.DBus.Local", "/org/freedesktop/DBus/Local",
                                "org.freedesktop.DBus.Local", "Disconnected", handler, nullptr, data);
  slot.reset(made);
  return result;
}

int appendText(sd_bus_message* message, const std::string& text) {
  return sd_bus_message_append_basic(message, 's', repairedUtf8(text).c_str());
}

int appendData(sd_bus_message* message, const Data& data) {
  return sd_bus_message_append_array(message, 'y', data.data(), data.size());
}

int readData(sd_bus_message* message, std::size_t most, Data& data) {
  const void* bytes = nullptr;
  std::size_t size = 0;
  const int result = sd_bus_message_read_array(message, 'y', &bytes, &size);
  if (result >= 0) data.assign(static_cast<const char*>(bytes), std::min(size, most));
  return result;
}

int readText(sd_bus_message* message, std::string& text) {
  const char* read = nullptr;
  const int result = sd_bus_message_read_basic(message, 's', &read);
  if (result >= 0) text = read;
  return result;
}

}  // namespace monitor::platform
