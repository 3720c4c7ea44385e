// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string_view>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"

namespace monitor::platform {

// The service listener of an XPC service process; resume() does not return.
[[nodiscard]] std::unique_ptr<ServiceListener<MonitorAudioProtocol>> makeAudioServiceListener();

// The listener of the privileged helper, a launch daemon with the Mach service `name`.
[[nodiscard]] std::unique_ptr<ServiceListener<MonitorHelperProtocol>> makeHelperServiceListener(std::string_view name);

// Connections to an XPC service inside the application, or to a Mach service where `privileged`.
[[nodiscard]] std::unique_ptr<RemoteConnectionFactory<MonitorAudioProtocol>> makeAudioConnectionFactory();
[[nodiscard]] std::unique_ptr<RemoteConnectionFactory<MonitorHelperProtocol>> makeHelperConnectionFactory();

}  // namespace monitor::platform
