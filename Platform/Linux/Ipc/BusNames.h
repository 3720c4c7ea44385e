// SPDX-License-Identifier: MIT
#pragma once

// What the services are called on the bus. Packaging repeats these names; a test holds the two together.
namespace monitor::platform::names {

// The audio service is known on the session bus by MonitorServiceIdentity::audio.
inline constexpr const char* kAudioPath = "/app/vesk/native/monitor_audio";
inline constexpr const char* kAudioInterface = "app.vesk.native.MonitorAudio";
inline constexpr const char* kAudioDiagnosticsInterface = "app.vesk.native.MonitorAudio.Diagnostics";

// The privileged helper is known on the system bus by MonitorServiceIdentity::helper.
inline constexpr const char* kHelperPath = "/app/vesk/native/monitor_helper";
inline constexpr const char* kHelperInterface = "app.vesk.native.MonitorHelper";
inline constexpr const char* kHelperUnit = "vesk-helper.service";

// The system's service manager.
inline constexpr const char* kServiceManager = "org.freedesktop.systemd1";
inline constexpr const char* kServiceManagerPath = "/org/freedesktop/systemd1";

// The bus itself.
inline constexpr const char* kBus = "org.freedesktop.DBus";
inline constexpr const char* kBusPath = "/org/freedesktop/DBus";

// Errors, ours and the bus's.
inline constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* kInteractiveAuthorizationRequired =
    "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired";
inline constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr const char* kDisconnected = "org.freedesktop.DBus.Error.Disconnected";
inline constexpr const char* kInvalidSignature = "org.freedesktop.DBus.Error.InvalidSignature";
inline constexpr const char* kNoReply = "org.freedesktop.DBus.Error.NoReply";
inline constexpr const char* kServiceUnknown = "org.freedesktop.DBus.Error.ServiceUnknown";
inline constexpr const char* kNameHasNoOwner = "org.freedesktop.DBus.Error.NameHasNoOwner";
// What a service's accept hook refuses a client with, as AccessDenied.
inline constexpr const char* kClientRefused = "This client may not use the service.";
inline constexpr const char* kSpawnPrefix = "org.freedesktop.DBus.Error.Spawn.";

}  // namespace monitor::platform::names
