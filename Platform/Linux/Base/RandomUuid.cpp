// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/RandomUuid.h"

#include <systemd/sd-id128.h>

#include <algorithm>
#include <system_error>

namespace monitor::platform {

std::string randomUuid() {
  sd_id128_t id{};
  const int result = sd_id128_randomize(&id);
  if (result < 0) throw std::system_error(-result, std::generic_category(), "sd_id128_randomize");
  char text[SD_ID128_UUID_STRING_MAX];
  std::string uuid = sd_id128_to_uuid_string(id, text);
  std::transform(uuid.begin(), uuid.end(), uuid.begin(),
                 [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c; });
  return uuid;
}

}  // namespace monitor::platform
