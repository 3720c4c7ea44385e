// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

// The names under which the two auxiliary services are registered and the code-signing requirements with which both
// ends of every connection check each other. Constants: nothing reads them from the environment or from settings.
namespace monitor::MonitorServiceIdentity {

// Name of the privileged helper daemon.
inline constexpr std::string_view helper = "app.vesk.native.monitor-helper";
// Property list with which the helper daemon is registered, checked and unregistered.
inline constexpr std::string_view helperPlist = "app.vesk.native.monitor-helper.plist";
// Name of the audio service.
inline constexpr std::string_view audio = "app.vesk.native.monitor-audio";
// What a client of the audio service must be signed as.
inline constexpr std::string_view clientRequirement =
    "anchor apple generic and certificate leaf[subject.OU] = \"Q7RKM24XZT\" and (identifier \"app.vesk.native\" or "
    "identifier \"app.vesk.native.rc\")";

// What the service named `identifier` must be signed as. The identifier is inserted as it is, nothing is escaped.
[[nodiscard]] std::string requirement(std::string_view identifier);

}  // namespace monitor::MonitorServiceIdentity
