// SPDX-License-Identifier: MIT
#include "MonitorCore/Ports/ApplicationBundles.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace monitor {

std::optional<std::string> applicationFolderOf(const std::string& executable) {
  constexpr std::string_view kSuffix = ".app";
  const std::string_view path = executable;
  std::size_t begin = 0;
  while (begin <= path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (path.substr(begin, end - begin).ends_with(kSuffix)) return executable.substr(0, end);
    begin = end + 1;
  }
  return std::nullopt;
}

}  // namespace monitor
