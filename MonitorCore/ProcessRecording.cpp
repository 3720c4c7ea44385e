// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessRecording.h"

#include <utility>

#include "MonitorCore/Json/RecordCoding.h"
#include "MonitorCore/Json/RecordedFigures.h"
#include "MonitorCore/Json/RecordedNumber.h"
#include "MonitorCore/Recording.h"

namespace monitor {
namespace {

using json::Reader;
using json::setRecorded;
using json::Writer;

std::optional<std::string> findText(const Reader& object, std::string_view key) {
  const auto text = object.find(key);
  return text ? std::optional(text->string()) : std::nullopt;
}

ProcessSample decodeProcess(const Reader& object) {
  ProcessSample process;
  process.key = json::decodeProcessKey(object.at("key"));
  process.parentPID = object.at("parentPID").integer<std::int32_t>();
  process.owner = object.at("owner").integer<std::uint32_t>();
  process.name = object.at("name").string();
  process.bundleID = findText(object, "bundleID");
  process.executable = object.at("executable").string();
  json::readRecordedFigures(object, process);
  process.directory = findText(object, "directory");
  process.ports = json::decodeList<std::int64_t>(
      object.at("ports"), [](const Reader& port) { return port.integer<std::int64_t>(); });
  return process;
}

}  // namespace

json::Writer processObject(const ProcessSample& process) {
  Writer object = Writer::object();
  object.set("key", json::encodeProcessKey(process.key));
  object.set("parentPID", process.parentPID);
  object.set("owner", process.owner);
  object.set("name", process.name);
  if (process.bundleID) object.set("bundleID", *process.bundleID);
  object.set("executable", process.executable);
  json::setRecordedFigures(object, process);
  if (process.directory) object.set("directory", *process.directory);
  Writer ports = Writer::array();
  for (const std::int64_t port : process.ports) ports.append(port);
  object.set("ports", std::move(ports));
  return object;
}

json::Writer processList(const std::vector<ProcessSample>& processes) {
  return json::encodeList(processes, processObject);
}

std::string encodeProcesses(const RecordedProcesses& sample) {
  Writer object = Writer::object();
  setRecorded(object, "timestamp", sample.timestamp.secondsSince2001);
  object.set("processes", processList(sample.processes));
  return object.text();
}

RecordedProcesses decodeProcesses(std::string_view line) {
  const json::Document document(line);
  const Reader object = document.root();
  requireKnownVersion(object);
  return {Date{json::recordedNumber(object.at("timestamp"))},
          json::decodeList<ProcessSample>(object.at("processes"), decodeProcess)};
}

}  // namespace monitor
