// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

#include "MonitorCore/Data.h"
#include "MonitorCore/Json/StrictJson.h"
#include "Tools/vesk/Agent/GainKeeper.h"

// How `vesk` talks to its agent over the session bus.
//
//   List() → (ay applications, s message, s cause)
//       JSON array of AudioApplication, the empty array of bytes when listing failed.
//   SetGain(s application, d gain) → (s error, s cause)
//       The id of a listed or held application; 1.0 ends what is held. Texts are empty on success.
//   Stop(s application) → (s error, s cause)
//       The empty text stops everything.
//   Status() → (ay status)
//       JSON object, see encodeStatus().
//
// Errors of the bus itself: AccessDenied for another user's process, LimitsExceeded beyond kMostRequests open
// requests, kLeavingError from an agent that is about to leave: the same call, made again, starts the next
// one.
namespace monitor::vesk::agent {

inline constexpr const char* kBusName = "app.vesk.native.agent";
inline constexpr const char* kObjectPath = "/app/vesk/native/agent";
inline constexpr const char* kInterface = "app.vesk.native.Agent";
inline constexpr const char* kLeavingError = "app.vesk.native.Agent.Error.Leaving";
inline constexpr std::size_t kMostRequests = 64;

// {"held":[{"id":"","name":"","bundleID":"" (when it has one),"processes":[ProcessKey],"gain":0.4,
//           "state":"active"|"lost"|"waiting","trouble":""}],
//  "secondsSinceAnswer":1.5 (absent before the first),"lastError":"","lastCause":"",
//  "events":[{"time":seconds since 2001,"text":""}]}
[[nodiscard]] json::Writer statusObject(const GainKeeper::Status& status);
[[nodiscard]] Data encodeStatus(const GainKeeper::Status& status);
// Throws json::DecodeError.
[[nodiscard]] GainKeeper::Status decodeStatus(std::string_view bytes);

[[nodiscard]] std::string_view stateText(HoldState state);

}  // namespace monitor::vesk::agent
