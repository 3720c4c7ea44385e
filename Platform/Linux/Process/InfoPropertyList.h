// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace monitor::platform {

// What a ".app" folder says of itself.
struct BundleInformation {
  std::optional<std::string> identifier;   // "CFBundleIdentifier"; never empty or unusable as one
  std::optional<std::string> displayName;  // "CFBundleDisplayName"
  std::optional<std::string> name;         // "CFBundleName"
};

// From Contents/Info.plist, else from the first Resources/Info-*.plist by name. Nothing when the folder has
// neither, or one that is longer than 1 MiB or no XML property list.
[[nodiscard]] std::optional<BundleInformation> readBundleInformation(const std::string& folder);

// Whether the library may be given this XML. It is recursive, and slow on many entities and keys: elements
// may nest 32 deep, and there may be 4,096 keys, 4,096 entities and no declarations of entities.
[[nodiscard]] bool isHarmlessPropertyList(std::string_view xml);

}  // namespace monitor::platform
