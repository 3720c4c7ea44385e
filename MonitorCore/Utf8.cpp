// SPDX-License-Identifier: MIT
#include "MonitorCore/Utf8.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace monitor {

std::string repairedUtf8(std::string text) {
  const auto isAscii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
  if (std::all_of(text.begin(), text.end(), isAscii)) return text;
  // The JSON library's writer knows how to replace; quoting and unquoting undo each other.
  using nlohmann::json;
  const std::string quoted = json(std::move(text)).dump(-1, ' ', false, json::error_handler_t::replace);
  return json::parse(quoted).get<std::string>();
}

}  // namespace monitor
