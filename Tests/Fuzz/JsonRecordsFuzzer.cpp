// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdlib>

#include "MonitorCore/AdvancedSample.h"
#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Json/StrictJson.h"

// The payloads of both service protocols: whatever decodes must encode and come back the same.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    const auto sample = monitor::decodeAdvancedSample(bytes);
    if (monitor::decodeAdvancedSample(monitor::encodeAdvancedSample(sample)) != sample) std::abort();
    static_cast<void>(sample.statusDescription());
  } catch (const monitor::json::DecodeError&) {
  }
  try {
    const auto applications = monitor::decodeApplications(bytes);
    if (monitor::decodeApplications(monitor::encodeApplications(applications)) != applications) std::abort();
  } catch (const monitor::json::DecodeError&) {
  }
  try {
    const auto keys = monitor::decodeProcessKeys(bytes);
    if (monitor::decodeProcessKeys(monitor::encodeProcessKeys(keys)) != keys) std::abort();
  } catch (const monitor::json::DecodeError&) {
  }
  return 0;
}
