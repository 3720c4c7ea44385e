// SPDX-License-Identifier: MIT
// The least that a service on the bus can be: the bus library's own loop and methods that do nothing. What the
// audio service needs beyond it is the audio service's own.
#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Benchmarks/Ipc/BusFloor.h"
#include "Platform/Linux/Ipc/Bus.h"

namespace {

namespace floors = monitor::bench::bus_floor;

constexpr std::uint32_t kMostBytes = 16U << 20U;

int onStop(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(call, nullptr);
}

int onBytes(sd_bus_message* call, void* /*data*/, sd_bus_error* error) {
  std::uint32_t count = 0;
  int result = sd_bus_message_read_basic(call, 'u', &count);
  if (result < 0) return result;
  if (count > kMostBytes) return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "too many bytes");
  static const std::string bytes(kMostBytes, 'x');
  sd_bus_message* made = nullptr;
  result = sd_bus_message_new_method_return(call, &made);
  const monitor::platform::Message reply(made);
  if (result >= 0) result = sd_bus_message_append_array(made, 'y', bytes.data(), count);
  if (result >= 0) result = sd_bus_message_append_basic(made, 's', "");
  return result < 0 ? result : sd_bus_send(nullptr, made, nullptr);
}

const sd_bus_vtable kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Stop", nullptr, nullptr, onStop, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Bytes", "u", "ays", onBytes, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int serve() {
  sd_bus* opened = nullptr;
  int result = sd_bus_open_user(&opened);
  const monitor::platform::Bus bus(opened);
  if (result >= 0) {
    result = sd_bus_add_object_vtable(opened, nullptr, floors::kPath, floors::kInterface, kTable, nullptr);
  }
  if (result >= 0) result = sd_bus_request_name(opened, floors::kName, 0);
  while (result >= 0) {
    result = sd_bus_process(opened, nullptr);
    if (result == 0) result = sd_bus_wait(opened, UINT64_MAX);
  }
  return result;
}

}  // namespace

// Ends with its bus.
int main() {
  const int result = serve();
  std::fprintf(stderr, "the bus has gone: %s\n", std::strerror(-result));
  return EXIT_FAILURE;
}
