// SPDX-License-Identifier: MIT
#include "MonitorCore/AdvancedSample.h"

#include <algorithm>
#include <utility>

#include "MonitorCore/Json/MetricCoding.h"
#include "MonitorCore/Json/RecordCoding.h"

namespace monitor {
namespace {

json::Writer encodeProcess(const AdvancedProcessReading& process) {
  json::Writer object = json::Writer::object();
  object.set("key", json::encodeProcessKey(process.key));
  if (process.download) object.set("download", *process.download);
  if (process.upload) object.set("upload", *process.upload);
  if (process.energy) object.set("energy", *process.energy);
  return object;
}

std::optional<double> optionalNumber(const json::Reader& object, std::string_view key) {
  const auto number = object.find(key);
  return number ? std::optional(number->number()) : std::nullopt;
}

AdvancedProcessReading decodeProcess(const json::Reader& object) {
  return {json::decodeProcessKey(object.at("key")), optionalNumber(object, "download"),
          optionalNumber(object, "upload"), optionalNumber(object, "energy")};
}

}  // namespace

std::string AdvancedSample::statusDescription() const {
  const auto usable = std::count_if(readings.begin(), readings.end(), [](const auto& entry) {
    return entry.second.value && entry.second.state == MetricState::Available;
  });
  std::string text = "Connected. This Mac has not reported a supported hardware reading.";
  if (usable > 0) {
    text = "Connected \u00B7 " + std::to_string(usable) + " hardware " +
           (usable == 1 ? "reading" : "readings") + " available.";
  }
  for (const std::string& note : notes) {
    if (!note.empty()) text += ' ' + note;
  }
  return text;
}

Data encodeAdvancedSample(const AdvancedSample& sample) {
  json::Writer object = json::Writer::object();
  object.set("timestamp", sample.timestamp.secondsSince2001);
  object.set("interval", sample.interval);
  object.set("readings", json::encodeMetricReadings(sample.readings));
  object.set("processes", json::encodeList(sample.processes, encodeProcess));
  json::Writer notes = json::Writer::array();
  for (const std::string& note : sample.notes) notes.append(note);
  object.set("notes", std::move(notes));
  return object.text();
}

AdvancedSample decodeAdvancedSample(std::string_view bytes) {
  const json::Document document(bytes);
  const json::Reader object = document.root();
  AdvancedSample sample;
  sample.timestamp = Date{object.at("timestamp").number()};
  sample.interval = object.at("interval").number();
  sample.readings = json::decodeMetricReadings(object.at("readings"));
  sample.processes = json::decodeList<AdvancedProcessReading>(object.at("processes"), decodeProcess);
  sample.notes = json::decodeList<std::string>(object.at("notes"),
                                               [](const json::Reader& note) { return note.string(); });
  return sample;
}

}  // namespace monitor
