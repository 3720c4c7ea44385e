// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "MonitorCore/Json/RecordedNumber.h"
#include "MonitorCore/Json/StrictJson.h"

// The seven figures that a process and an app have alike, in a recording: `memory` is always there, the others
// where they are known.
namespace monitor::json {

template <class Record>
void setRecordedFigures(Writer& object, const Record& record) {
  setRecorded(object, "cpu", record.cpu);
  object.set("memory", record.memory);
  setRecorded(object, "diskRead", record.diskRead);
  setRecorded(object, "diskWrite", record.diskWrite);
  setRecorded(object, "download", record.download);
  setRecorded(object, "upload", record.upload);
  setRecorded(object, "energy", record.energy);
}

template <class Record>
void readRecordedFigures(const Reader& object, Record& record) {
  record.cpu = findRecorded(object, "cpu");
  record.memory = object.at("memory").template integer<std::uint64_t>();
  record.diskRead = findRecorded(object, "diskRead");
  record.diskWrite = findRecorded(object, "diskWrite");
  record.download = findRecorded(object, "download");
  record.upload = findRecorded(object, "upload");
  record.energy = findRecorded(object, "energy");
}

}  // namespace monitor::json
