// SPDX-License-Identifier: MIT
#include "MonitorCore/Json/RecordCoding.h"

namespace monitor::json {

Writer encodeProcessKey(const ProcessKey& key) {
  Writer object = Writer::object();
  object.set("pid", key.pid);
  object.set("start", key.start);
  return object;
}

ProcessKey decodeProcessKey(const Reader& object) {
  return ProcessKey{object.at("pid").integer<std::int32_t>(), object.at("start").integer<std::uint64_t>()};
}

}  // namespace monitor::json
