// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdlib>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MonitorPreferences.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    auto preferences = monitor::decodePreferences({reinterpret_cast<const char*>(data), size});
    if (monitor::decodePreferences(monitor::encodePreferences(preferences)) != preferences) std::abort();
    preferences.normalize();
    const auto once = preferences;
    preferences.normalize();
    if (preferences != once) std::abort();
  } catch (const monitor::json::DecodeError&) {
  }
  return 0;
}
