// SPDX-License-Identifier: MIT
#pragma once

#include <concepts>
#include <vector>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/ProcessKey.h"

// The coding of records that several payloads share.
namespace monitor::json {

[[nodiscard]] Writer encodeProcessKey(const ProcessKey& key);
[[nodiscard]] ProcessKey decodeProcessKey(const Reader& object);

template <class Record, std::invocable<const Record&> Encode>
[[nodiscard]] Writer encodeList(const std::vector<Record>& records, Encode encode) {
  Writer list = Writer::array();
  for (const Record& record : records) list.append(encode(record));
  return list;
}

template <class Record, std::invocable<const Reader&> Decode>
[[nodiscard]] std::vector<Record> decodeList(const Reader& list, Decode decode) {
  std::vector<Record> records;
  const std::size_t count = list.size();
  records.reserve(count);
  for (std::size_t index = 0; index < count; ++index) records.push_back(decode(list[index]));
  return records;
}

}  // namespace monitor::json
