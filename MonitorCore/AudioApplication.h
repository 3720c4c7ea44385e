// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MonitorCore/Data.h"
#include "MonitorCore/ProcessKey.h"

namespace monitor {

// One application that currently has audio processes, as offered to the user for a volume setting.
struct AudioApplication {
  std::string id;                       // bundle identifier, or fallbackIdentity() of its process
  std::string name;                     // display name
  std::optional<std::string> bundleID;  // when the application has one
  std::vector<ProcessKey> processes;    // the audio processes that make up the application
  double gain = 1.0;                    // 0.0…1.0; 1.0 is unchanged playback (no route)
  bool running = false;                 // producing output now

  friend bool operator==(const AudioApplication&, const AudioApplication&) = default;
};

// The payloads of the audio protocol. Encoding throws json::EncodeError on a non-finite gain; decoding throws
// json::DecodeError naming the path of the offending key. Keys other than the named ones are ignored.
[[nodiscard]] Data encodeApplications(const std::vector<AudioApplication>& applications);
[[nodiscard]] std::vector<AudioApplication> decodeApplications(std::string_view bytes);
[[nodiscard]] Data encodeProcessKeys(const std::vector<ProcessKey>& keys);
[[nodiscard]] std::vector<ProcessKey> decodeProcessKeys(std::string_view bytes);

}  // namespace monitor
