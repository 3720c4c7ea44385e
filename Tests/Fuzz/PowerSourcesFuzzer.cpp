// SPDX-License-Identifier: MIT
// What the power-metrics tool reads of the kernel: socket diagnostics and descriptions of graphics clients.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "Platform/Linux/Power/DrmClients.h"
#include "Platform/Linux/Power/TcpMessages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace monitor::platform;
  TcpDump dump;
  readTcpMessages(std::as_bytes(std::span(data, size)), dump);

  const auto client = parseDrmClient({reinterpret_cast<const char*>(data), size});
  if (!client) return 0;
  const DrmClients clients{*client};
  const auto share = busiestEngine({}, clients, client->first.device, 1.0);
  if (!share || !(*share >= 0.0 && *share <= 1.0)) std::abort();
  // Nothing was worked between a look and itself.
  if (clientBusySeconds(clients, *clients.begin(), 1.0) != 0.0) std::abort();
  return 0;
}
